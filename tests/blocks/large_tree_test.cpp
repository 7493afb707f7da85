// A million cells, side by side and one in the other, on a small stack.
#include <gtest/gtest.h>
#include <malloc.h>

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
