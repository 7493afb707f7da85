// Messages sealed by the library, taken apart by others; and opened by the library.
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
                                        letter.hex_password, &tree),
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

// One or two spoilt arguments, and the code that decides.
TEST_F(Message, ArgumentsAreRefusedInTheirOrder) {
  using Field = const char* Letter::*;
  const std::string most(40, 'k'), more(41, 'k'), long_password = Letter::kHexPassword + "0";
  const std::string short_password = long_password.substr(0, 63), other = HexPassword("other");
  const struct {
    Field field;
    const char* value;
    Field also;
    const char* also_value;
    Result want;
  } rows[] = {
      {&Letter::key_name, nullptr, &Letter::hex_password, "", envelope::kKeyName},
      {&Letter::key_name, more.c_str(), &Letter::sender, "", envelope::kKeyName},
      {&Letter::hex_password, short_password.c_str(), &Letter::sender, "", envelope::kPassword},
      {&Letter::hex_password, long_password.c_str(), &Letter::sender, "", envelope::kPassword},
      {&Letter::sender, more.c_str(), &Letter::signing_password, "", envelope::kSigningKeyName},
      {&Letter::signing_password, "", &Letter::cc, nullptr, envelope::kNoSigningPassword},
      {&Letter::subject, nullptr, &Letter::key_name, "", envelope::kNoSubject},
      {&Letter::text, nullptr, &Letter::subject, nullptr, envelope::kNoContent},
      {&Letter::te, nullptr, &Letter::text, nullptr, envelope::kNoDate},
      {&Letter::to, "", &Letter::te, nullptr, envelope::kNoRecipient},
      {&Letter::key_name, most.c_str(), &Letter::cc, nullptr, cipher::kKeyName},  // the floors below take 39
      {&Letter::sender, most.c_str(), &Letter::cc, nullptr, signer::kKeyName},
      {&Letter::sender, "nobody", &Letter::cc, nullptr, signer::kNoKeyFile},
      {&Letter::hex_password, other.c_str(), &Letter::cc, nullptr, key::kCheckFailed},
      {&Letter::key_name, "dupond", &Letter::cc, nullptr, file::kOpen},
  };
  for (const auto& row : rows) {
    Letter letter;
    letter.cc = letter.bcc = "";
    letter.*row.field = row.value;
    letter.*row.also = row.also_value;
    Bytes block;
    EXPECT_EQ(Seal(letter, &block), row.want) << &row - rows;
    EXPECT_TRUE(block.empty());
  }
  char password[] = "none";
  EXPECT_EQ(envelope->CrypterSigner("durand", Letter().hex_password, "medecin", password, "a", "", "", "", "",
                                    "", "", "", "", nullptr, nullptr, nullptr, nullptr),
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

}  // namespace
}  // namespace kestrune::testing
