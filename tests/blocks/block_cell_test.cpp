#include "blocks/block_cell.h"

#include <gtest/gtest.h>
#include <string_view>

#include <cstdlib>

#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

const unsigned char* const kData = reinterpret_cast<const unsigned char*>("data");

TEST(BlockCell, NamesAndForks) {
  const Cell cell = NewCell();
  EXPECT_EQ(cell->SetData("ABCDE", "x", kData, 4), block::kBadName);
  EXPECT_EQ(cell->SetBlockName("ABCDEF"), block::kNameTooLong);
  EXPECT_EQ(cell->SetBlockName("ABCDE"), kOk);
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

std::string Displayed(const Cell& cell, long level) {
  ::testing::internal::CaptureStdout();
  cell->DisplayBlockInfoFull(0, level);
  return ::testing::internal::GetCapturedStdout();
}

TEST(BlockCell, Display) {
  const std::string tab(7, ' '), tabs(21, ' '), no_xml(15, ' ');
  const Cell red = NewCell("RED");
  Add(red.get(), "ROUT", "<M/>");
  Add(red.get(), "TEXT", "<S/>", "hi");
  const std::string root = "\n*[RED" + no_xml + "] 82\n";
  const std::string rout = tab + " [ROUT (xmllen =4)] 28\n";
  const std::string text = tab + " [TEXT (xmllen =4) (datalen=2)] 30\n";
  EXPECT_EQ(Displayed(red, 0), root + rout + text + "\n");
  const std::string full = root + no_xml + rout + "\n" + tabs + "<M/>\n\n" + text + "\n" + tabs + "<S/>\n\n";
  EXPECT_EQ(Displayed(red, 1), full + "\n");
  const std::string dump = Displayed(red, 2);
  EXPECT_EQ(dump.substr(0, full.size() + 36), full + tabs + "dump 2 Byte(s)\n");
  // Next blocks of a root, a name from outside that fills its field, a zero byte in the XML.
  std::string odd = Record("ABCDE", 0, std::string_view("x\0y", 3));
  odd[2] = 77;
  EXPECT_EQ(Displayed(Loaded(Sealed(odd + Record("B"))), 1),
            "\n [ABCDE (xmllen =3)] 27\n\n" + tab + tab + "x\n\n\n [B" + no_xml + "] 24\n" + no_xml + "\n\n");
}

}  // namespace
}  // namespace kestrune::testing
