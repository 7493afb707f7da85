#include "keys/master_key.h"

#include <gtest/gtest.h>

#include "tests/keys/keys_folder.h"

namespace kestrune::testing {
namespace {

constexpr std::uint64_t kPad = 16 * kPadChunk;

struct MasterKeyTest : KeyTest<TypV2MasterKey> {
  std::string path = File(master_name);

  Result Open(unsigned long long mode, const char* name = nullptr) {
    return key.InitCreate(&creator, KeysFolder::path().c_str(), name, mode);
  }
};

TEST_F(MasterKeyTest, HandsOutRunsAndRecordsThem) {
  struct Row {
    std::uint64_t offset, length, next, cycles;
  };
  for (const Row& row : {Row{kPad - 10, 30, 20, 1}, Row{kPad - 10, 10, 0, 1}, Row{3, 2 * kPad + 1, 4, 2},
                         Row{kPad, 7, 7, 1}, Row{9, 0, 9, 0}}) {
    master.offset = row.offset;
    Write();
    Bytes want = ReadFile(path);
    SetNumberAt(want, kFirstOffsetAt, row.next);
    SetNumberAt(want, kCyclesAt, row.cycles);
    SetNumberAt(want, kUsedBytesAt, row.length);
    ASSERT_EQ(Open(1), kOk);
    ASSERT_EQ(Take(row.length), kOk);
    EXPECT_EQ(offset, row.offset);
    EXPECT_EQ(run, RunOf(master.pad, row.offset, row.length)) << row.offset;
    EXPECT_EQ(ReadFile(path), want) << row.offset;
    EXPECT_FALSE(IsUnlocked(path));
    key.Kill();
  }
}

TEST_F(MasterKeyTest, HandsNothingToAChild) {
  ASSERT_EQ(Open(1), kOk);
  EXPECT_TRUE(InChild([&] { return Take(100) == file::kNotOpen && run.empty(); }));
  EXPECT_EQ(Take(100), kOk);
  EXPECT_EQ(run, RunOf(master.pad, 0, 100));
}

// Kept so: a position behind the pad is read there, and zeros stand in for what the file does not hold. Only the
// last read counts, and the header where it is written.
TEST_F(MasterKeyTest, ChecksItsReadsWeakly) {
  Bytes file = ReadFile(path);
  file.resize(kMasterPadAt + kPad + 100, 'b');
  WriteFile(path, file);
  ASSERT_EQ(Open(0, master_name.c_str()), kOk);
  ASSERT_EQ(key.SetOffsetOTPChiffrement(kPad + 1), kOk);
  ASSERT_EQ(Take(99), kOk);
  EXPECT_EQ(run, Bytes(99, 'b'));
  ASSERT_EQ(Take(5), kOk);
  EXPECT_EQ(offset, 0u);
  ASSERT_EQ(key.SetOffsetOTPChiffrement(~0ull), kOk);
  EXPECT_NE(Take(5000000), kOk);    // not that many bytes, wherever they are looked for
  EXPECT_EQ(run.size(), 5000000u);  // handed out all the same
  EXPECT_EQ(ReadFile(path), file);

  file.resize(kMasterPadAt + 10);
  WriteFile(path, file);
  for (const unsigned long long mode : {0U, 1U}) {
    ASSERT_EQ(Open(mode), kOk);
    EXPECT_EQ(Take(20), mode == 0 ? file::kRead : kOk);
    Bytes want = RunOf(master.pad, 0, 10);
    want.resize(20);
    EXPECT_EQ(run, want);
  }
}

TEST_F(MasterKeyTest, HandsNothingOut) {
  Bytes file = ReadFile(path);
  ASSERT_EQ(Open(1), kOk);
  creator.writes_fail = true;
  EXPECT_EQ(Take(20), file::kWrite);
  EXPECT_TRUE(run.empty());
  EXPECT_EQ(Take(~0ull), kNoObject);
  EXPECT_EQ(ReadFile(path), file);
  SetNumberAt(file, kFirstPadBytesAt, 0);
  WriteFile(path, file);
  ASSERT_EQ(Open(1), kOk);
  EXPECT_EQ(Take(20), key::kOffset);

  EXPECT_EQ(Open(3), key::kMode);
  EXPECT_EQ(Open(3, "Master.299"), file::kMissing);
  EXPECT_EQ(Open(0, std::string(300, 'n').c_str()), file::kBadName);
  WriteFile(path, Bytes(511));
  EXPECT_EQ(Open(1), file::kRead);
  EXPECT_TRUE(IsUnlocked(path));
  creator.has_files = false;
  EXPECT_EQ(Open(1), kOk);
  for (const Result rc : {key.LoadHeader(), key.WriteHeader(), key.SetOffsetOTPChiffrement(0), Take(1)}) {
    EXPECT_EQ(rc, kNoObject);
  }
}

}  // namespace
}  // namespace kestrune::testing
