#include "keys/install_cipher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <future>

#include "crypto/classic.h"
#include "tests/keys/keys_folder.h"
#include "tests/keys/openssl.h"

namespace kestrune::testing {
namespace {

struct InstallCipher : ::testing::Test {
  int Encipher() { return cipher_.Chiffrerfichier(in_.c_str(), out_.c_str(), key_.c_str()); }
  int Decipher() { return cipher_.DeChiffrerfichier(in_.c_str(), out_.c_str(), key_.c_str()); }
  // A body and its trailer in clear, made without the cipher under test.
  static std::string Clear(std::string body, char free_byte = 0) {
    body.resize((body.size() + 31) / 32 * 32, ' ');
    std::string trailer(32, free_byte);
    sha1(reinterpret_cast<const unsigned char*>(body.data()), body.size(),
         reinterpret_cast<unsigned char*>(trailer.data()));
    return body + trailer;
  }

  TempFolder folder_;
  std::string in_ = folder_.File("in"), out_ = folder_.File("out");
  std::string key_ = "00112233445566778899AABBCCDDEEFF0123456789abcdef0123456789abcdef";
  ProbedCreator creator_;
  TypV2AESInstallKeys cipher_;
  InstallCipher() { cipher_.InitCreate(&creator_); }
};

// Keys come out for their owner alone, into a new file, and with the permissions that a file had.
TEST_F(InstallCipher, AgreesWithOpensslBothWays) {
  const mode_t umask = ::umask(0);
  const auto permissions = [this] {
    return static_cast<unsigned>(std::filesystem::status(out_).permissions());
  };
  for (const std::size_t length : LengthsWorthTrying()) {
    WriteFile(in_, Sample(length));
    ASSERT_EQ(Encipher(), kOk) << length;
    EXPECT_EQ(permissions(), 0666u);
    EXPECT_EQ(Aes256Cbc(false, ToText(ReadFile(out_)), key_), Clear(Sample(length))) << length;
    const std::string clear = Clear(Sample(length), '\x5A');
    WriteFile(in_, Aes256Cbc(true, clear, key_));
    for (const unsigned mode : {0600u, 0640u}) {
      if (mode == 0600u) std::filesystem::rename(out_, folder_.File("older"));
      EXPECT_EQ(mode == 0640u ? ::chmod(out_.c_str(), mode) : 0, 0);
      ASSERT_EQ(Decipher(), kOk) << length;
      EXPECT_EQ(permissions(), mode);
      EXPECT_EQ(ToText(ReadFile(out_)), clear.substr(0, clear.size() - 32)) << length;
    }
    std::filesystem::remove(out_);
  }
  ::umask(umask);
}

TEST_F(InstallCipher, TakesKeysOfExactly32Bytes) {
  WriteFile(in_, "x");
  for (const std::size_t length : {0U, 62U, 63U, 64U, 65U, 4096U}) {
    key_ = std::string(length, '7');
    EXPECT_EQ(Encipher(), length == 63 || length == 64 ? kOk : install::kKey) << length;
  }
}

TEST_F(InstallCipher, RefusesDamage) {
  const std::string whole = Aes256Cbc(true, Clear(Sample(70000)), key_);
  const std::size_t n = whole.size();
  const struct {
    std::size_t length, flipped;
    int code;
  } rows[] = {{n, 40, install::kDigest}, {n, n - 32, install::kDigest}, {n - 32, 0, install::kDigest},
              {32, 0, install::kDigest}, {0, 0, install::kDigest},      {n + 16, 0, install::kLength}};
  for (const auto& row : rows) {
    std::string damaged = whole;
    damaged.resize(row.length);
    if (row.flipped != 0) damaged[row.flipped] ^= 1;
    WriteFile(in_, damaged);
    WriteFile(out_, "older");
    EXPECT_EQ(Decipher(), row.code) << row.length << " " << row.flipped;
    EXPECT_EQ(FileExists(out_), row.code == install::kLength) << row.length << " " << row.flipped;
  }
  WriteFile(in_, whole);
  key_[0] = '1';
  EXPECT_EQ(Decipher(), install::kDigest);
  EXPECT_FALSE(FileExists(out_));
}

TEST_F(InstallCipher, TouchesNothingBeforeTheInputIsFit) {
  const std::string link = folder_.File("link"), twin = folder_.File("twin"), older = folder_.File("older");
  WriteFile(in_, "input");
  WriteFile(older, "older");
  std::filesystem::create_symlink("in", link);
  std::filesystem::create_hard_link(in_, twin);
  const std::pair<std::string, std::string> rows[] = {
      {in_, in_}, {in_, link}, {link, in_}, {in_, twin}, {folder_.File("none"), older}};
  for (const auto& [in, out] : rows) {
    in_ = in, out_ = out;
    EXPECT_EQ(Encipher(), file::kOpen) << in << " " << out;
    EXPECT_EQ(Decipher(), file::kOpen) << in << " " << out;
  }
  EXPECT_EQ(ToText(ReadFile(twin)) + ToText(ReadFile(older)), "inputolder");
}

TEST_F(InstallCipher, LeavesNoHalfMadeOutput) {
  WriteFile(in_, Sample(100000));  // two pieces, of which the first is written
  std::filesystem::create_symlink("behind", out_);
  creator_.shrinks = true;
  const auto open_files = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = open_files();
  EXPECT_EQ(Encipher(), file::kRead);
  EXPECT_EQ(open_files(), before);
  EXPECT_FALSE(std::filesystem::is_symlink(out_));
  EXPECT_EQ(std::filesystem::file_size(folder_.File("behind")), 0u);  // behind a link the bytes go

  creator_.shrinks = false;
  WriteFile(in_, Aes256Cbc(true, Clear(""), key_));  // deciphered, not a byte to write
  out_ = "/nowhere/out";
  EXPECT_EQ(Encipher(), file::kWrite);
  EXPECT_EQ(Decipher(), file::kWrite);
  out_ = "/dev/full";
  EXPECT_EQ(Encipher(), file::kWrite);
}

TEST_F(InstallCipher, WaitsForWhoeverUpdatesTheOutput) {
  WriteFile(in_, Aes256Cbc(true, Clear("installed"), key_));
  WriteFile(out_, "older");
  Owned<TypV2FileRef> sealer(new TypV2FileRefUnix);
  ASSERT_EQ(sealer.Init(), kOk);
  ASSERT_EQ(sealer->SetFileName(out_.c_str()), kOk);
  ASSERT_EQ(sealer->OpenDF(1), kOk);
  auto installing = std::async(std::launch::async, [this] { return Decipher(); });
  EXPECT_EQ(installing.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  EXPECT_EQ(sealer->Write("Older", 5), kOk);
  EXPECT_EQ(ToText(ReadFile(out_)), "Older");
  sealer.Reset();
  EXPECT_EQ(installing.get(), kOk);
  EXPECT_EQ(ToText(ReadFile(out_)).substr(0, 9), "installed");
}

TEST_F(InstallCipher, MakesTheDocumentedExample) {
  const std::string page = Page("installation_file.md");
  EXPECT_NE(page.find(key_), std::string::npos);
  WriteFile(in_, "bonjour");
  ASSERT_EQ(Encipher(), kOk);
  EXPECT_EQ(ReadFile(out_), HexExample(page));
}

}  // namespace
}  // namespace kestrune::testing
