// A million cells, side by side and one in the other, on a small stack.
#include <gtest/gtest.h>

#include <utility>

#include "mail/block_visit.h"
#include "tests/support/small_stack.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kCells = 1'000'000;
static_assert(sizeof(TypV2BlockCell) <= 104);  // and with it what a tree of small cells takes

void UseTree(const std::string& flat) {
  const Cell root = Loaded(flat);
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

// Again and again behind the first of a chain, one in the middle below a parent, the last, and before all.
TEST(LargeTree, Appending) {
  constexpr std::size_t kTimes = kCells / 8;
  const Cell root = NewCell(), chain = NewCell();
  TypV2BlockCell* const middle = Add(root.get(), "A");
  TypV2BlockCell* front = NewCell().Release();
  TypV2BlockCell* last = front;
  for (std::size_t i = 0; i < kTimes; ++i) {
    for (TypV2BlockCell* cell : {chain.get(), middle, last}) cell->addnextblock(NewCell().Release());
    last = last->GetNextBlock();
    TypV2BlockCell* const behind = std::exchange(front, NewCell().Release());
    front->addnextblock(behind);
  }
  root->addsubblock(front);
  EXPECT_EQ(root->GetDataLen() + chain->GetFlatDataLen(), 24 * (4 * kTimes + 4));
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
