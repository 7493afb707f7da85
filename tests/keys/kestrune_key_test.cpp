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

struct KestruneKeyTest : KeyTest<TypV2KestruneKey> {
  unsigned char password[32] = {};

  Result Open(unsigned long long mode, const std::string& hex = HexPassword("a_b_c_d")) {
    return key.InitCreate(&creator, "cle", 1, path().c_str(), hex.c_str(), mode);
  }
  std::string file() const { return File(personal_name); }
  Bytes FileNow() const { return ReadFile(file()); }
  bool GotPassword(std::uint64_t at) const {
    return Bytes(password, password + 32) == RunOf(personal.second_pad, at, 32);
  }
};

TEST_F(KestruneKeyTest, HandsOutRunsOnceAndRecordsThem) {
  struct Row {
    std::uint64_t offset, length, next, cycles;
  };
  for (const Row& row : {Row{5000, 9000, 14000, 0}, Row{kFirst - 100, 300, 200, 1},
                         Row{kFirst - 4096, 4096, 0, 1}, Row{7, 3 * kFirst + 5, 12, 3}, Row{10, 0, 10, 0},
                         Row{kFirst - 5000, 10, kFirst - 4990, 1}}) {  // counted by its whole chunks
    personal.first_offset = row.offset;
    Write();
    Bytes want = FileNow();
    for (const unsigned long long mode : {0U, 1U}) {
      ASSERT_EQ(Open(mode), kOk);
      EXPECT_EQ(IsUnlocked(file()), mode == 0);
      ASSERT_EQ(Take(row.length), kOk);
      EXPECT_EQ(offset, row.offset);
      EXPECT_EQ(run, RunOf(personal.first_pad, row.offset, row.length)) << row.offset;
      if (mode == 1) {
        SetNumberAt(want, kFirstOffsetAt, row.next);
        SetNumberAt(want, kCyclesAt, row.cycles);
        SetNumberAt(want, kUsesAt, 1);
        SetNumberAt(want, kUsedBytesAt, row.length);
      }
      EXPECT_EQ(FileNow(), want) << row.offset;
      key.Kill();
      EXPECT_TRUE(IsUnlocked(file()));
    }
  }
}

TEST_F(KestruneKeyTest, HandsOutOneTimePasswordsUpToTheEndOfThePad) {
  personal.second_offset = kSecond - 64;
  Write();
  ASSERT_EQ(Open(1), kOk);
  for (const std::uint64_t at : {kSecond - 64, kSecond - 32, std::uint64_t{0}}) {
    ASSERT_EQ(key.GetOTPassword(password, &offset), kOk);
    EXPECT_EQ(offset, at);
    EXPECT_TRUE(GotPassword(at)) << at;
  }
  for (const std::uint64_t at : {std::uint64_t{4080}, kSecond, kFar - 15, kFar - 4095}) {
    ASSERT_EQ(key.SetOffsetOTPassword(at), kOk);
    EXPECT_EQ(key.GetOTPassword(password, &offset), key::kOffset) << at;
    EXPECT_TRUE(GotPassword(0));
  }
  EXPECT_EQ(NumberAt(FileNow(), kSecondOffsetAt), 32u);
  EXPECT_EQ(key.SetOffsetOTPChiffrement(kFirst - 8), kOk);
  EXPECT_EQ(key.SetOffsetOTPChiffrement(kFirst - 7), key::kOffset);
}

TEST_F(KestruneKeyTest, HandsNothingToAChild) {
  ASSERT_EQ(Open(1), kOk);
  EXPECT_TRUE(InChild([&] {
    return Take(100) == file::kRead && run.empty() && key.GetOTPassword(password, &offset) == file::kRead &&
           password[0] == 0;
  }));
  EXPECT_EQ(Take(100), kOk);
  EXPECT_EQ(run, RunOf(personal.first_pad, 0, 100));
}

TEST_F(KestruneKeyTest, RefusesPasswordsModesAndDamage) {
  const std::string right = HexPassword("a_b_c_d"), longest = right + "0123456789ABCDEF";
  struct Row {
    std::string password;
    unsigned long long mode;
    std::size_t damaged;
    Result want;
  };
  personal.first_pad = PadOf(1100 * kPadChunk, 1);
  const Bytes whole = personal.File();
  for (const Row& row : {Row{HexPassword("autre"), 1, 511, key::kCheckFailed}, Row{longest, 1, 511, kOk},
                         Row{longest + "0", 1, 511, key::kCheckFailed}, Row{right, 0, 111, key::kCheckFailed},
                         Row{right, 0, 512 + 16383, key::kCheckFailed}, Row{right, 0, 512 + 16400, kOk},
                         Row{right, 3, 511, key::kMode}, Row{right, 2, 511, file::kRead}}) {
    Bytes damaged = whole;
    damaged[row.damaged] ^= 1;
    WriteFile(file(), damaged);
    EXPECT_EQ(Open(row.mode, row.password), row.want) << row.damaged;
    EXPECT_EQ(IsUnlocked(file()), row.want != kOk || row.mode == 0);
    EXPECT_EQ(key.GetOTPassword(password, &offset), row.want == kOk ? kOk : kNoObject);
  }
  const std::string long_name(3000, 'n');
  EXPECT_EQ(key.InitCreate(&creator, long_name.c_str(), 1, path().c_str(), right.c_str(), 0), file::kBadName);
}

