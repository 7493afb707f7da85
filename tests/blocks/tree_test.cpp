// The flat form of trees, and trees that are put together and taken apart in every way.
#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "mail/block_visit.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"
#include "tests/support/small_stack.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

std::string Example(const std::string& name) {
  return ToText(FromHex(ToText(ReadFile(DataPath("flat_" + name + ".hex")))));
}

TEST(FlatForm, ExamplesByteForByte) {
  const Cell leaf = NewCell();
  ASSERT_EQ(leaf->SetData("TEXT", "ab", reinterpret_cast<const unsigned char*>("xyz"), 3), kOk);
  EXPECT_EQ(Flatten(leaf), Example("leaf"));
  for (const char* name : {"leaf", "message", "nested"}) {
    const std::string flat = Example(name);
    EXPECT_EQ(Flatten(Loaded(flat)), flat) << name;
    const std::string digest = RunProgram({"sha512sum"}, flat.substr(0, flat.size() - 64)).out.substr(0, 128);
    EXPECT_EQ(ToText(FromHex(digest)), flat.substr(flat.size() - 64)) << name;
  }
  EXPECT_EQ(Describe(Loaded(Example("nested"))->GetSubBlock()->GetSubBlock()),
            "*A<>(-B<x>" + std::string(80, 'f') + "()65 -<>()24 )114 -A<<second/>>0a()34 ");
  const std::string page = ToText(ReadFile(DataPath("../../docs/flat_block.md")));
  const std::size_t begin = page.find("```\n02 00") + 4;
  EXPECT_EQ(ToText(FromHex(page.substr(begin, page.find("```", begin) - begin))), Example("leaf"));
}

TEST(FlatForm, EveryChangedBitAndTruncationIsRefused) {
  for (std::size_t bit = 0; bit < Example("leaf").size() * 8; ++bit) {
    std::string bent = Example("leaf");
    bent[bit / 8] ^= static_cast<char>(1 << bit % 8);
    EXPECT_EQ(Load(bent, NewCell()), block::kDigestMismatch) << bit;
  }
  for (const char* name : {"leaf", "message", "nested"}) {
    const std::string flat = Example(name);
    for (std::size_t length = 0; length < flat.size(); ++length) {
      const std::string cut = flat.substr(0, length);
      EXPECT_EQ(Load(cut, NewCell()), length < 64 ? block::kTooShort : block::kDigestMismatch) << length;
      if (length >= flat.size() - 64) continue;
      const Result want = length < 24 ? block::kTooShort : block::kForkPastEnd;
      EXPECT_EQ(Load(Sealed(cut), NewCell()), want) << name << length;
    }
  }
}

TEST(FlatForm, BentRecordsUnderARightTrailer) {
  for (auto [hex, code, left] : Rows<3>("blocks.txt", "bent records")) {
    SCOPED_TRACE(hex);
    for (const auto& [mark, part] : Rows<2>("blocks.txt", "parts of records"))
      hex = Replaced(hex, mark, part);
    const Cell cell = NewCell();
    EXPECT_EQ(Load(Sealed(ToText(FromHex(hex))), cell), Number(code));
    if (left == "-") continue;
    EXPECT_EQ(Describe(cell.get()), left);
  }
  const std::string leaf = Record("A", 0, "xml", "123");
  Flatten(Loaded(Sealed(Record("S", 1, "", leaf) + leaf)), block::kNoRoom);
  Flatten(Loaded(Sealed(Record("S", 1, "", Record("A", 0, "", "data without xml")))), block::kNoInput);
}

using Cells = std::vector<TypV2BlockCell*>;

void Collect(TypV2BlockCell* first, bool next_first, Cells* cells) {
  if (first == nullptr) return;
  cells->push_back(first);
  Collect(next_first ? first->GetNextBlock() : first->GetSubBlock(), next_first, cells);
  Collect(next_first ? first->GetSubBlock() : first->GetNextBlock(), next_first, cells);
}

void Append(TypV2BlockCell* cell, bool below, TypV2BlockCell* added) {
  const std::string want = Describe(below ? cell->GetSubBlock() : cell) + Describe(added);
  EXPECT_EQ(below ? cell->addsubblock(added) : cell->addnextblock(added), kOk);
  EXPECT_EQ(Describe(below ? cell->GetSubBlock() : cell), want);
}

