// Messages sealed by the library, taken apart by others; and opened by the library.
#include <functional>

#include "core/file_ref.h"
#include "keys/message_cipher.h"
#include "sign/signature_verify.h"
#include "tests/envelope/envelope_folder.h"

namespace kestrune::testing {
namespace {

struct Message : ::testing::Test, EnvelopeFolder {};

TEST_F(Message, SealedIsWhatOthersReadAndTheLibraryOpens) {
  const Bytes picture = PadOf(5000, 9);
  WriteFile(File("échographie.png"), picture);
  WriteFile(File("vide.txt"), "");
  const std::string files = File("échographie.png") + "|" + File("missing") + "|" + File("vide.txt");
  Letter letter;
  letter.attachments = files.c_str();
  Bytes block;
  std::string identifier;
  ASSERT_EQ(Seal(letter, &block, &identifier), kOk);

  const Layers layers = TakeApart(block, pads());
  EXPECT_EQ(layers.transport.name, "AUTH");
  EXPECT_TRUE(SignatureHolds(layers.transport.xml, layers.transport.data, Certificate()));
  EXPECT_EQ(ValueOf(layers.transport.xml, "N"), signing_key);

  EXPECT_EQ(layers.grey.name, "DATA");
  const std::string head = "<M><C>durand." + PersonalKeyYear() + "</C><F>medecin</F><R>medecin</R><I>" +
                           identifier + "</I><TE>2026-05-06 10:11:12</TE>";
  const std::string tail = "<S>UsOpc3VsdGF0cyBkJ2FuYWx5c2U=</S></M>";
  EXPECT_EQ(layers.grey.xml, head + "<D>a@x.example,b@x.example,c@x.example</D>" + tail);

  EXPECT_EQ(layers.kest.name, "KEST");
  EXPECT_TRUE(SignatureHolds(layers.kest.xml, layers.kest.data, Certificate()));

  EXPECT_EQ(layers.red.name, "RED");
  ASSERT_EQ(layers.red.cells.size(), 4U);
  const Cell& routing = layers.red.cells[0];
  EXPECT_EQ(routing.name, "ROUT");
  EXPECT_EQ(routing.xml, head + "<D>a@x.example</D><CC>b@x.example</CC>" + tail);
  const Cell& text = layers.red.cells[1];
  EXPECT_EQ(text.name, "TEXT");
  EXPECT_EQ(ToText(text.data), letter.text);
  EXPECT_TRUE(SignatureHolds(text.xml, text.data, Certificate()));
  const Cell& attachment = layers.red.cells[2];
  EXPECT_EQ(attachment.name, "PJ");
  EXPECT_EQ(ToText(FromBase64(ValueOf(ValueOf(attachment.xml, "AT"), "N"))), "échographie.png");
  EXPECT_EQ(attachment.data, picture);
  EXPECT_TRUE(
      SignatureHolds(attachment.xml.substr(attachment.xml.find("</AT>")), attachment.data, Certificate()));
  EXPECT_EQ(layers.red.cells[3].data.size(), 0U);

  const Opened opened = Open(block);
  ASSERT_EQ(opened.rc, kOk);
  EXPECT_EQ(opened.routing.text(), layers.grey.xml);
  EXPECT_EQ(opened.signature.text(), layers.transport.xml);
  EXPECT_EQ(opened.key_reference, "durand." + PersonalKeyYear());
  EXPECT_EQ(opened.signer, signing_key);
  TypV2BlockCell* tree = nullptr;
  ASSERT_EQ(envelope->DeCrypterVertFlat(opened.green.data(), opened.green.size(), opened.key_reference,
                                        letter.hex_password.c_str(), &tree),
            kOk);
  Owned<TypV2BlockCell> red;
  red.Adopt(tree);
  CBuffer again;
  ASSERT_EQ(again.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return red->GetFlatData(bytes, length, nullptr);
  }),
            kOk);
  EXPECT_EQ(ToBytes(again), layers.kest.data);
}

