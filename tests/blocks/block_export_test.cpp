#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string_view>

#include "blocks/v1_structure.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

std::string ExportXml(const Cell& cell, long flags, long long capacity = 4096, Result want = kOk) {
  CBuffer out;
  EXPECT_TRUE(out.Allocate(static_cast<std::size_t>(capacity)));  // exact, for the sanitizers
  long long position = 0;
  EXPECT_EQ(cell->ExportBlockAsXML(out.text(), &position, capacity, flags), want) << capacity;
  return std::string(out.text(), static_cast<std::size_t>(position));
}

Owned<TypV1SimpleStruc> NewStructure() {
  TypV2InstanceCreatorUnix factory;
  Owned<TypV1SimpleStruc> structure(factory.newTypV1SimpleStruc());
  EXPECT_EQ(structure.Init(), kOk);
  return structure;
}

Cell Message() {
  Cell red = NewCell("RED");
  Add(red.get(), "ROUT", "<M>\n</M>");
  Add(red.get(), "TEXT", "<S>\n</S>", std::string_view("hello\n\0hidden", 13));
  Add(red.get(), "PJ", "<AT/>\n", std::string_view("\0\1\2", 3));
  Add(red.get(), "PJ", "", "no xml");
  return red;
}

TEST(ExportXml, WithAndWithoutData) {
  const Cell red = Message();
  const std::string with_data =
      "<RED><ROUT><XML><M>\r</M></XML></ROUT><TEXT><DATA>aGVsbG8KDQ08Uz4NPC9TPg==</DATA></TEXT>"
      "<PJ><XML><AT/>\r</XML><DATA>AAEC</DATA></PJ><PJ><DATA></DATA></PJ></RED>";
  EXPECT_EQ(ExportXml(red, 1), with_data);
  EXPECT_EQ(Describe(red->FindSubBlock("TEXT")).substr(0, 15), "-TEXT<<S>\r</S>>");  // changed in the cell
  EXPECT_NE(ExportXml(red, 2).find("<TEXT><XML><S>\r</S></XML><DATA></DATA></TEXT><PJ>"), std::string::npos);
  std::string odd = Record("TEXT", 0, "x", "y");
  odd[2] = 77;  // equals no name, not even TEXT
  EXPECT_EQ(ExportXml(Loaded(Sealed(odd + Record("ABCDE"))), 1),
            "<TEXT><XML>x</XML><DATA>eQ==</DATA></TEXT><ABCDE></ABCDE>");
}

// The result is that of the last piece; a piece that does not fit is left out as a whole.
TEST(ExportXml, RunningResult) {
  const std::string xml(30, 'x');
  Cell cell = NewCell("A");
  Add(cell.get(), "B", xml);
  EXPECT_EQ(ExportXml(cell, 0, 56), "<A><B><XML>" + xml + "</XML></B></A>");
  EXPECT_EQ(ExportXml(cell, 0, 55, utils::kDoesNotFit), "<A><B><XML>" + xml + "</XML></B></A");
  EXPECT_EQ(ExportXml(cell, 0, 41), "<A><B><XML></XML></B></A>");
  EXPECT_EQ(ExportXml(cell, 0, 2, utils::kDoesNotFit), "<");
  cell = NewCell();
  ASSERT_EQ(cell->SetData("D", "x", reinterpret_cast<const unsigned char*>(xml.data()), 30), kOk);
  EXPECT_EQ(ExportXml(cell, 1, 61), "<D><XML>x</XML><DATA></DATA></D>");
  EXPECT_EQ(ExportXml(cell, 1, 62, utils::kDoesNotFit).substr(0, 25), "<D><XML>x</XML><DATA>eHh4");
}

struct EmptyFactory : TypV2InstanceCreatorUnix {
  TypV2Utils* newTypV2Utils() override { return throws ? throw std::bad_alloc() : nullptr; }
  bool throws = false;
};

TEST(ExportXml, LackOfMemoryIsNotForgotten) {
  EmptyFactory empty;
  for (const bool throws : {false, true}) {
    empty.throws = throws;
    const Cell red = Message();
    ASSERT_EQ(red->addsubblock(NewCell("LAST", &empty).Release()), kOk);
    EXPECT_TRUE(ExportXml(red, 1, 4096, kNoObject).ends_with("<DATA></DATA></PJ>"));
    EXPECT_EQ(red->ExportBlockAsV1Struct(NewStructure().get()), kNoObject);
    Add(red->FindSubBlock("LAST"), "A", "x", "data");
    red->DisplayBlockInfoFull(1, 2);
  }
}

TEST(ExportV1, TextsAndNamesOfAttachments) {
  const auto v1 = NewStructure();
  const std::string zero_inside = "<N>YQBiLnBkZg==</N>", zero_first = "<N>AGE=</N>";
  const std::string too_long = "<N>" + std::string(256, 'A') + "</N>";
  Cell red = Message();
  Add(red.get(), "PJ", "<AT><N>YS5wZGY=</N></AT>", "1");
  Add(red.get(), "PJ", too_long, "2");
  Add(red.get(), "PJ", zero_inside, "3");
  Add(red.get(), "PJ", zero_first, "4");
  Add(red.get(), "PJ", "<N>a.pdf</N>", "not Base64");
  Add(red.get(), "TEXT", "", "never reached");
  EXPECT_EQ(red->ExportBlockAsV1Struct(v1.get()), block::kBase64);
  std::string names;
  for (unsigned long long i = 0; i < v1->attachment_count; ++i)
    names +=
        (v1->GetTypePJ(i) == kTypeXmlFork ? "+" : " ") + std::string(v1->attachment_names[i]).erase(0, 6);
  EXPECT_EQ(names,
            "+555555.xml+555556.xml+555557.xml u2.data u.data+555558.xml +555559.xml u2.data"
            "+555560.xml +555561.xml 555562.dat+555563.xml");
  EXPECT_EQ(v1->GetTypePJ(v1->attachment_count), 0);
  ASSERT_EQ(v1->text_count, 1u);
  EXPECT_EQ(std::memcmp(v1->texts[0], "hello\n\0hidden", 14), 0);
}

TEST(ExportV1, TheHundredAndFirst) {
  const auto v1 = NewStructure();
  const Cell red = NewCell("RED");
  for (int i = 0; i < 202; ++i) Add(red.get(), i % 2 == 0 ? "PJ" : "TEXT", "", std::to_string(i / 2));
  ASSERT_EQ(red->ExportBlockAsV1Struct(v1.get()), kOk);
  EXPECT_EQ(v1->attachment_count, 100u);
  ASSERT_EQ(v1->text_count, 100u);
  EXPECT_STREQ(reinterpret_cast<char*>(v1->texts[99]), "99");
}

}  // namespace
}  // namespace kestrune::testing