void Kill(TypV2BlockCell* cell) {  // and all behind and below it; what is left is an empty leaf
  cell->Kill();
  EXPECT_EQ(cell->SetData("K", "", nullptr, 0), kOk);
}

void Load(TypV2BlockCell* cell) {
  const std::string behind = Describe(cell->GetNextBlock());
  const Bytes flat =
      ToBytes(Record("S", 1, "x", Record("A") + Record("T", 1, "", Record("B"))) + Record("C"));
  unsigned long long position = 0;
  EXPECT_EQ(cell->LoadFromFlatData(flat.data(), &position, flat.size()), kOk);
  EXPECT_EQ(Describe(cell), "*S<x>(-A<>()24 *T<>(-B<>()24 )48 )97 -C<>()24 " + behind);
}

// All that is const, from any cell on. Others may be reading at the same time, so nothing is written.
void ExpectWholeWalks(TypV2BlockCell* root, TypV2BlockCell* from) {
  Cells cells, want, visited;
  Collect(root, false, &cells);
  Collect(from, true, &want);
  std::string before, after, v1;
  for (auto* cell : cells) before.append(reinterpret_cast<const char*>(cell), sizeof *cell);
  mail::VisitBlocks(from, [&](const TypV2BlockCell& cell) {
    visited.push_back(const_cast<TypV2BlockCell*>(&cell));
    return kOk;
  });
  EXPECT_EQ(visited, want);
  Bytes flat(from->GetFlatDataLen());
  unsigned long long position = 0;
  EXPECT_EQ(from->PushDataInPtr(flat.data(), &position, flat.size()), kOk);
  EXPECT_EQ(Describe(Loaded(Sealed(ToText(flat))).get()), Describe(from));
  for (auto* cell : cells) after.append(reinterpret_cast<const char*>(cell), sizeof *cell);
  EXPECT_TRUE(before == after);
}

TEST(TreeLinks, HoldAfterEveryChange) {
  for (unsigned seed = 1; seed <= 300 && !HasFailure(); ++seed) {
    std::mt19937 random(seed);
    const auto any = [&random](TypV2BlockCell* root) {
      Cells cells;
      Collect(root, false, &cells);
      return cells[random() % cells.size()];
    };
    const Cell root = NewCell("ROOT");
    for (int change = 0; change < 20; ++change) {
      TypV2BlockCell* const cell = any(root.get());
      const auto kind = random() % 6;
      const bool leaf = cell->GetDataForkLen() != 0;
      if (kind == 0) Kill(cell);
      if (kind == 1) Load(cell);
      if (kind == 2 && !leaf) Add(cell, "L", "x", std::string(1 + random() % 9, 'd'));
      if (kind >= 3) {
        TypV2BlockCell* const chain = NewCell("F").release();
        for (auto more = random() % 4; more > 0; --more) Append(any(chain), false, NewCell("N").release());
        if (random() % 8 == 0) Kill(any(chain));
        Append(cell, kind != 3 && !leaf, chain);
      }
      ExpectWholeWalks(root.get(), any(root.get()));
    }
  }
}

// ---- A million cells, side by side and one in the other, on a small stack ------------------------------

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
  TypV2BlockCell* front = NewCell().release();
  TypV2BlockCell* last = front;
  for (std::size_t i = 0; i < kTimes; ++i) {
    for (TypV2BlockCell* cell : {chain.get(), middle, last}) cell->addnextblock(NewCell().release());
    last = last->GetNextBlock();
    TypV2BlockCell* const behind = std::exchange(front, NewCell().release());
    front->addnextblock(behind);
  }
  root->addsubblock(front);
  EXPECT_EQ(root->GetDataLen() + chain->GetFlatDataLen(), 24 * (4 * kTimes + 4));
}

TEST(LargeTree, SiblingsAndNested) {
  std::string chain, tree;
  for (std::size_t i = 1; i < kCells; ++i) chain += Record("A", 0, "x", "7");
  OnSmallStack([&] { UseTree(Sealed(Record("S", 1, "", chain))); });
  for (std::size_t below = kCells - 1; below > 0; --below) {
    tree += Record("S", 1);
    for (std::size_t i = 0; i < 8; ++i) tree[tree.size() - 1 - i] = static_cast<char>(24 * below >> 8 * i);
  }
  OnSmallStack([&] { UseTree(Sealed(tree + Record("A"))); });
}

}  // namespace
}  // namespace kestrune::testing