// What is wrong with a letter, and the code that decides.
TEST_F(Message, ArgumentsAreRefusedInTheirOrder) {
  const std::string most(40, 'k'), more(41, 'k');
  const struct {
    const char* name;
    std::function<void(Letter&)> spoil;
    Result want;
  } rows[] = {
      {"no key name", [](Letter& l) { l.key_name = nullptr; }, envelope::kKeyName},
      {"empty key name",
       [](Letter& l) {
         l.key_name = "";
         l.hex_password = "";
       },
       envelope::kKeyName},
      {"key name of 41", [&](Letter& l) { l.key_name = more.c_str(); }, envelope::kKeyName},
      {"key name of 40 passes here", [&](Letter& l) { l.key_name = most.c_str(); }, cipher::kKeyName},
      {"password of 63",
       [](Letter& l) {
         l.hex_password.pop_back();
         l.sender = "";
       },
       envelope::kPassword},
      {"password of 65", [](Letter& l) { l.hex_password += "0"; }, envelope::kPassword},
      {"sender of 41",
       [&](Letter& l) {
         l.sender = more.c_str();
         l.signing_password = "";
       },
       envelope::kSigningKeyName},
      {"sender of 40 passes here", [&](Letter& l) { l.sender = most.c_str(); }, signer::kKeyName},
      {"no signing password", [](Letter& l) { l.signing_password = ""; }, envelope::kNoSigningPassword},
      {"subject beats key name",
       [](Letter& l) {
         l.key_name = "";
         l.subject = nullptr;
       },
       envelope::kNoSubject},
      {"content beats subject", [](Letter& l) { l.subject = l.text = nullptr; }, envelope::kNoContent},
      {"date beats content", [](Letter& l) { l.te = l.text = nullptr; }, envelope::kNoDate},
      {"recipients beat all",
       [](Letter& l) {
         l.to = l.bcc = nullptr;
         l.cc = "";
         l.te = nullptr;
       },
       envelope::kNoRecipient},
      {"unknown sender", [](Letter& l) { l.sender = "nobody"; }, signer::kNoKeyFile},
      {"wrong password", [](Letter& l) { l.hex_password = HexPassword("other"); }, key::kCheckFailed},
      {"no such key", [](Letter& l) { l.key_name = "dupond"; }, file::kOpen},
  };
  for (const auto& row : rows) {
    Letter letter;
    row.spoil(letter);
    Bytes block;
    EXPECT_EQ(Seal(letter, &block), row.want) << row.name;
    EXPECT_TRUE(block.empty()) << row.name;
  }
  char password[] = "none";
  EXPECT_EQ(envelope->CrypterSigner("durand", Letter().hex_password.c_str(), "medecin", password, "a", "", "",
                                    "", "", "", "", "", "", nullptr, nullptr, nullptr, nullptr),
            envelope::kNoBlockOutput);
}

TEST_F(Message, AttachmentsHaveLimitsAndTheLastOneDecides) {
  WriteFile(File("most"), Bytes(1000000, 'x'));
  WriteFile(File("more"), Bytes(1000001, 'x'));
  const auto list = [](std::size_t count, const std::string& path) {
    std::string files = path;
    for (std::size_t i = 1; i < count; ++i) files += "|" + path;
    return files;
  };
  WriteFile(File("small"), "x");
  const struct {
    std::string files;
    Result want;
    std::size_t attachments;
  } rows[] = {
      {File("most"), kOk, 1},
      {File("more"), envelope::kAttachmentTooLarge, 0},
      {File("missing") + "|" + File("small"), kOk, 1},
      {File("small") + "|" + File("missing"), file::kOpen, 0},
      {File("small") + "|" + path(), file::kOpen, 0},  // a folder is no file
      {list(99, File("small")), kOk, 99},
      {list(100, File("small")), utils::kListFull, 0},
      {"", kOk, 0},
  };
  MessageFolder::personal.first_pad = master.pad = PadOf(600 * kPadChunk, 5);
  AddUser("durand");
  WriteFile(File("Master." + PersonalKeyYear()), master.File());
  for (const auto& row : rows) {
    Letter letter;
    letter.attachments = row.files.c_str();
    Bytes block;
    EXPECT_EQ(Seal(letter, &block), row.want) << row.files.substr(0, 80);
    if (row.want != kOk) continue;
    EXPECT_EQ(TakeApart(block, pads()).red.cells.size(), 2 + row.attachments);
  }
}

// Refuses the n-th object that is asked of it.
struct FailingCreator : TypV2InstanceCreatorUnix {
  int left = 1000;
  template <class T>
  T* Pass(T* made) {
    if (left-- > 0) return made;
    DeleteObject(made);
    return nullptr;
  }
  TypV2FileRef* newTypV2FileRef() override { return Pass(TypV2InstanceCreatorUnix::newTypV2FileRef()); }
  TypV2BlockCell* newTypV2BlockCell() override { return Pass(TypV2InstanceCreatorUnix::newTypV2BlockCell()); }
  TypApiV2Signature* newTypApiV2Signature() override {
    return Pass(TypV2InstanceCreatorUnix::newTypApiV2Signature());
  }
  TypApiV2SignatureVerify* newTypApiV2SignatureVerify() override {
    return Pass(TypV2InstanceCreatorUnix::newTypApiV2SignatureVerify());
  }
  TypKestruneV2* newTypKestruneV2() override { return Pass(TypV2InstanceCreatorUnix::newTypKestruneV2()); }
  TypKeyUtils* newTypKeyUtils() override { return Pass(TypV2InstanceCreatorUnix::newTypKeyUtils()); }
};

TEST(Factory, EachObjectThatCannotBeMadeIsACode) {
  FailingCreator creator;
  EnvelopeFolder folder(&creator);
  Bytes block;
  int refused = 0;
  for (int objects = 0;; ++objects) {
    creator.left = objects;
    const Result rc = folder.Seal(Letter(), &block);
    if (creator.left >= 0) {
      EXPECT_EQ(rc, kOk);
      break;
    }
    // A red block without its routing is sealed all the same, and then misses it in the grey one or not.
    if (rc != kOk) ++refused;
    EXPECT_TRUE(rc == kNoObject || rc == kOk || rc == signer::kNoKeyFile) << rc << " after " << objects;
  }
  EXPECT_GT(refused, 8);
  creator.left = 1;
  EXPECT_EQ(folder.Open(block).rc, kNoObject);
}

}  // namespace
}  // namespace kestrune::testing
