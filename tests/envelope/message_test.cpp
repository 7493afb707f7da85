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
  const Cell& red = layers.red;
  std::string names;
  for (const Cell* cell : {&layers.transport, &layers.grey, &layers.kest, &red}) names += cell->name + " ";
  for (const Cell& cell : red.cells) names += cell.name + " ";
  ASSERT_EQ(names, "AUTH DATA KEST RED ROUT TEXT PJ PJ ");
  EXPECT_EQ(ValueOf(layers.transport.xml, "N"), signing_key);
  const std::string head = "<M><C>durand." + PersonalKeyYear() + "</C><F>medecin</F><R>medecin</R><I>" +
                           identifier + "</I><TE>2026-05-06 10:11:12</TE>";
  const std::string tail = "<S>UsOpc3VsdGF0cyBkJ2FuYWx5c2U=</S></M>";
  EXPECT_EQ(layers.grey.xml, head + "<D>a@x.example,b@x.example,c@x.example</D>" + tail);
  EXPECT_EQ(red.cells[0].xml, head + "<D>a@x.example</D><CC>b@x.example</CC>" + tail);
  EXPECT_EQ(ToText(red.cells[1].data), letter.text);
  EXPECT_EQ(red.cells[2].data, picture);
  EXPECT_EQ(red.cells[3].data.size(), 0U);
  const std::string& picture_xml = red.cells[2].xml;
  EXPECT_EQ(ToText(FromBase64(ValueOf(ValueOf(picture_xml, "AT"), "N"))), "échographie.png");
  Cell attachment = red.cells[2];
  attachment.xml = picture_xml.substr(picture_xml.find("</AT>"));
  for (const Cell& cell : {layers.transport, layers.kest, red.cells[1], attachment}) {
    EXPECT_TRUE(SignatureHolds(cell.xml, cell.data, Certificate())) << cell.name;
  }

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
  const auto owned = Adopted(tree);
  CBuffer again;
  const auto flatten = [&](auto** bytes, auto* length) { return tree->GetFlatData(bytes, length, nullptr); };
  ASSERT_EQ(again.Receive(flatten), kOk);
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
  for (int missing = 0; missing < 3; ++missing) {
    char password[] = "none", identifier[kMessageIdentifierBytes];
    unsigned char* block = nullptr;
    unsigned long long length = 0;
    EXPECT_EQ(envelope->CrypterSigner("durand", Letter().hex_password, "medecin", password, "a", "", "", "",
                                      "", "", "", "", "", nullptr, missing == 0 ? nullptr : &block,
                                      missing == 1 ? nullptr : &length, missing == 2 ? nullptr : identifier),
              envelope::kNoBlockOutput);
  }
}

TEST_F(Message, AttachmentsHaveLimitsAndTheLastOneDecides) {
  WriteFile(File("most"), Bytes(1000000, 'x'));
  WriteFile(File("more"), Bytes(1000001, 'x'));
  WriteFile(File("small"), "x");
  std::string of_99 = File("small");
  for (int i = 1; i < 99; ++i) of_99 += "|" + File("small");
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
      {of_99, kOk, 99},
      {of_99 + "|" + File("small"), utils::kListFull, 0},
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
