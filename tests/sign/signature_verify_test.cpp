#include "sign/signature_verify.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include <kestrune/kestrune.h>
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"

namespace kestrune::testing {
namespace {

using verifier::kBadSignature;

constexpr std::size_t kModulus = 256;
const std::string kName = "signataire", kText = "ordonnance", kDigest = Sha512(kText);

// The bare private-key operation, on any block: what a forger with luck or mathematics could have found.
std::string RawSign(const std::string& block, const std::string& key = DataPath("rsa2048.key")) {
  return RunOpenssl({"pkeyutl", "-decrypt", "-inkey", key, "-pkeyopt", "rsa_padding_mode:none"}, block);
}

std::string Sign(const std::string& bytes) {
  return RawSign(std::string{0, 1} + std::string(kModulus - 3 - bytes.size(), '\xff') + '\0' + bytes);
}

std::string Wrap(const std::string& name, const std::string& signature) {
  return "<SIGN><N>" + name + "</N>\n<S>" + ToBase64(signature) + "</S></SIGN>";
}

class Verification : public ::testing::Test {
 protected:
  Verification() {
    Certify(kName, "rsa2048.pem");
    EXPECT_EQ(verifier_.Init(&creator_, folder_.path().c_str()), kOk);
    EXPECT_EQ(x509parse_crtfile(&certificate_, folder_.File(kName + ".pem").c_str()), 0);
  }

  void Certify(const std::string& name, const std::string& data) {
    WriteFile(folder_.File(name + ".pem"), ReadFile(DataPath(data)));
  }
  std::string Extract(const std::string& block, long verbose = 0) {
    std::string answer(1100, '#');
    const int code = Api2ExtractFromSignature(block.c_str(), folder_.path().c_str(), answer.data(), verbose);
    EXPECT_EQ(answer.find("<ERR>" + std::to_string(code) + "</ERR>"), 0u);
    return answer.c_str();
  }
  int Recover(const std::string& block) {
    Bytes text(TypApiV2SignatureVerify::kDataOutputBytes, '#');
    unsigned long long length = 1;
    const int rc =
        verifier_->VerifyXMLSignBlockAuthentificationData(block.c_str(), name_, text.data(), &length);
    text_.assign(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(verifier_->VerifyXMLSignBlockAuthentificationOnly(block.c_str(), name_), rc);
    return rc;
  }
  int Check(const std::string& block, unsigned long long length = kText.size()) {
    const Bytes data = ToBytes(kText);
    return verifier_->VerifySignAndIntegrityDataFromXMLSignBlock(block.c_str(), data.data(), length, name_);
  }
  int Decode(const std::string& signature, std::size_t room) {
    Bytes text(kModulus, '#');
    std::size_t length = 1;
    const int rc = rsa_pkcs1_decodesignature(&certificate_.rsa, RSA_PUBLIC, &length, text.data(), room,
                                             ToBytes(signature).data(), signature.size());
    EXPECT_TRUE(rc == 0 || (length == 0 && text == Bytes(kModulus, '#')));
    return rc;
  }

  KeyFolder folder_;
  TypV2InstanceCreatorUnix creator_;
  Owned<TypApiV2SignatureVerify> verifier_{creator_.newTypApiV2SignatureVerify()};
  x509_cert certificate_;
  char name_[TypApiV2SignatureVerify::kNameOutputBytes] = {};
  std::string text_;
};

TEST_F(Verification, ReadsBlocksOfOpenssl) {
  for (const std::string data : {"rsa1024", "rsa2048", "rsa4096"}) {
    const std::string stem = folder_.AddSigningKey(data, data), text(64, 'x');  // openssl takes no more
    const std::string signature = RunOpenssl({"pkeyutl", "-sign", "-inkey", DataPath(data + ".key")}, text);
    EXPECT_EQ(Extract("avant" + Wrap(stem, signature) + "<SIGN>"),
              "<ERR>0</ERR><N>" + stem + "</N><DT>" + text + "</DT>");
  }
}

TEST_F(Verification, RefusesForgedBlocks) {
  const std::string other_key = folder_.File("trois.key");
  RunOpenssl({"req", "-x509", "-newkey", "rsa:2048", "-pkeyopt", "rsa_keygen_pubexp:3", "-nodes", "-subj",
              "/CN=trois", "-keyout", other_key, "-out", folder_.File("trois.pem")});
  const auto bytes_of = [](const std::string& row) {
    std::string hex = Replaced(Replaced(row, "<T>", ToHex(kText)), "<D>", ToHex(kDigest));
    hex = Replaced(Replaced(hex, "<C>", ToHex(kDigest.substr(0, 63))), "<I>",
                   "3051300d060960864801650304020305000440");
    return ToText(FromHex(hex));
  };
  for (const auto& [name, block, decoded, recovered, checked] : Rows<5>("sign.txt", "signed blocks")) {
    SCOPED_TRACE(name + " " + block);
    const bool is_other = name != kName;
    const std::string signature = is_other ? RawSign(bytes_of(block), other_key) : RawSign(bytes_of(block));
    EXPECT_EQ(verifier_->FreePublicKey(), kOk);
    EXPECT_EQ(is_other ? 0 : Decode(signature, kModulus), Number(decoded));
    EXPECT_EQ(Recover(Wrap(name, signature)), recovered == "none" ? kBadSignature : kOk);
    EXPECT_EQ(ToHex(text_), recovered == "none" ? "" : ToHex(bytes_of(recovered)));
    EXPECT_EQ(Check(Wrap(name, signature)), Number(checked));
    EXPECT_EQ(name_, name);
  }
  EXPECT_EQ(Decode(Sign(std::string(kModulus - 11, 'x')), kModulus - 12), ERR_RSA_OUTPUT_TOO_LARGE);
  // The length counts in 64 bits: cut to 32 it would be the one that was signed.
  EXPECT_EQ(Check(Wrap(kName, Sign(kDigest)), (1ULL << 32) + kText.size()), verifier::kTooLong);
}

TEST_F(Verification, TracesWhatItRecovers) {
  const std::string block = Wrap(kName, Sign(kText + std::string("\0g", 2)));
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Extract(block, 1), "<ERR>-68</ERR>");
  Extract(Wrap(kName, Sign(kText)), 1);
  Extract(block, 2);
  std::string want;
  for (const auto& [line] : Rows<1>("sign.txt", "traced")) want += line + "\n";
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), want);
}

