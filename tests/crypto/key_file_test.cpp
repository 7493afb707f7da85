#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "crypto/classic.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

constexpr int kUnreadable = ERR_X509_KEY_INVALID;
constexpr int kWrong = ERR_X509_KEY_PASSWORD_MISMATCH;

class KeyFiles : public ::testing::Test {
 protected:
  static int Read(const std::string& path, const char* password) {
    rsa_context key;
    const int rc = x509parse_keyfile(&key, path.c_str(), password);
    EXPECT_EQ(rsa_check_privkey(&key) == 0, rc == 0);
    return rc;
  }
  // A PKCS#8 form of the 1024-bit key, protected by "a_b_c_d".
  std::string Pkcs8(const std::string& name, const std::vector<std::string>& protection) const {
    std::vector<std::string> words = {"pkcs8", "-topk8",           "-in",      rsa_,
                                      "-out",  folder_.File(name), "-passout", "pass:a_b_c_d"};
    words.insert(words.end(), protection.begin(), protection.end());
    RunOpenssl(words);
    return folder_.File(name);
  }
  TempFolder folder_;
  const std::string rsa_ = DataPath("rsa1024.key"), protected_ = DataPath("rsa1024-protected.key");
};

TEST_F(KeyFiles, AreReadInEachFormOrRefused) {
  const std::string der = folder_.File("der"), fifo = folder_.File("fifo");
  const Bytes content = ReadFile(rsa_);
  RunOpenssl({"rsa", "-in", rsa_, "-outform", "DER", "-traditional", "-out", der});
  WriteFile(folder_.File("empty"), "");
  WriteFile(folder_.File("short"), Bytes(content.begin(), content.end() - 40));
  WriteFile(folder_.File("huge"), Bytes(content.size() + (1 << 20), '\n'));
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string path;
    const char* password;
    int rc;
  } rows[] = {
      {rsa_, nullptr, 0},
      {rsa_, "unneeded", 0},
      {der, "unneeded", 0},
      {protected_, "a_b_c_d", 0},
      {protected_, "", kWrong},
      {protected_, nullptr, kWrong},
      {Pkcs8("plain", {"-nocrypt"}), nullptr, 0},
      {Pkcs8("v1", {"-v1", "PBE-SHA1-3DES"}), "a_b_c_d", 0},
      {Pkcs8("v2", {"-v2", "des3"}), "a_b_c_d", 0},
      {folder_.File("v2"), "", kWrong},
      {folder_.File("v2"), nullptr, kWrong},
      {DataPath("pkcs8-aes.key"), "a_b_c_d", kUnreadable},
      {DataPath("ec.key"), nullptr, kUnreadable},
      {DataPath("rsa1024.pem"), nullptr, kUnreadable},
      {folder_.File("short"), nullptr, kUnreadable},
      {folder_.File("empty"), nullptr, kUnreadable},
      {folder_.File("huge"), nullptr, kUnreadable},
      {folder_.File("missing"), nullptr, kUnreadable},
      {folder_.path(), nullptr, kUnreadable},
      {fifo, nullptr, kUnreadable},
      {"/dev/zero", nullptr, kUnreadable},
  };
  for (const auto& row : rows) EXPECT_EQ(Read(row.path, row.password), row.rc) << row.path;
}

// One wrong phrase in a few hundred deciphers to something that looks like the beginning of a key.
TEST_F(KeyFiles, NeverTakeAWrongPassPhraseForADamagedKey) {
  for (const std::string& path : {protected_, Pkcs8("v1", {"-v1", "PBE-SHA1-3DES", "-iter", "1"}),
                                  Pkcs8("v2", {"-v2", "des3", "-iter", "1"})}) {
    for (int i = 0; i < 1500; ++i) ASSERT_EQ(Read(path, std::to_string(i).c_str()), kWrong) << path << i;
  }
}

}  // namespace
}  // namespace kestrune::testing
