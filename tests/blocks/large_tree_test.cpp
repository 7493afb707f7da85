// A million cells, side by side and one in the other, on a small stack.
#include <gtest/gtest.h>
#include <malloc.h>

#include "mail/block_visit.h"
#include "tests/support/small_stack.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kCells = 1'000'000;
constexpr std::size_t kMostBytesPerCell = 200;

std::size_t AllocatedBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void UseTree(const std::string& flat) {
  const std::size_t before = AllocatedBytes();
  const Cell root = Loaded(flat);
  EXPECT_LE(AllocatedBytes() - before, flat.size() + kCells * kMostBytesPerCell);
  EXPECT_EQ(root->GetDataLen(), flat.size() - 64);
  EXPECT_TRUE(Flatten(root) == flat);
  CBuffer out;
  EXPECT_TRUE(out.Allocate(40 * kCells));
  long long position = 0;
  EXPECT_EQ(root->ExportBlockAsXML(out.text(), &position, static_cast<long long>(out.size()), 1), kOk);
  EXPECT_GE(position, static_cast<long long>(7 * kCells));
  std::size_t visited = 0;
  mail::VisitBlocks(root.get(), [&](const TypV2BlockCell&) { return ++visited, kOk; });
  EXPECT_EQ(visited, kCells);
}

// Behind the first cell, the last one, one in the middle, before all; and each becomes a sub-block but once.
TEST(LargeTree, Appending) {
  const Cell root = NewCell("ROOT"), chain = NewCell("C");
  TypV2BlockCell* const middle = Add(root.get(), "A");
  TypV2BlockCell* last = NewCell("B").Release();
  TypV2BlockCell* first = last;
  for (std::size_t i = 0; i < kCells / 8; ++i) {
    chain->addnextblock(NewCell("C").Release());
    middle->addnextblock(NewCell("A").Release());
    TypV2BlockCell* const added = NewCell("B").Release();
    last->addnextblock(added);
    last = added;
    TypV2BlockCell* const front = NewCell("B").Release();
    front->addnextblock(first);
    first = front;
  }
  root->addsubblock(first);
  EXPECT_EQ(root->GetDataLen() + chain->GetFlatDataLen(), 24 * (4 * (kCells / 8) + 4));
}

TEST(LargeTree, Siblings) {
  std::string chain;
  for (std::size_t i = 1; i < kCells; ++i) chain += Record("A", 0, "x", "7");
  OnSmallStack([&] { UseTree(Sealed(Record("S", 1, "", chain))); });
}

TEST(LargeTree, Nested) {
  std::string tree;
  for (std::size_t below = kCells - 1; below > 0; --below) {
    tree += Record("S", 1);
    for (std::size_t i = 0; i < 8; ++i) tree[tree.size() - 1 - i] = static_cast<char>(24 * below >> 8 * i);
  }
  OnSmallStack([&] { UseTree(Sealed(tree + Record("A"))); });
}

}  // namespace
}  // namespace kestrune::testing
