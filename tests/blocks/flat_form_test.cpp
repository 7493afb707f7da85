#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/process.h"
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

// A record with a length in its header replaced (at 8: XML; at 16: data or sub-blocks).
std::string WithLength(std::string record, std::size_t at, unsigned long long length) {
  for (std::size_t i = 0; i < 8; ++i) record[at + i] = static_cast<char>(length >> (56 - 8 * i));
  return record;
}

TEST(FlatForm, BentRecordsUnderARightTrailer) {
  const std::string leaf = Record("A", 0, "xml", "123");
  const std::string super = Record("S", 1, "xml", leaf);
  std::string odd_name = leaf;
  odd_name[2] = 77;
  const struct {
    std::string records;
    Result want;
    const char* left = nullptr;  // what the tree holds afterwards
  } table[] = {
      {"", block::kTooShort},
      {WithLength(leaf, 8, 1ULL << 63), block::kForkPastEnd},
      {WithLength(leaf, 16, 4), block::kForkPastEnd},
      {WithLength(leaf, 16, 2), block::kTooShort},
      {WithLength(leaf, 16, ~0ULL - 2), block::kForkPastEnd},   // wraps with the XML length
      {WithLength(leaf, 16, ~0ULL - 26), block::kForkPastEnd},  // and with the header
      {WithLength(super, 16, leaf.size() + 1), block::kForkPastEnd, "*S<>()27 "},
      {WithLength(super, 16, leaf.size() - 1), block::kForkPastEnd, "*S<xml>()27 "},
      {Record("S", 1), block::kTooShort, "*S<>()24 "},
      {Record("S", 1, "", leaf + WithLength(leaf, 16, 9)), block::kForkPastEnd, "*S<>()24 "},
      {Record("S", 1, "", leaf) + leaf + "!", block::kTooShort, "*S<>(-A<xml>313233()30 )54 "},
      {Record("A", 2, "xml", "1"), block::kBadSuperFlag},
      {Record("A", 7, "xml"), kOk, "-A<xml>()27 "},
      {odd_name, kOk, "-?<xml>313233()30 "},
      {Record("A") + leaf, kOk, "-A<>()24 -A<xml>313233()30 "},
  };
  for (const auto& row : table) {
    const Cell cell = NewCell();
    const auto index = &row - table;
    EXPECT_EQ(Load(Sealed(row.records), cell), row.want) << index;
    if (row.left != nullptr) {
      EXPECT_EQ(Describe(cell.get()), row.left) << index;
    }
  }
  Flatten(Loaded(Sealed(super + leaf)), block::kNoRoom);
  Flatten(Loaded(Sealed(Record("S", 1, "", Record("A", 0, "", "data without xml")))), block::kNoInput);
}

}  // namespace
}  // namespace kestrune::testing
