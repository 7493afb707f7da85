// Opened messages as a program in C gets them, beside a second reading of the same layers.
#include <kestrune/kestrune.h>

#include <gtest/gtest.h>

#include <memory>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "sign/digest.h"
#include "sign/signature.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {
namespace {

using Opened = std::unique_ptr<kestrune_message, decltype(&kestrune_free_message)>;

std::string Data(const kestrune_part& part) {
  EXPECT_EQ(part.data[part.length], 0);
  return std::string(part.data, part.data + part.length);
}

struct OpenedMessage : ::testing::Test, MessageFolder {
  OpenedMessage() : MessageFolder(64) {
    AddSigningKey("rsa3072", "pharmacien");
    for (const auto& [file, content] : {std::pair{note, "été"}, {empty, ""}}) WriteFile(file, content);
    const std::string attachments = note + "|" + empty;
    char password[] = "none", identifier[128];
    CBuffer sealed;
    EXPECT_EQ(sealed.Receive([&](auto** bytes, auto* length) {
      return static_cast<Result>(Api2CrypterMem(
          "Bonjour", attachments.c_str(), "durand", "medecin", "a_b_c_d", password, path().c_str(),
          "a@x.example", "", "", "", "s", "2026-05-06 10:11:12", bytes, length, identifier, 0));
    }),
              kOk);
    transport = Bytes(sealed.data(), sealed.data() + sealed.size());
    layers = TakeApart(transport, pads());
    routing = layers.red.cells[0].xml;
  }

  // The signature of a text with a key of the folder.
  std::string Sign(const char* key, const std::string& text) {
    TypV2InstanceCreatorUnix creator;
    Owned<TypApiV2Signature> signer(creator.newTypApiV2Signature());
    char password[] = "none", block[1500];
    EXPECT_EQ(signer.Init(&creator, key, path().c_str(), password), kOk);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    EXPECT_EQ(
        signer->GetSignatureXMLLight(bytes, static_cast<std::uint32_t>(text.size()), block, kDigestMode),
        kOk);
    return block;
  }
  // A grey block around any red records, signed by the sender.
  Bytes Grey(const std::string& records) {
    const std::string red = Sealed(Record("RED", 1, "", records));
    const Bytes kest = FlatLeaf("KEST", Sign("medecin", red), ToBytes(red));
    return FlatLeaf("DATA", layers.grey.xml, SealParts(PartsOf(kest), pads()));
  }
  Opened Open(const Bytes& grey, long want = kOk, const char* password = "a_b_c_d") {
    kestrune_message* message = nullptr;
    EXPECT_EQ(kestrune_open_message(grey.data(), grey.size(), path().c_str(), password, &message), want);
    return Opened(message, kestrune_free_message);
  }

