// Certificates that openssl made, with extensions and dates of every kind.
#include <gtest/gtest.h>

#include <string>

#include "crypto/classic.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

class Certificates : public ::testing::Test {
 protected:
  // In DER.
  std::string Made(const std::vector<std::string>& extensions = {}) const {
    std::vector<std::string> words = {"req",   "-x509", "-new",    "-key",  DataPath("rsa1024.key"),
                                      "-subj", "/CN=a", "-config", config_, "-outform",
                                      "DER"};
    for (const std::string& extension : extensions) words.insert(words.end(), {"-addext", extension});
    return RunOpenssl(words);
  }
  int Read(const std::string& content) const {
    WriteFile(folder_.File("certificate"), content);
    x509_cert certificate;
    const int rc = x509parse_crtfile(&certificate, folder_.File("certificate").c_str());
    EXPECT_EQ(certificate.rsa.len(), rc == 0 ? 128u : 0u);
    return rc;
  }
  Certificates() { WriteFile(config_, "[req]\ndistinguished_name=dn\n[dn]\n"); }

  TempFolder folder_;
  const std::string config_ = folder_.File("config");
};

TEST_F(Certificates, AreJudgedByTheirExtensions) {
  for (const auto& [extension, code] : Rows<2>("crypto.txt", "extensions")) {
    EXPECT_EQ(Read(Made({extension})), Number(code)) << extension;
  }
  std::string twice = Made({"2.5.29.15=DER:030205A0", "1.2.3.4=DER:030205A0"});
  const std::string other("\x06\x03\x2a\x03\x04"), usage("\x06\x03\x55\x1d\x0f");
  EXPECT_EQ(Read(twice), 0);
  EXPECT_EQ(Read(twice.replace(twice.find(other), other.size(), usage)), -64);
}

TEST_F(Certificates, MayBearAnyDateThatIsOne) {
  const std::string made = Made();
  const std::size_t first = made.find("\x17\x0d") + 2, second = made.find("\x17\x0d", first) + 2;
  for (const auto& [date, code] : Rows<2>("crypto.txt", "dates")) {
    for (const std::size_t at : {first, second}) {
      EXPECT_EQ(Read(std::string(made).replace(at, date.size(), date)), Number(code)) << date;
    }
  }
}

TEST_F(Certificates, StandAnywhereInAText) {
  const std::string begin = "-----BEGIN CERTIFICATE-----\n", end = "-----END CERTIFICATE-----\n";
  const std::string whole = begin + ToBase64(Made()) + "\n" + end, broken = begin + "YQ==\n" + end;
  const std::pair<std::string, int> rows[] = {{whole, 0},
                                              {"before\n" + whole + "behind\n", 0},
                                              {"-----BEGIN CERTIFICATES-----\n" + whole, 0},
                                              {broken + whole + whole + broken, 2},
                                              {whole + begin, 0},
                                              {broken, -64},
                                              {begin, -64},
                                              {end + begin, -64},
                                              {begin + end, -64},
                                              {"-----BEGIN CERTIFICATE----- " + end, -64}};
  for (const auto& [text, count_unread] : rows) {
    WriteFile(folder_.File("text"), text);
    x509_cert certificate;
    EXPECT_EQ(x509parse_crtfile(&certificate, folder_.File("text").c_str()), count_unread) << text;
    EXPECT_EQ(certificate.rsa.len(), count_unread < 0 ? 0u : 128u);
  }
}

}  // namespace
}  // namespace kestrune::testing