TEST_F(Verification, WantsAValueBelowTheModulusAndExactlyItsLength) {
  const std::string good = Sign(kDigest), zero(1, '\0');
  const std::string modulus = RunOpenssl({"rsa", "-noout", "-modulus", "-in", DataPath("rsa2048.key")});
  for (const std::string& signature :
       {ToText(FromHex(modulus.substr(modulus.find('=') + 1))), std::string(kModulus, '\xff'),
        std::string(kModulus, '\0'), std::string(), zero + good, good + zero, good.substr(0, kModulus - 1),
        std::string(3000, '\1')}) {
    EXPECT_EQ(Recover(Wrap(kName, signature)), kBadSignature);
    EXPECT_EQ(Check(Wrap(kName, signature)), kBadSignature);
  }
}

TEST_F(Verification, NamesTheFaultOfADamagedText) {
  const std::string good = Wrap(kName, Sign(kText));
  const auto with = [&](const std::string& part, const std::string& instead) {
    return std::string(good).replace(good.find(part), part.size(), instead);
  };
  const std::pair<std::string, int> rows[] = {
      {"", verifier::kTagMissing},
      {with("</SIGN>", ""), verifier::kTagMissing},
      {with("<S>", ""), verifier::kTagMissing},
      {with(kName, std::string(49, 'n')), verifier::kValueTooLong},
      {with(kName, std::string(48, 'n')), verifier::kCertificate},
      {with("</S>", std::string(4097, 'A') + "</S>"), verifier::kValueTooLong},
      {with("<S>", "<S>*"), verifier::kBase64},
      {"<SIGN><N>absent</N><S>*</S></SIGN>", verifier::kCertificate}};
  for (const auto& [block, code] : rows) {
    EXPECT_EQ(Extract(block), "<ERR>" + std::to_string(code) + "</ERR>") << block;
  }
  char answer[] = "#";
  EXPECT_EQ(Api2ExtractFromSignature(good.c_str(), std::string(2048, '/').c_str(), answer, 0),
            verifier::kFolder);
  EXPECT_STREQ(answer, "");
}

TEST_F(Verification, OpensOnlyRegularCertificateFilesOfTheFolder) {
  const std::string signature = Sign(kText);
  for (const char* folder : {"dedans", "dossier.pem"}) ::mkdir(folder_.File(folder).c_str(), 0700);
  for (const char* name : {"", ".", "..", "dedans/ici"}) Certify(name, "rsa2048.pem");
  ASSERT_EQ(::mkfifo(folder_.File("tube.pem").c_str(), 0600), 0);
  Certify("courbe", "ec.pem");
  Certify("clef", "rsa2048.key");
  for (const char* name :
       {"", ".", "..", "dedans/ici", "dedans/../signataire", "dossier", "tube", "courbe", "clef", "absent"}) {
    EXPECT_EQ(Recover(Wrap(name, signature)), verifier::kCertificate) << name;
  }
  // The first readable certificate of a file counts, whatever else is in it.
  const std::string pem = ToText(ReadFile(DataPath("rsa2048.pem")));
  WriteFile(folder_.File("deux.pem"), "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n" + pem);
  EXPECT_EQ(Recover(Wrap("deux", signature)), kOk);
  // What is held stays, but a name that leaves the folder is refused all the same.
  Certify("autre", "rsa1024.pem");
  EXPECT_EQ(Recover(Wrap("autre", signature)), kOk);
  EXPECT_EQ(Recover(Wrap("../" + kName, signature)), verifier::kCertificate);
  EXPECT_EQ(verifier_->FreePublicKey(), kOk);
  EXPECT_EQ(Recover(Wrap("autre", signature)), kBadSignature);
  EXPECT_EQ(verifier_->FreePublicKey(), kOk);
  EXPECT_EQ(Recover(Wrap(kName, signature)), kOk);
}

TEST_F(Verification, AgreesWithTheManualsExample) {
  const std::string page = ToText(ReadFile(DataPath("../../docs/signature_block.md")));
  Certify("exemple.z.126", "rsa1024.pem");
  const std::string answer = Extract(page.substr(page.find("<SIGN><N>exemple")));
  EXPECT_EQ(answer.find("<ERR>0"), 0u);
  EXPECT_NE(page.find("\n" + answer + "\n"), std::string::npos);
}

}  // namespace
}  // namespace kestrune::testing