  const std::string note = File("note é.txt"), empty = File("vide");
  Bytes transport;
  Layers layers;
  std::string routing;
};

// The signatures are checked over what the sealer signed: another reader of certificates says the same of each.
TEST_F(OpenedMessage, ComesBackAsItWasSealed) {
  const Opened message = Open(layers.transport.data);
  ASSERT_TRUE(message);
  TypV2BlockCell* tree = nullptr;
  const Bytes& grey = layers.transport.data;
  ASSERT_EQ(kestrune_open_tree(grey.data(), grey.size(), path().c_str(), "a_b_c_d", &tree), kOk);
  kestrune_message* apart = nullptr;
  EXPECT_EQ(kestrune_take_apart(tree, path().c_str(), &apart), kOk);
  const Opened of_tree(apart, kestrune_free_message);
  EXPECT_EQ(Api2FreeRedBlock(tree), kOk);

  for (const kestrune_message* read : {message.get(), of_tree.get()}) {
    EXPECT_EQ(read->routing, routing);
    ASSERT_TRUE(read->texts == 1 && read->attachments == 2);
    const kestrune_part* const parts[] = {read->text, read->attachment, read->attachment + 1};
    const char* const names[] = {"", "note é.txt", "vide"};
    for (std::size_t i = 0; i < 3; ++i) {
      const testing::Cell& cell = layers.red.cells[i + 1];
      EXPECT_TRUE(SignatureHolds(cell.xml, cell.data, Certificate()));
      EXPECT_EQ(Data(*parts[i]), ToText(cell.data));
      EXPECT_STREQ(parts[i]->name, names[i]);
      EXPECT_EQ(parts[i]->signer, signing_key);
      EXPECT_TRUE(parts[i]->signature == kOk && parts[i]->by_sender == 1) << i;
    }
  }
  EXPECT_TRUE(SignatureHolds(layers.kest.xml, layers.kest.data, Certificate()));
  EXPECT_EQ(message->red.signer, signing_key);
  EXPECT_TRUE(message->red.signature == kOk && message->red.by_sender == 1);
  EXPECT_TRUE(of_tree->red.signature == verifier::kNoBlock && of_tree->red.by_sender == 0);
  kestrune_free_message(nullptr);
}

TEST_F(OpenedMessage, EachSignatureIsJudgedByItself) {
  const std::string right = Sign("medecin", "Bonjour"), file = "été", unknown = "inconnu.z.126";
  const auto attached = [&](const std::string& name, const std::string& signature) {
    return Record("PJ", 0, "<AT><N>" + name + "</N></AT>" + signature, file);
  };
  const auto texted = [](const std::string& xml, const std::string& text = "Bonjour") {
    return Record("TEXT", 0, xml, text);
  };
  const std::string rout = Record("ROUT", 0, routing), of_file = Sign("medecin", file);
  const std::string other = "pharmacien" + signing_key.substr(7);
  const struct {
    std::string records;
    long signature;
    int by_sender;
    std::string signer, name = {};
  } rows[] = {
      {rout + texted(right), kOk, 1, signing_key},
      {rout + texted(right, "Bonsoir"), verifier::kBadSignature, 0, signing_key},
      {rout + texted(Replaced(right, signing_key, unknown)), verifier::kCertificate, 0, unknown},
      {rout + texted(Replaced(right, signing_key, other)), verifier::kBadSignature, 0, other},
      {rout + texted(Sign("pharmacien", "Bonjour")), kOk, 0, other},
      {rout + texted(of_file), verifier::kBadSignature, 0, signing_key},
      {rout + texted("<S></S>"), verifier::kTagMissing, 0, ""},
      {rout + texted(""), verifier::kNoBlock, 0, ""},
      {texted(right), kOk, 0, signing_key},
      {Record("ROUT", 0, "<F>medecin</F>") + texted(right), kOk, 0, signing_key},
      {rout + attached("Li4vLi4vYS9iCg==", of_file), kOk, 1, signing_key, "../../a/b\n"},
      {rout + attached("!", of_file), kOk, 1, signing_key},
      {rout + attached("YQBi", right), verifier::kBadSignature, 0, signing_key, "a"},
  };
  for (const auto& row : rows) {
    const Opened message = Open(Grey(row.records));
    ASSERT_TRUE(message && message->texts + message->attachments == 1) << &row - rows;
    const kestrune_part& part = message->texts == 1 ? *message->text : *message->attachment;
    EXPECT_EQ(part.signature, row.signature) << &row - rows;
    EXPECT_EQ(part.by_sender, row.by_sender) << &row - rows;
    EXPECT_EQ(part.signer, row.signer) << &row - rows;
    EXPECT_EQ(part.name, row.name) << &row - rows;
    EXPECT_EQ(message->red.signature, kOk);
  }
  // The red block's covers what no other does: the routing and the names.
  Bytes red = layers.kest.data;
  red[red.size() - 70] ^= 1;
  SealAgain(red);
  const Bytes kest = FlatLeaf("KEST", layers.kest.xml, red);
  const Opened changed = Open(FlatLeaf("DATA", layers.grey.xml, SealParts(PartsOf(kest), pads())));
  EXPECT_TRUE(changed && changed->red.signature == verifier::kBadSignature && changed->red.by_sender == 0);
}

TEST_F(OpenedMessage, TreesOfAnyShape) {
  std::string many, deep = Record("TEXT", 0, "x", "en bas");
  for (int i = 0; i < 3000; ++i) {
    many += Record("PJ", 0, "x", std::to_string(i));
    deep = Record("PJ", 1, "", deep);
  }
  const Opened message = Open(Grey(many + deep));
  ASSERT_TRUE(message && message->attachments == 6000 && message->texts == 1);
  EXPECT_EQ(Data(*message->text), "en bas");
  EXPECT_EQ(Data(message->attachment[2999]), "2999");
  EXPECT_STREQ(message->routing, "");
  const Opened none = Open(Grey(Record("X", 0, "x")));
  EXPECT_TRUE(none && none->texts + none->attachments == 0);
}

TEST_F(OpenedMessage, WhatIsRefused) {
  const Bytes& grey = layers.transport.data;
  Bytes damaged = grey;
  damaged[40] ^= 1;
  const Bytes other = FlatLeaf("X", routing, {});
  const struct {
    const Bytes* block;
    int kind;
    long routing, opening;
  } rows[] = {
      {&transport, KESTRUNE_TRANSPORT_BLOCK, envelope::kNoInput, envelope::kNoInput},
      {&grey, KESTRUNE_GREY_BLOCK, kOk, kOk},
      {&damaged, KESTRUNE_GREY_BLOCK, block::kDigestMismatch, block::kDigestMismatch},
      {&other, 0, envelope::kNoInput, envelope::kNoInput},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(kestrune_block_kind(row.block->data(), row.block->size()), row.kind);
    CBuffer xml;
    EXPECT_EQ(xml.ReceiveText([&](char** out) {
      return kestrune_grey_routing(row.block->data(), row.block->size(), out);
    }),
              row.routing);
    EXPECT_EQ(xml ? xml.text() : "", row.routing == kOk ? layers.grey.xml : "");
    EXPECT_EQ(Open(*row.block, row.opening) != nullptr, row.opening == kOk);
  }
  EXPECT_EQ(kestrune_block_kind(grey.data(), 23), 0);
  EXPECT_EQ(kestrune_block_kind(nullptr, 99), 0);
  EXPECT_FALSE(Open(grey, key::kCheckFailed, "faux"));
  const Bytes unsigned_red = FlatLeaf("KEST", "", layers.kest.data);
  EXPECT_FALSE(Open(FlatLeaf("DATA", layers.grey.xml, SealParts(PartsOf(unsigned_red), pads())),
                    verifier::kTagMissing));

  kestrune_message* message = nullptr;
  TypV2BlockCell* tree = nullptr;
  char* xml = nullptr;
  const char *folder = path().c_str(), *phrase = "a_b_c_d";
  for (int missing = 0; missing < 4; ++missing) {
    const unsigned char* const block = missing == 0 ? nullptr : grey.data();
    const char* const where = missing == 1 ? nullptr : folder;
    const char* const password = missing == 2 ? nullptr : phrase;
    const long want = missing == 3 ? argument::kNoOutput : argument::kNoInput;
    EXPECT_EQ(kestrune_open_message(block, 99, where, password, missing == 3 ? nullptr : &message), want);
    EXPECT_EQ(kestrune_open_tree(block, 99, where, password, missing == 3 ? nullptr : &tree), want);
  }
  char spoiled;
  xml = &spoiled;
  EXPECT_EQ(kestrune_grey_routing(nullptr, 9, &xml), argument::kNoInput);
  EXPECT_EQ(xml, nullptr);
  EXPECT_EQ(kestrune_grey_routing(grey.data(), 9, nullptr), argument::kNoOutput);
  EXPECT_EQ(kestrune_take_apart(nullptr, folder, &message), mail::kNoTree);
}

// "martin.x" is another sender than "martin".
TEST(IsSender, TheWholeNameAndAGenerationAndNothingElse) {
  for (const char* signer : {"martin.z.126", "martin.a.1"})
    EXPECT_EQ(kestrune_is_sender(signer, "martin"), 1);
  for (const char* signer : {"martin.x.z.126", "martin", "martin.z.", "martin.Z.126", "martin.z.126x",
                             "martin.z126", "marti.z.126", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(kestrune_is_sender(signer, "martin"), 0) << (signer == nullptr ? "null" : signer);
  }
  EXPECT_EQ(kestrune_is_sender(".z.126", ""), 0);
  EXPECT_EQ(kestrune_is_sender("martin.z.126", nullptr), 0);
}

}  // namespace
}  // namespace kestrune::testing