// Headers that lie under a right digest, and files cut anywhere: every number is looked at where it is used, and no
// byte is made up.
TEST_F(KestruneKeyTest, BelievesNoHeader) {
  struct Row {
    std::size_t at;
    std::uint64_t value;
    Result open, take, password;
    std::size_t bytes = kFar;
  };
  const Bytes whole = FileNow();
  const std::size_t pads = whole.size() - kFirst - kSecond;
  for (const Row& row : {
           Row{kFirstPadBytesAt, 0, kOk, key::kOffset, kOk},
           Row{kSecondPadBytesAt, 0, kOk, kOk, key::kOffset},
           Row{kFirstPadBytesAt, kFar - kSecond + 1, kOk, kOk, key::kOffset},  // the sum wraps
           Row{kFirstPadBytesAt, kFar / 2, file::kRead, kNoObject, kNoObject},
           Row{kFirstPadBytesAt, 4100, kOk, kOk, kOk},  // no multiple of a chunk: handed out as it is
           Row{kFirstOffsetAt, kFirst, kOk, key::kOffset, kOk},
           Row{kUsesAt, 0, file::kRead, kNoObject, kNoObject, 511},
           Row{kUsesAt, 0, file::kRead, kNoObject, kNoObject, pads - 1},
           Row{kUsesAt, 0, kOk, file::kRead, file::kRead, pads + 5007},  // inside the last AES block needed
           Row{kUsesAt, 0, kOk, kOk, file::kRead, pads + 5008},
           Row{kUsesAt, 0, kOk, kOk, file::kRead, pads + kFirst + 31},
           Row{kUsesAt, 0, kOk, kOk, kOk, pads + kFirst + 32},
       }) {
    Bytes damaged = whole;
    SetNumberAt(damaged, row.at, row.value);
    Reseal(damaged, personal.hex_password);
    damaged.resize(std::min(row.bytes, damaged.size()));
    WriteFile(file(), damaged);
    EXPECT_EQ(Open(1), row.open) << row.at << ' ' << row.value;
    EXPECT_EQ(Take(5000), row.take) << row.at << ' ' << row.value << ' ' << row.bytes;
    EXPECT_EQ(run.empty(), row.take != kOk);
    EXPECT_TRUE(row.at != kUsesAt || run.empty() || run == RunOf(personal.first_pad, 0, 5000));
    EXPECT_EQ(FileNow() == damaged, row.take != kOk);
    EXPECT_EQ(key.GetOTPassword(password, &offset), row.password) << row.at << ' ' << row.bytes;
  }
  EXPECT_EQ(Take(kFar), kNoObject);
}

TEST_F(KestruneKeyTest, HandsNothingOutWithoutADurableHeaderOrAFile) {
  ASSERT_EQ(Open(1), kOk);
  creator.writes_fail = true;
  EXPECT_EQ(Take(100), file::kWrite);
  EXPECT_TRUE(run.empty());
  EXPECT_EQ(key.GetOTPassword(password, &offset), file::kWrite);
  EXPECT_EQ(std::count(password, password + 32, 0), 32);
  creator.writes_fail = false;
  ASSERT_EQ(Take(100), kOk);
  EXPECT_EQ(offset, 0u);
  EXPECT_EQ(NumberAt(FileNow(), kUsesAt), 1u);

  creator.has_files = false;
  EXPECT_EQ(Open(1), kOk);
  for (const Result rc :
       {key.SetOffsetOTPChiffrement(0), key.SetOffsetOTPassword(0), key.LoadHeader(), key.WriteHeader(),
        key.LoadAndDecryptIV(), key.DecryptageIV(), key.DecryptageAESChunk(run.data(), 0, 0),
        key.GetOTPassword(password, &offset), Take(1)}) {
    EXPECT_EQ(rc, kNoObject);
  }
}

TEST_F(KestruneKeyTest, ReadsHeaderIvAreaAndOneChunkForAPassword) {
  personal.first_pad.resize(std::size_t{64} << 20);
  Write();
  ASSERT_EQ(Open(0), kOk);
  ASSERT_EQ(key.GetOTPassword(password, &offset), kOk);
  EXPECT_TRUE(GotPassword(0));
  EXPECT_LE(creator.bytes_read, 512 + IvAreaBytes(std::size_t{64} << 20, kSecond) + 4096);
}

TEST_F(KestruneKeyTest, KeepsItsKeyInNoFreedObject) {
  alignas(TypV2KestruneKey) unsigned char room[sizeof(TypV2KestruneKey)] = {};
  const Bytes tail = FromHex(personal.hex_password.substr(2));
  auto* const placed = ::new (static_cast<void*>(room)) TypV2KestruneKey;
  ASSERT_EQ(placed->InitCreate(&creator, "cle", 1, path().c_str(), personal.hex_password.c_str(), 0), kOk);
  placed->Kill();
  placed->TypV2KestruneKey::~TypV2KestruneKey();
  EXPECT_EQ(std::search(room, std::end(room), tail.begin(), tail.end()), std::end(room));
}

}  // namespace
}  // namespace kestrune::testing
