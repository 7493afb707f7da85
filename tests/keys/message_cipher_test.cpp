#include "keys/message_cipher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "keys/trap.h"
#include "tests/keys/keys_folder.h"

namespace {
int trapped = 0;
}

// In these tests the trap lets go, and the code that led into it comes back.
void kestrune::SleepForEver() {
  ++trapped;
}

namespace kestrune::testing {
namespace {

struct CipherTest : ::testing::Test, KeysFolder {
  ProbedCreator creator;
  TypKestruneV2Unix cipher;
  std::string name = personal_name;
  std::string password = personal.hex_password;

  void SetUp() override { ASSERT_EQ(Init("cle", path(), password), kOk); }
  ~CipherTest() override { cipher.Kill(); }

  Result Init(const std::string& key, const std::string& folder, const std::string& hex) {
    return cipher.InitCreate(&creator, key.c_str(), folder.c_str(), hex.c_str());
  }
  Result Seal(const Bytes& body, Bytes* sealed) {
    SecretCBuffer out;
    const unsigned char none = 0;
    const Result rc = out.Receive([&](auto** bytes, auto* length) {
      return cipher.Low_crypter(body.empty() ? &none : body.data(), body.size(), bytes, length);
    });
    sealed->assign(out.span().begin(), out.span().end());
    return rc;
  }
  Result Open(const Bytes& sealed, Bytes* body) {
    SecretCBuffer out;
    const Result rc = out.Receive([&](auto** bytes, auto* length) {
      return cipher.Low_decrypter(sealed.data(), sealed.size(), name.c_str(), password.c_str(), bytes,
                                  length);
    });
    body->assign(out.span().begin(), out.span().end());
    if (rc == kOk) {
      const unsigned char* const behind = out.data() + out.size();
      EXPECT_EQ(std::count(behind, behind + 10000, 0), 10000);
    }
    return rc;
  }
};

TEST_F(CipherTest, IsReadByTheWitnessAndReadsIt) {
  for (const std::size_t length : {1U, 13U, 100U, 4096U, 70000U, 8191U, 14U, 15U, 16U, 255U}) {
    const Bytes body = PadOf(length, length);
    Bytes sealed, opened;
    ASSERT_EQ(Seal(body, &sealed), kOk);
    SealedParts parts;
    ASSERT_TRUE(OpenParts(sealed, pads(), &parts));
    EXPECT_EQ(parts.body, body);
    const std::size_t r2 = parts.r2.size();
    EXPECT_TRUE(r2 >= 33 && r2 <= 48 && (16 + parts.r1.size() + length + r2) % 16 == 0) << r2;
    EXPECT_EQ(std::count(parts.r2.begin(), parts.r2.end(), 0), 0);
    ASSERT_EQ(Open(sealed, &opened), kOk);
    EXPECT_EQ(opened, body);
    parts = PartsOf(body, 15 + length % 44);
    parts.password_offset = 64;
    parts.run_offset = 60000;
    parts.master_offset = 4099;
    ASSERT_EQ(Open(SealParts(parts, pads()), &opened), kOk);
    EXPECT_EQ(opened, body);
  }
}

TEST_F(CipherTest, DrawsRandomStringsOfBothRanges) {
  std::srand(1);
  std::set<int> lengths;
  for (int i = 0; i < 1000; ++i) {
    Bytes room(59, 0);
    const int length = cipher.loadRNstring(reinterpret_cast<char*>(room.data()));
    lengths.insert(length);
    EXPECT_EQ(room[0], length);
    EXPECT_EQ(std::find(room.begin(), room.end(), 0) - room.begin(), length);
  }
  std::set<int> want;
  for (int i = 0; i < 16; ++i) want.insert({15 + i, 43 + i});
  EXPECT_EQ(lengths, want);
}

// What the lying lengths of a body lead to; the trap where they leave nothing between them.
TEST_F(CipherTest, TrapsBodiesWithoutABody) {
  struct Row {
    std::size_t body;
    int first, last;  // stated lengths
    Result want;
    std::size_t opened;
  };
  for (const Row& row :
       {Row{0, 20, 44, cipher::kEndBeforeStart, 0}, Row{1, 255, 0, cipher::kEndBeforeStart, 0},
        Row{300, 255, 255, cipher::kEndBeforeStart, 0}, Row{1, 0, 0, kOk, 64}, Row{1, 1, 0, kOk, 63},
        Row{1, 63, 0, kOk, 1}, Row{1, 64, 0, cipher::kEndBeforeStart, 0}, Row{1, 0, 87, cipher::kNoEnd, 0},
        Row{1, 0, 64, cipher::kEndBeforeStart, 0}}) {
    SealedParts parts = PartsOf(Bytes(row.body, 'x'), 20);
    parts.r1[0] = static_cast<unsigned char>(row.first);
    parts.r2.back() = static_cast<unsigned char>(row.last);
    Bytes opened;
    trapped = 0;
    EXPECT_EQ(Open(SealParts(parts, pads()), &opened), row.want) << row.first << ' ' << row.last;
    EXPECT_EQ(opened.size(), row.opened);
    EXPECT_EQ(trapped, row.want == kOk ? 0 : 1);
  }
  Bytes sealed;
  EXPECT_EQ(Seal(Bytes(1), &sealed), key::kCheckFailed);  // no password lies in the memory of who sleeps
}

TEST_F(CipherTest, AnswersInTheOrderOfItsSteps) {
  const Bytes sealed = SealParts(PartsOf(ToBytes("bonjour")), pads());
  const Bytes head(sealed.begin(), sealed.begin() + 24);
  SealedParts far = PartsOf(ToBytes("bonjour"));
  far.run_offset = personal.first_pad.size() - 7;
  const Bytes beyond = SealParts(far, pads());
  struct Row {
    const Bytes& body;
    std::string name, password;
    Result want;
  };
  const std::string right = password, usual = name;
  for (const Row& row : {
           Row{sealed, std::string(45, '2'), right, utils::kBadFileName},
           Row{sealed, "cle.126", right, utils::kNoYearSuffix},
           Row{head, "cle.200", right, file::kMissing},  // no master key of that year
           Row{sealed, "autre." + PersonalKeyYear(), right, file::kOpen},
           Row{sealed, "./" + usual, right, file::kOpen},
           Row{head, usual, HexPassword("autre"), key::kCheckFailed},
           Row{head, usual, right, cipher::kNoInput},
           Row{beyond, usual, right, key::kOffset},
           Row{sealed, usual, right, kOk},
       }) {
    name = row.name;
    password = row.password;
    Bytes body;
    EXPECT_EQ(Open(row.body, &body), row.want) << row.name;
    EXPECT_EQ(body, row.want == kOk ? ToBytes("bonjour") : Bytes());
    EXPECT_TRUE(IsUnlocked(File(personal_name)));
  }
  unsigned char* out = nullptr;
  unsigned long long length = 0;
  EXPECT_EQ(cipher.Low_decrypter(nullptr, 1, nullptr, nullptr, &out, &length), cipher::kNoInput);
  EXPECT_EQ(cipher.Low_decrypter(sealed.data(), 1, nullptr, nullptr, &out, &length), cipher::kKeyName);
  EXPECT_EQ(cipher.Low_decrypter(sealed.data(), 1, "cle", nullptr, &out, &length), cipher::kPassword);
  EXPECT_EQ(cipher.Low_crypter(nullptr, 1, &out, &length), cipher::kNoInput);
  EXPECT_EQ(cipher.Low_crypter(sealed.data(), ~0ull, &out, &length), kNoObject);
}

TEST_F(CipherTest, SealsWithTheKeysOfTheYearOrNotAtAll) {
  Bytes sealed;
  EXPECT_EQ(cipher.SetPassword(password.substr(1).c_str()), cipher::kPassword);
  EXPECT_EQ(cipher.SetPassword((password + "0").c_str()), cipher::kPassword);
  EXPECT_EQ(Seal(Bytes(9), &sealed), kOk);
  EXPECT_EQ(Init(std::string(40, 'n'), path(), ""), cipher::kKeyName);
  EXPECT_EQ(Init(std::string(40, 'n'), std::string(2048, '/'), ""), cipher::kFolder);
  EXPECT_EQ(Init(std::string(39, 'n'), std::string(2047, '/'), "abc"), cipher::kPassword);
  ASSERT_EQ(Init("cle", path(), ""), kOk);
  EXPECT_EQ(cipher.SetPassword(HexPassword("autre").c_str()), kOk);
  EXPECT_EQ(Seal(Bytes(9), &sealed), key::kCheckFailed);
  EXPECT_TRUE(IsUnlocked(File(master_name)));
  cipher.SetPassword(password.c_str());
  creator.writes_fail = true;
  EXPECT_EQ(Seal(Bytes(9), &sealed), file::kWrite);
  EXPECT_TRUE(sealed.empty());
  creator.writes_fail = false;
  std::filesystem::remove(File(master_name));
  EXPECT_EQ(Seal(Bytes(9), &sealed), file::kMissing);
  creator.has_files = false;
  EXPECT_EQ(Seal(Bytes(9), &sealed), kNoObject);
}

TEST_F(CipherTest, LoadsTheHeaderOfTheFileInTheCurrentFolder) {
  const std::string file = "cle." + CertificateYear();
  const auto start = std::filesystem::current_path();
  std::filesystem::current_path(path());
  EXPECT_EQ(cipher.LoadLinearKey(nullptr, nullptr, 10), file::kOpen);
  for (const std::size_t bytes : {511U, 512U}) {
    WriteFile(file, Bytes(bytes));
    EXPECT_EQ(cipher.LoadLinearKey(nullptr, nullptr, 10), bytes < 512 ? file::kRead : kOk);
  }
  EXPECT_TRUE(IsUnlocked(file));
  std::filesystem::current_path(start);
}

// The hexadecimal rows of the pages: a personal key file, and a body sealed with it.
TEST_F(CipherTest, PagesShowAKeyFileAndABody) {
  personal.first_pad = Bytes(4096, 0x11);
  personal.second_pad = Bytes(4096, 0x22);
  master.pad = Bytes(4096, 0x33);
  Write();
  Bytes file = personal.File(), body;
  std::fill(file.begin(), file.begin() + 512, 0);
  const std::string page = Page("key_files.md"), bodies = Page("sealed_body.md");
  std::istringstream rows(page);
  for (std::string row; std::getline(rows, row);) {
    char digits[33];
    long position;  // where they stand
    if (std::sscanf(row.c_str(), "%32[0-9a-f]  # %ld", digits, &position) != 2) continue;
    const Bytes bytes = FromHex(digits);
    std::copy(bytes.begin(), bytes.end(), file.begin() + position);
  }
  WriteFile(File(personal_name), file);
  Bytes sealed = HexExample(bodies, 1);  // the first example is the same under the one-time password
  ASSERT_EQ(Open(sealed, &body), kOk);
  EXPECT_EQ(body, ToBytes("bonjour"));
  AesCbc(false, personal.second_pad.data(), Bytes(16).data(), &sealed[8], 80);
  EXPECT_EQ(sealed, HexExample(bodies));
}

}  // namespace
}  // namespace kestrune::testing
