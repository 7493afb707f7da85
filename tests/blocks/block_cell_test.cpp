#include "blocks/block_cell.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

#include "blocks/v1_structure.h"
#include "tests/support/bytes.h"
#include "tests/support/rows.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

const unsigned char* const kData = reinterpret_cast<const unsigned char*>("data");

TEST(BlockCell, NamesAndForks) {
  const Cell cell = NewCell();
  EXPECT_EQ(cell->SetData("ABCDE", "x", kData, 4), block::kBadName);
  EXPECT_EQ(cell->SetBlockName("ABCDEF"), block::kNameTooLong);
  EXPECT_EQ(cell->SetBlockName("ABCDE"), kOk);
  EXPECT_EQ(Describe(cell.get()), "-ABCDE<>()24 ");
  ASSERT_EQ(cell->SetData("AB", "first", kData, 4), kOk);  // nothing is left of the longer name
  EXPECT_EQ(Flatten(cell).substr(2, 6), std::string("\2AB\0\0\0", 6));
  char* text = nullptr;
  EXPECT_EQ(cell->GetTextFromData(&text), kOk);
  EXPECT_STREQ(text, "data");
  std::free(text);
  ASSERT_EQ(cell->SetData("A", "second", cell->GetDataForkPtr() + 1, 2), kOk);  // its own bytes
  ASSERT_EQ(cell->SetData("B", nullptr, nullptr, 9), kOk);
  EXPECT_EQ(Describe(cell.get()), "-B<second>6174()32 ");
  ASSERT_EQ(cell->SetData("B", "", kData, 0), kOk);
  EXPECT_EQ(Describe(cell.get()), "-B<>()24 ");
  TypV2InstanceCreatorUnix creator;
  EXPECT_EQ(cell->InitCreate(&creator), kOk);  // nothing is left either
  EXPECT_EQ(Describe(cell.get()), "-<>()24 ");
}

TEST(BlockCell, LeafOrSuperBlock) {
  const Cell leaf = NewCell();
  ASSERT_EQ(leaf->SetData("A", nullptr, kData, 4), kOk);
  EXPECT_EQ(leaf->AddSubBlockWithData("B", nullptr, nullptr, 0, nullptr), block::kLeafAndSuper);
  const Cell super = NewCell("S");
  Add(super.get(), "A", "first");
  Add(super.get(), "A", "second");
  Add(super.get(), "AA");
  EXPECT_EQ(super->AddSubBlockWithData("ABCDE", nullptr, nullptr, 0, nullptr), block::kBadName);
  EXPECT_EQ(super->SetData("X", "x", kData, 4), block::kLeafAndSuper);
  EXPECT_EQ(Describe(super.get()), "-S<>(-A<first>()29 -A<second>()30 -AA<>()24 )107 ");  // flag: kept so
  EXPECT_EQ(super->FindSubBlock("A"), super->GetSubBlock());
  for (const char* other : {"a", "", "AAA"}) EXPECT_EQ(super->FindSubBlock(other), nullptr);
}

TEST(BlockCell, OutlivesItsFactory) {
  auto* const first = new (std::nothrow) TypV2InstanceCreatorUnix;  // on the heap, for the sanitizers
  TypV2InstanceCreatorUnix second;
  const Cell root = NewCell("", first);
  ASSERT_EQ(Load(Sealed(Record("S", 1, "", Record("S", 1, "", Record("A")))), root), kOk);
  root->MoveToCreator(&second);
  DeleteObject(first);
  EXPECT_EQ(Flatten(root).size(), 72u + 64);
}

// The trees that the data file names.
std::map<std::string, Cell> Trees() {
  std::map<std::string, Cell> trees;
  for (const auto& [name, flat] : Rows<2>("blocks.txt", "trees"))
    trees[name] = Loaded(Sealed(ToText(FromHex(flat))));
  return trees;
}

TEST(BlockCell, IsDisplayed) {
  const auto trees = Trees();
  for (const auto& [tree, level, text] : Rows<3>("blocks.txt", "display")) {
    ::testing::internal::CaptureStdout();
    trees.at(tree)->DisplayBlockInfoFull(0, Number<long>(level));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), text);
  }
}

TEST(BlockCell, IsExportedAsXml) {
  const auto trees = Trees();
  for (const auto& [tree, flags, room, code, text] : Rows<5>("blocks.txt", "exports as xml")) {
    CBuffer out;
    EXPECT_TRUE(out.Allocate(Number<std::size_t>(room)));  // exact, for the sanitizers
    long long position = 0;
    EXPECT_EQ(
        trees.at(tree)->ExportBlockAsXML(out.text(), &position, Number<long long>(room), Number<long>(flags)),
        Number(code));
    EXPECT_EQ(std::string(out.text(), static_cast<std::size_t>(position)), text);
  }
  EXPECT_EQ(Describe(trees.at("RED")->FindSubBlock("TEXT")).substr(0, 15),
            "-TEXT<<S>\r</S>>");  // changed in the cell
}

Owned<TypV1SimpleStruc> NewStructure() {
  Owned<TypV1SimpleStruc> structure(TypV2InstanceCreatorUnix().newTypV1SimpleStruc());
  EXPECT_EQ(structure.Init(), kOk);
  return structure;
}

TEST(ExportV1, TextsAndNamesOfAttachments) {
  const auto v1 = NewStructure();
  const Cell red = std::move(Trees().at("RED"));
  // A name, too long a one, with a zero in it, with a zero before it, and not in Base64: the end.
  for (const std::string& name : {std::string("YS5wZGY="), std::string(256, 'A'), std::string("YQBiLnBkZg=="),
                                  std::string("AGE="), std::string("a.pdf"), std::string("never reached")})
    Add(red.get(), "PJ", "<AT><N>" + name + "</N></AT>", "12");
  EXPECT_EQ(red->ExportBlockAsV1Struct(v1.get()), block::kBase64);
  std::string names, lengths;
  for (unsigned long long i = 0; i < v1->attachment_count; ++i) {
    names +=
        (v1->GetTypePJ(i) == kTypeXmlFork ? "+" : " ") + std::string(v1->attachment_names[i]).erase(0, 6);
    lengths += " " + std::to_string(v1->attachment_lengths[i]);
  }
  EXPECT_EQ(lengths, " 8 8 6 3 6 24 2 272 2 28 2 20 2 21");
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
  EXPECT_EQ(red->ExportBlockAsV1Struct(nullptr), block::kNoStructure);
  for (int i = 0; i < 202; ++i) Add(red.get(), i % 2 == 0 ? "PJ" : "TEXT", "", std::to_string(i / 2));
  ASSERT_EQ(red->ExportBlockAsV1Struct(v1.get()), kOk);
  ASSERT_EQ(v1->attachment_count, 100u);
  EXPECT_EQ(std::memcmp(v1->attachment_data[99], "99", 2), 0);
  ASSERT_EQ(v1->text_count, 100u);
  EXPECT_STREQ(reinterpret_cast<char*>(v1->texts[99]), "99");
}

}  // namespace
}  // namespace kestrune::testing
