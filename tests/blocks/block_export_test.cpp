#include <gtest/gtest.h>

#include <cstring>
#include <iterator>

#include "blocks/v1_structure.h"
#include "tests/blocks/tree.h"

namespace kestrune::testing {
namespace {

std::string ExportXml(const Cell& cell, long flags, long long capacity = 4096, Result want = kOk) {
  CBuffer out;
  EXPECT_TRUE(out.Allocate(static_cast<std::size_t>(capacity)));  // exact, for the sanitizers
  long long position = 0;
  EXPECT_EQ(cell->ExportBlockAsXML(out.text(), &position, capacity, flags), want) << capacity;
  return std::string(out.text(), static_cast<std::size_t>(position));
}

Cell Message() {
  Cell red = NewCell("RED");
  Add(red, "ROUT", "<M>\n</M>");
  Add(red, "TEXT", "<S>\n</S>", std::string_view("hello\n\0hidden", 13));
  Add(red, "PJ", "<AT/>\n", std::string_view("\0\1\2", 3));
  Add(red, "PJ", nullptr, "no xml");
  return red;
}

TEST(ExportXml, WithAndWithoutData) {
  const Cell red = Message();
  const std::string rout = "<RED><ROUT><XML><M>\r</M></XML></ROUT>";
  EXPECT_EQ(ExportXml(red, 1), rout +
                                   "<TEXT><DATA>aGVsbG8KDQ08Uz4NPC9TPg==</DATA></TEXT>"
                                   "<PJ><XML><AT/>\r</XML><DATA>AAEC</DATA></PJ>"
                                   "<PJ><DATA></DATA></PJ></RED>");
  EXPECT_EQ(ExportXml(red, 2), rout +
                                   "<TEXT><XML><S>\r</S></XML><DATA></DATA></TEXT>"
                                   "<PJ><XML><AT/>\r</XML><DATA></DATA></PJ>"
                                   "<PJ><DATA></DATA></PJ></RED>");
  EXPECT_EQ(Describe(red->FindSubBlock("TEXT")).substr(0, 15), "-TEXT<<S>\r</S>>");  // changed in the cell
  std::string odd = Record("TEXT", 0, "x", "y");
  odd[2] = 77;  // equals no name, not even TEXT
  EXPECT_EQ(ExportXml(Loaded(Sealed(odd + Record("ABCDE"))), 1),
            "<TEXT><XML>x</XML><DATA>eQ==</DATA></TEXT><ABCDE></ABCDE>");
}

// The result is that of the last piece; a piece that does not fit is left out as a whole.
TEST(ExportXml, RunningResult) {
  const std::string xml(30, 'x');
  Cell cell = NewCell("A");
  Add(cell, "B", xml.c_str());
  EXPECT_EQ(ExportXml(cell, 0, 56), "<A><B><XML>" + xml + "</XML></B></A>");
  EXPECT_EQ(ExportXml(cell, 0, 55, utils::kDoesNotFit), "<A><B><XML>" + xml + "</XML></B></A");
  EXPECT_EQ(ExportXml(cell, 0, 41), "<A><B><XML></XML></B></A>");
  EXPECT_EQ(ExportXml(cell, 0, 25, utils::kDoesNotFit), "<A><B><XML></XML></B></A");
  EXPECT_EQ(ExportXml(cell, 0, 2, utils::kDoesNotFit), "<");
  cell = NewCell();
  ASSERT_EQ(cell->SetData("D", "x", reinterpret_cast<const unsigned char*>(xml.data()), 30), kOk);
  const std::string base64 = "eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4";
  EXPECT_EQ(ExportXml(cell, 1, 61), "<D><XML>x</XML><DATA></DATA></D>");
  EXPECT_EQ(ExportXml(cell, 1, 63, utils::kDoesNotFit), "<D><XML>x</XML><DATA>" + base64 + "D");
  EXPECT_EQ(ExportXml(cell, 1, 74), "<D><XML>x</XML><DATA>" + base64 + "</DATA></D>");
  char out[1] = "";
  long long position = -1;
  EXPECT_EQ(cell->ExportBlockAsXML(nullptr, &position, 1, 0), utils::kNoDestination);
  EXPECT_EQ(cell->ExportBlockAsXML(out, nullptr, 1, 0), argument::kNoInput);
  EXPECT_EQ(cell->ExportBlockAsXML(out, &position, 1, 0), utils::kNegative);
}

class ExportV1 : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(v1_.Init(), kOk); }
  TypV2InstanceCreatorUnix factory_;
  Owned<TypV1SimpleStruc> v1_{factory_.newTypV1SimpleStruc()};
};

TEST_F(ExportV1, TextsAndAttachments) {
  ASSERT_EQ(Message()->ExportBlockAsV1Struct(v1_.get()), kOk);
  ASSERT_EQ(v1_->text_count, 1u);
  EXPECT_EQ(std::memcmp(v1_->texts[0], "hello\n\0hidden", 14), 0);
  const char* const names[] = {"NONAME555555.xml", "NONAME555556.xml", "NONAME555557.xml", "inconnu2.data",
                               "inconnu.data"};
  ASSERT_EQ(v1_->attachment_count, std::size(names));
  for (std::size_t i = 0; i < std::size(names); ++i) {
    EXPECT_STREQ(v1_->attachment_names[i], names[i]);
    EXPECT_EQ(v1_->GetTypePJ(i), i < 3 ? kTypeXmlFork : kTypeAttachment);
  }
  EXPECT_EQ(v1_->GetTypePJ(std::size(names)), 0);
  EXPECT_EQ(v1_->GetTotalDataSize(), 13u + 8 + 8 + 6 + 3 + 6);
}

TEST_F(ExportV1, NamesOfAttachments) {
  const struct {
    std::string encoded;
    const char* name;
  } table[] = {
      {"YS5wZGY=", "a.pdf"},        {"", "inconnu2.data"}, {std::string(256, 'A'), "inconnu2.data"},
      {"YQBiLnBkZg==", "a"},         // ends at its zero byte
      {"AGE=", "NONAME555560.dat"},  // nothing before it
  };
  EXPECT_EQ(NewCell()->ExportBlockAsV1Struct(nullptr), block::kNoStructure);
  const Cell red = NewCell("RED");
  for (const auto& row : table) Add(red, "PJ", ("<AT><N>" + row.encoded + "</N></AT>").c_str(), "bytes");
  Add(red, "PJ", "<N>a.pdf</N>", "not Base64");
  Add(red, "TEXT", nullptr, "never reached");
  EXPECT_EQ(red->ExportBlockAsV1Struct(v1_.get()), block::kBase64);
  EXPECT_EQ(v1_->text_count, 0u);
  for (std::size_t i = 0; i < std::size(table); ++i)
    EXPECT_STREQ(v1_->attachment_names[2 * i + 1], table[i].name);
}

TEST_F(ExportV1, TheHundredAndFirst) {
  const Cell red = NewCell("RED");
  for (int i = 0; i < 101; ++i) {
    Add(red, "PJ", nullptr, std::to_string(i));
    Add(red, "TEXT", nullptr, std::to_string(i));
  }
  ASSERT_EQ(red->ExportBlockAsV1Struct(v1_.get()), kOk);
  EXPECT_EQ(v1_->attachment_count, 100u);
  ASSERT_EQ(v1_->text_count, 100u);
  EXPECT_STREQ(reinterpret_cast<char*>(v1_->texts[99]), "99");
}

}  // namespace
}  // namespace kestrune::testing
