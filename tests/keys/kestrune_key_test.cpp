#include "keys/kestrune_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

#include "tests/keys/keys_folder.h"

namespace kestrune::testing {
namespace {

constexpr std::uint64_t kFar = ~std::uint64_t{0};
constexpr std::uint64_t kFirst = 16 * kPadChunk;  // lengths of the pads in these tests
constexpr std::uint64_t kSecond = 4 * kPadChunk;

struct KestruneKeyTest : ::testing::Test {
  KeysFolder folder;
  ProbedCreator creator;
  TypV2KestruneKey key;
  Bytes run;
  unsigned long long offset = 0;
  unsigned char password[32] = {};

  ~KestruneKeyTest() override { key.Kill(); }

  Result Open(unsigned long long mode) {
    return key.InitCreate(&creator, "cle", 1, folder.path().c_str(), folder.personal.hex_password.c_str(),
                          mode);
  }
  Bytes FileNow() const { return ReadFile(folder.File(folder.personal_name)); }
  void Put(const Bytes& file) const { WriteFile(folder.File(folder.personal_name), file); }
  bool GotPassword(std::uint64_t at) const {
    return std::equal(password, password + 32, folder.personal.second_pad.begin() + static_cast<long>(at));
  }
};

// The header's numbers that a hand-out may change; all else in the file stays.
Bytes WithNumbers(Bytes file, std::initializer_list<std::pair<std::size_t, std::uint64_t>> numbers) {
  for (const auto& [at, value] : numbers) SetNumberAt(file, at, value);
  return file;
}

TEST_F(KestruneKeyTest, HandsOutRunsOnceAndRecordsThem) {
  struct Row {
    std::uint64_t offset, length, next, cycles;
  };
  for (const Row& row : {
           Row{0, 1, 1, 0},
           Row{4096, 8192, 12288, 0},
           Row{5, 4091, 4096, 0},
           Row{5000, 9000, 14000, 0},
           Row{kFirst - 100, 300, 200, 1},
           Row{kFirst - 4096, 4096, 0, 1},
           Row{7, 3 * kFirst + 5, 12, 3},
           Row{kFirst - 5000, 10, kFirst - 4990, 1},  // counted by the whole chunks that belong to it
           Row{10, 0, 10, 0},
       }) {
    folder.personal.first_offset = row.offset;
    folder.Write();
    const Bytes before = FileNow();
    ASSERT_EQ(Open(1), kOk);
    ASSERT_EQ(Take(key, row.length, &run, &offset), kOk);
    EXPECT_EQ(offset, row.offset);
    EXPECT_EQ(run, RunOf(folder.personal.first_pad, row.offset, row.length)) << row.offset;
    EXPECT_EQ(FileNow(), WithNumbers(before, {{kFirstOffsetAt, row.next},
                                              {kCyclesAt, row.cycles},
                                              {kUsesAt, 1},
                                              {kUsedBytesAt, row.length}}));
    EXPECT_FALSE(IsUnlocked(folder.File(folder.personal_name)));
    key.Kill();
    EXPECT_TRUE(IsUnlocked(folder.File(folder.personal_name)));
  }
}

TEST_F(KestruneKeyTest, HandsOutOneTimePasswordsUpToTheEndOfThePad) {
  folder.personal.second_offset = kSecond - 64;
  folder.Write();
  const Bytes before = FileNow();
  ASSERT_EQ(Open(1), kOk);
  for (const std::uint64_t at : {kSecond - 64, kSecond - 32, std::uint64_t{0}}) {
    ASSERT_EQ(key.GetOTPassword(password, &offset), kOk);
    EXPECT_EQ(offset, at);
    EXPECT_TRUE(GotPassword(at)) << at;
  }
  EXPECT_EQ(FileNow(), WithNumbers(before, {{kSecondOffsetAt, 32}}));
  for (const std::uint64_t at : {std::uint64_t{4080}, kSecond - 31, kSecond, kFar - 15, kFar - 4095}) {
    ASSERT_EQ(key.SetOffsetOTPassword(at), kOk);
    EXPECT_EQ(key.GetOTPassword(password, &offset), key::kOffset) << at;
    EXPECT_EQ(offset, at);
    EXPECT_TRUE(GotPassword(0));
  }
  EXPECT_EQ(NumberAt(FileNow(), kSecondOffsetAt), 32u);
}

TEST_F(KestruneKeyTest, ReadOnlyMovesOnInMemoryAlone) {
  const Bytes before = FileNow();
  ASSERT_EQ(Open(0), kOk);
  for (const std::uint64_t at : {0, 32}) {
    ASSERT_EQ(key.GetOTPassword(password, &offset), kOk);
    EXPECT_TRUE(GotPassword(at));
  }
  EXPECT_EQ(key.SetOffsetOTPChiffrement(kFirst - 7), key::kOffset);
  ASSERT_EQ(key.SetOffsetOTPChiffrement(kFirst - 8), kOk);
  ASSERT_EQ(Take(key, 20, &run, &offset), kOk);
  EXPECT_EQ(run, RunOf(folder.personal.first_pad, kFirst - 8, 20));
  EXPECT_EQ(FileNow(), before);
}

TEST_F(KestruneKeyTest, RefusesPasswordsAndModes) {
  struct Row {
    std::string password;
    unsigned long long mode;
    Result want;
  };
  const std::string right = folder.personal.hex_password;
  for (const Row& row :
       {Row{HexPassword("autre"), 1, key::kCheckFailed}, Row{"", 1, key::kCheckFailed},
        Row{right.substr(0, 62), 1, key::kCheckFailed}, Row{right + "0123456789ABCDEF", 1, kOk},
        Row{right + "0123456789ABCDEF0", 1, key::kCheckFailed}, Row{right, 3, key::kMode},
        Row{right, kFar, key::kMode}, Row{right, 2, file::kRead}}) {
    TypV2KestruneKey other;
    EXPECT_EQ(other.InitCreate(&creator, folder.personal_name.c_str(), 0, folder.path().c_str(),
                               row.password.c_str(), row.mode),
              row.want);
    EXPECT_EQ(IsUnlocked(folder.File(folder.personal_name)), row.want != kOk);
    EXPECT_EQ(other.GetOTPassword(password, &offset), row.want == kOk ? kOk : kNoObject);
    other.Kill();
  }
  EXPECT_EQ(key.InitCreate(&creator, "aucune", 1, folder.path().c_str(), right.c_str(), 0), file::kOpen);
  EXPECT_EQ(
      key.InitCreate(&creator, std::string(3000, 'n').c_str(), 1, folder.path().c_str(), right.c_str(), 0),
      file::kBadName);
}

TEST_F(KestruneKeyTest, DigestCovers16384BytesOfTheIvArea) {
  folder.personal.first_pad = PadOf(1100 * kPadChunk, 1);
  const Bytes file = folder.personal.File();
  for (const auto& [at, want] : {std::pair{512 + 16383, key::kCheckFailed},
                                 {512 + 16384 + 16, kOk},
                                 {13, key::kCheckFailed},
                                 {111, key::kCheckFailed},
                                 {113, kOk}}) {
    Bytes damaged = file;
    damaged[static_cast<std::size_t>(at)] ^= 1;
    Put(damaged);
    EXPECT_EQ(Open(0), want) << at;
  }
}

// Headers that lie under a right digest: every number is looked at where it is used.
TEST_F(KestruneKeyTest, BelievesNoHeader) {
  struct Row {
    std::size_t at;
    std::uint64_t value;
    Result open, take, password;
  };
  const Bytes file = FileNow();
  for (const Row& row : {
           Row{kFirstPadBytesAt, 0, kOk, key::kOffset, kOk},
           Row{kSecondPadBytesAt, 0, kOk, kOk, key::kOffset},
           Row{kFirstPadBytesAt, kFar, kOk, kOk, key::kOffset},  // the sum wraps
           Row{kFirstPadBytesAt, kFar - kSecond + 1, kOk, kOk, key::kOffset},
           Row{kSecondPadBytesAt, kFar - kFirst + 1, kOk, kOk, kOk},  // still within the area
           Row{kFirstPadBytesAt, kFar / 2, file::kRead, kNoObject,
               kNoObject},                           // the IV area exceeds the file
           Row{kFirstPadBytesAt, 1, kOk, kOk, kOk},  // no multiple of a chunk: handed out as it is
           Row{kFirstOffsetAt, kFirst, kOk, key::kOffset, kOk},
           Row{kFirstOffsetAt, kFar, kOk, key::kOffset, kOk},
           Row{kSecondOffsetAt, kFar - 31, kOk, kOk, key::kOffset},
       }) {
    Bytes damaged = file;
    SetNumberAt(damaged, row.at, row.value);
    Reseal(damaged, folder.personal.hex_password);
    Put(damaged);
    EXPECT_EQ(Open(0), row.open) << row.at << ' ' << row.value;
    const Result take = Take(key, 5000, &run, &offset);
    EXPECT_EQ(take, row.take) << row.at << ' ' << row.value;
    EXPECT_EQ(run.empty(), take != kOk);
    EXPECT_EQ(key.GetOTPassword(password, &offset), row.password) << row.at << ' ' << row.value;
  }
}

TEST_F(KestruneKeyTest, MakesUpNoByteThatTheFileDoesNotHold) {
  const Bytes file = FileNow();
  const std::size_t pads = file.size() - kFirst - kSecond;
  struct Row {
    std::size_t bytes;
    Result open, take, password;
  };
  for (const Row& row :
       {Row{0, file::kRead, kNoObject, kNoObject}, Row{511, file::kRead, kNoObject, kNoObject},
        Row{pads - 1, file::kRead, kNoObject, kNoObject}, Row{pads, kOk, file::kRead, file::kRead},
        Row{pads + 8191, kOk, file::kRead, file::kRead}, Row{pads + 8192, kOk, kOk, file::kRead},
        Row{pads + kFirst + 4095, kOk, kOk, file::kRead}, Row{pads + kFirst + 4096, kOk, kOk, kOk}}) {
    Put(Bytes(file.begin(), file.begin() + static_cast<long>(row.bytes)));
    EXPECT_EQ(Open(1), row.open) << row.bytes;
    const Bytes before = FileNow();
    EXPECT_EQ(Take(key, 5000, &run, &offset), row.take) << row.bytes;
    EXPECT_EQ(FileNow() == before, row.take != kOk);
    EXPECT_EQ(key.GetOTPassword(password, &offset), row.password) << row.bytes;
  }
  EXPECT_EQ(Take(key, kFar, &run, &offset), kNoObject);
  EXPECT_EQ(Take(key, std::size_t{1} << 62, &run, &offset), kNoObject);
}

TEST_F(KestruneKeyTest, HandsNothingOutWithoutADurableHeader) {
  const Bytes before = FileNow();
  ASSERT_EQ(Open(1), kOk);
  creator.writes_fail = true;
  EXPECT_EQ(Take(key, 100, &run, &offset), file::kWrite);
  EXPECT_TRUE(run.empty());
  EXPECT_EQ(key.GetOTPassword(password, &offset), file::kWrite);
  EXPECT_EQ(std::count(password, password + 32, 0), 32);
  EXPECT_EQ(FileNow(), before);
  creator.writes_fail = false;
  ASSERT_EQ(Take(key, 100, &run, &offset), kOk);
  EXPECT_EQ(offset, 0u);
  EXPECT_EQ(NumberAt(FileNow(), kUsesAt), 1u);
}

TEST_F(KestruneKeyTest, AnswersWithNothingOpened) {
  creator.has_files = false;
  EXPECT_EQ(Open(1), kOk);
  Bytes chunk(kPadChunk);
  for (const Result rc :
       {key.SetOffsetOTPChiffrement(0), key.SetOffsetOTPassword(0), key.LoadHeader(), key.WriteHeader(),
        key.LoadAndDecryptIV(), key.DecryptageIV(), key.DecryptageAESChunk(chunk.data(), 0, 1),
        key.GetOTPassword(password, &offset), Take(key, 1, &run, &offset)}) {
    EXPECT_EQ(rc, kNoObject);
  }
}

TEST_F(KestruneKeyTest, ReadsHeaderIvAreaAndOneChunkForAPassword) {
  folder.personal.first_pad.resize(std::size_t{64} << 20);
  folder.Write();
  ASSERT_EQ(Open(0), kOk);
  ASSERT_EQ(key.GetOTPassword(password, &offset), kOk);
  EXPECT_TRUE(GotPassword(0));
  EXPECT_LE(creator.bytes_read, 512 + IvAreaBytes(std::size_t{64} << 20, kSecond) + 4096);
}

TEST_F(KestruneKeyTest, KeepsItsKeyInNoFreedObject) {
  alignas(TypV2KestruneKey) unsigned char room[sizeof(TypV2KestruneKey)] = {};
  const Bytes tail = FromHex(folder.personal.hex_password.substr(2));
  const auto held = [&] {
    return std::search(room, std::end(room), tail.begin(), tail.end()) != std::end(room);
  };
  auto* const placed = ::new (static_cast<void*>(room)) TypV2KestruneKey;
  ASSERT_EQ(
      placed->InitCreate(&creator, "cle", 1, folder.path().c_str(), folder.personal.hex_password.c_str(), 0),
      kOk);
  placed->Kill();
  EXPECT_TRUE(held());  // Kill overwrites two single bytes, no more
  placed->~TypV2KestruneKey();
  EXPECT_FALSE(held());
}

}  // namespace
}  // namespace kestrune::testing
