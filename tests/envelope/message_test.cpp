// Messages sealed by the library, taken apart by others; and opened by the library.
#include <gtest/gtest.h>

#include <string>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {
namespace {

constexpr char kText[] = "Cher confrère,\nl'été dernier, à Noël : \"cœur\" <b>&</b>";
constexpr char kSubject[] = "Résultats d'analyse";
constexpr char kDate[] = "2026-05-06 10:11:12";

struct Sealed {
  Result rc = kOk;
  Bytes block;
  std::string identifier;
};

class Message : public ::testing::Test {
 protected:
  Message() : envelope_(creator_.newTypV2CryptoInterface()) {
    EXPECT_EQ(envelope_.Init(&creator_, folder_.path().c_str(), folder_.path().c_str()), kOk);
  }

  Sealed Seal(const char* text, const std::string& attachments) {
    Sealed sealed;
    unsigned char* block = nullptr;
    unsigned long long length = 0;
    char identifier[kMessageIdentifierBytes];
    char password[] = "unused";
    sealed.rc =
        envelope_->CrypterSigner("durand", folder_.personal.hex_password.c_str(), "medecin", password,
                                 "a@x.example", "b@x.example", "c@x.example", nullptr, kSubject, kDate,
                                 nullptr, text, attachments.c_str(), nullptr, &block, &length, identifier);
    CBuffer owned;
    owned.Adopt(block, length);
    sealed.block.assign(block, block + length);
    if (sealed.rc == kOk) sealed.identifier = identifier;
    return sealed;
  }

  MessageFolder folder_;
  TypV2InstanceCreatorUnix creator_;
  Owned<TypV2CryptoInterface> envelope_;
};

TEST_F(Message, SealedIsWhatOthersReadAndTheLibraryOpens) {
  const Bytes picture = PadOf(5000, 9);
  WriteFile(folder_.File("échographie.png"), picture);
  WriteFile(folder_.File("vide.txt"), "");
  const Sealed sealed = Seal(kText, folder_.File("échographie.png") + "|" + folder_.File("missing") + "|" +
                                        folder_.File("vide.txt"));
  ASSERT_EQ(sealed.rc, kOk);

  const Layers layers = TakeApart(sealed.block, folder_.pads());
  const std::string certificate = folder_.Certificate();
  EXPECT_EQ(layers.transport.name, "AUTH");
  EXPECT_TRUE(SignatureHolds(layers.transport.xml, layers.transport.data, certificate));
  EXPECT_EQ(ValueOf(layers.transport.xml, "N"), folder_.signing_key);

  EXPECT_EQ(layers.grey.name, "DATA");
  const std::string common = "<R>medecin</R><I>" + sealed.identifier + "</I><TE>" + kDate + "</TE>";
  const std::string head = "<M><C>durand." + PersonalKeyYear() + "</C><F>medecin</F>" + common;
  const std::string tail = "<S>UsOpc3VsdGF0cyBkJ2FuYWx5c2U=</S></M>";
  EXPECT_EQ(layers.grey.xml, head + "<D>a@x.example,b@x.example,c@x.example</D>" + tail);

  EXPECT_EQ(layers.kest.name, "KEST");
  EXPECT_TRUE(SignatureHolds(layers.kest.xml, layers.kest.data, certificate));

  EXPECT_EQ(layers.red.name, "RED");
  ASSERT_EQ(layers.red.cells.size(), 4U);
  const Cell& routing = layers.red.cells[0];
  EXPECT_EQ(routing.name, "ROUT");
  EXPECT_EQ(routing.xml, head + "<D>a@x.example</D><CC>b@x.example</CC>" + tail);
  const Cell& text = layers.red.cells[1];
  EXPECT_EQ(text.name, "TEXT");
  EXPECT_EQ(ToText(text.data), kText);
  EXPECT_TRUE(SignatureHolds(text.xml, text.data, certificate));
  const Cell& attachment = layers.red.cells[2];
  EXPECT_EQ(attachment.name, "PJ");
  EXPECT_EQ(ToText(FromBase64(ValueOf(ValueOf(attachment.xml, "AT"), "N"))), "échographie.png");
  EXPECT_EQ(attachment.data, picture);
  EXPECT_TRUE(
      SignatureHolds(attachment.xml.substr(attachment.xml.find("</AT>")), attachment.data, certificate));
  EXPECT_EQ(layers.red.cells[3].data.size(), 0U);

  char *routing_xml = nullptr, *signature = nullptr;
  char key_reference[kKeyReferenceBytes], signer[kSignerNameBytes];
  CBuffer green;
  ASSERT_EQ(green.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return envelope_->ExtractVertFlatFromHTTPSBlock(sealed.block.data(), sealed.block.size(), &routing_xml,
                                                    key_reference, signer, bytes, length, &signature);
  }),
            kOk);
  CBuffer owned_routing, owned_signature;
  owned_routing.AdoptText(routing_xml);
  owned_signature.AdoptText(signature);
  EXPECT_EQ(routing_xml, layers.grey.xml);
  EXPECT_EQ(signature, layers.transport.xml);
  EXPECT_EQ(key_reference, "durand." + PersonalKeyYear());
  EXPECT_EQ(signer, folder_.signing_key);
  TypV2BlockCell* tree = nullptr;
  ASSERT_EQ(envelope_->DeCrypterVertFlat(green.data(), green.size(), key_reference,
                                         folder_.personal.hex_password.c_str(), &tree),
            kOk);
  Owned<TypV2BlockCell> red;
  red.Adopt(tree);
  CBuffer again;
  ASSERT_EQ(again.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return red->GetFlatData(bytes, length, nullptr);
  }),
            kOk);
  EXPECT_EQ(Bytes(again.data(), again.data() + again.size()), layers.kest.data);
}

}  // namespace
}  // namespace kestrune::testing
