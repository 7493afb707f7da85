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

namespace kestrune::testing {
namespace {

using verifier::kBadSignature;

constexpr std::size_t kModulus = 256;
const std::string kName = "signataire";
const Bytes kText = ToBytes("ordonnance");

Bytes Join(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}
Bytes Bent(Bytes block, std::size_t position, unsigned char byte) {
  block[position] = byte;
  return block;
}

// 00 TYPE FF ... FF 00 and these bytes, with garbage behind where they leave room.
Bytes Padded(const Bytes& bytes, std::size_t run, unsigned char type = 1) {
  Bytes block = Join(Join(Join({0, type}, Bytes(run, 0xff)), {0}), bytes);
  block.resize(kModulus, 'g');
  return block;
}
Bytes Padded(const Bytes& bytes) {
  return Padded(bytes, kModulus - 3 - bytes.size());
}

const Bytes kDigest = ToBytes(Sha512(ToText(kText)));

// The bare private-key operation, on any block: what a forger with luck or mathematics could have found.
Bytes RawSign(const Bytes& block, const std::string& key = DataPath("rsa2048.key")) {
  return ToBytes(
      RunOpenssl({"pkeyutl", "-decrypt", "-inkey", key, "-pkeyopt", "rsa_padding_mode:none"}, ToText(block)));
}

std::string Wrap(const std::string& name, const Bytes& signature) {
  return "<SIGN><N>" + name + "</N>\n<S>" + ToBase64(ToText(signature)) + "</S></SIGN>";
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
    text_.assign(TypApiV2SignatureVerify::kDataOutputBytes, '#');
    unsigned long long length = 1;
    const int rc =
        verifier_->VerifyXMLSignBlockAuthentificationData(block.c_str(), name_, text_.data(), &length);
    text_.resize(length);
    EXPECT_EQ(verifier_->VerifyXMLSignBlockAuthentificationOnly(block.c_str(), name_), rc);
    return rc;
  }
  int Check(const std::string& block, const Bytes& data) {
    return verifier_->VerifySignAndIntegrityDataFromXMLSignBlock(block.c_str(), data.data(), data.size(),
                                                                 name_);
  }
  int Decode(const Bytes& signature, std::size_t room) {
    text_.assign(kModulus, '#');
    std::size_t length = 1;
    const int rc = rsa_pkcs1_decodesignature(&certificate_.rsa, RSA_PUBLIC, &length, text_.data(), room,
                                             signature.data(), signature.size());
    EXPECT_TRUE(rc == 0 || (length == 0 && text_ == Bytes(kModulus, '#')));
    return rc;
  }

  KeyFolder folder_;
  TypV2InstanceCreatorUnix creator_;
  Owned<TypApiV2SignatureVerify> verifier_{creator_.newTypApiV2SignatureVerify()};
  x509_cert certificate_;
  char name_[TypApiV2SignatureVerify::kNameOutputBytes] = {};
  Bytes text_;
};

TEST_F(Verification, ReadsBlocksOfOpenssl) {
  for (const std::string data : {"rsa1024", "rsa2048", "rsa4096"}) {
    const std::string stem = folder_.AddSigningKey(data, data), text(64, 'x');  // openssl takes no more
    const Bytes signature =
        ToBytes(RunOpenssl({"pkeyutl", "-sign", "-inkey", DataPath(data + ".key")}, text));
    EXPECT_EQ(Extract("avant" + Wrap(stem, signature) + "<SIGN>"),
              "<ERR>0</ERR><N>" + stem + "</N><DT>" + text + "</DT>");
  }
}

// Blocks that a lenient reader takes for signatures of kText.
TEST_F(Verification, RefusesForgedBlocks) {
  const Bytes info = Join(FromHex("3051300d060960864801650304020305000440"), kDigest);
  const struct {
    const char* fault;
    Bytes block;
    int code;  // of the decoder; the verifier has one for all
  } rows[] = {
      {"seven bytes of padding", Padded(kText, 7), ERR_RSA_INVALID_PADDING},
      {"seven bytes of padding, digest", Padded(kDigest, 7), ERR_RSA_INVALID_PADDING},
      {"type 0", Padded(kText, 243, 0), ERR_RSA_INVALID_PADDING},
      {"type 2", Padded(kText, 243, 2), ERR_RSA_INVALID_PADDING},
      {"first byte 1", Bent(Padded(kText), 0, 1), ERR_RSA_INVALID_PADDING},
      {"another byte in the run", Bent(Padded(kText), 100, 0xfe), ERR_RSA_INVALID_PADDING},
      {"no separator", Join({0, 1}, Bytes(kModulus - 2, 0xff)), ERR_RSA_INVALID_PADDING},
      {"DigestInfo, bytes behind", Padded(info, 100), ERR_RSA_VERIFY_FAILED},
      {"DigestInfo, cut", Padded(Bytes(info.begin(), info.end() - 1)), ERR_RSA_VERIFY_FAILED},
      {"DigestInfo, other length", Padded(Bent(info, 1, 0x50)), ERR_RSA_VERIFY_FAILED},
      {"DigestInfo, other parameters", Padded(Bent(info, 15, 4)), ERR_RSA_VERIFY_FAILED},
  };
  for (const auto& row : rows) {
    const Bytes signature = RawSign(row.block);
    EXPECT_EQ(Decode(signature, kModulus), row.code) << row.fault;
    EXPECT_EQ(Recover(Wrap(kName, signature)), kBadSignature) << row.fault;
    EXPECT_EQ(Check(Wrap(kName, signature), kText), kBadSignature) << row.fault;
  }
  // These can be recovered, and are no proof of the data.
  for (const Bytes& block : {Padded(info), Padded(kDigest, 100), Padded(Join({0}, kDigest)), Padded(kText)}) {
    const std::string wrapped = Wrap(kName, RawSign(block));
    EXPECT_EQ(Recover(wrapped), kOk);
    EXPECT_EQ(Check(wrapped, kText), kBadSignature);
  }
  const std::string good = Wrap(kName, RawSign(Padded(kDigest)));
  EXPECT_EQ(Check(good, kText), kOk);
  EXPECT_EQ(name_, kName);
  // The length counts in 64 bits: cut to 32 it would be the one that was signed.
  EXPECT_EQ(verifier_->VerifySignAndIntegrityDataFromXMLSignBlock(good.c_str(), kText.data(),
                                                                  (1ULL << 32) + kText.size(), name_),
            verifier::kTooLong);
}

TEST_F(Verification, RecoversUpToTheLastByteAndNothingWithAZero) {
  const Bytes longest(kModulus - 11, 'x');
  EXPECT_EQ(Recover(Wrap(kName, RawSign(Padded(longest)))), kOk);
  EXPECT_EQ(text_, longest);
  EXPECT_EQ(Decode(RawSign(Padded(longest)), longest.size() - 1), ERR_RSA_OUTPUT_TOO_LARGE);
  const Bytes with_zero = Join(kText, {0, 'g'});
  const std::string block = Wrap(kName, RawSign(Padded(with_zero)));
  EXPECT_EQ(Recover(block), kOk);
  EXPECT_EQ(text_, with_zero);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Extract(block, 1), "<ERR>-68</ERR>");
  Extract(Wrap(kName, RawSign(Padded(kText))), 1);
  Extract(block, 2);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "err VerifyXMLSignBlockAuthentificationData = -68\nSignature trouvee : signataire\n"
            "Contenu du block signature : \ntaille du contenu du block signature : 0\n"
            "err VerifyXMLSignBlockAuthentificationData = 0\nSignature trouvee : signataire\n"
            "Contenu du block signature : ordonnance\ntaille du contenu du block signature : 10\n");
}

TEST_F(Verification, RecoversNothingUnderASmallExponent) {
  const std::string key = folder_.File("trois.key");
  RunOpenssl({"req", "-x509", "-newkey", "rsa:2048", "-pkeyopt", "rsa_keygen_pubexp:3", "-nodes", "-subj",
              "/CN=trois", "-keyout", key, "-out", folder_.File("trois.pem")});
  EXPECT_EQ(Recover(Wrap("trois", RawSign(Padded(kText), key))), kBadSignature);
  // What cube roots give: the right head, and bytes of nobody's choice behind it.
  EXPECT_EQ(Check(Wrap("trois", RawSign(Padded(kDigest, 8), key)), kText), kBadSignature);
  EXPECT_EQ(Check(Wrap("trois", RawSign(Padded(kDigest), key)), kText), kOk);
}

TEST_F(Verification, WantsAValueBelowTheModulusAndExactlyItsLength) {
  const Bytes good = RawSign(Padded(kDigest));
  const std::string modulus = RunOpenssl({"rsa", "-noout", "-modulus", "-in", DataPath("rsa2048.key")});
  for (const Bytes& signature :
       {FromHex(modulus.substr(modulus.find('=') + 1)), Bytes(kModulus, 0xff), Bytes(kModulus, 0), Bytes{},
        Join({0}, good), Join(good, {0}), Bytes(good.begin(), good.end() - 1), Bytes(3000, 1)}) {
    EXPECT_EQ(Recover(Wrap(kName, signature)), kBadSignature);
    EXPECT_EQ(Check(Wrap(kName, signature), kText), kBadSignature);
  }
}

TEST_F(Verification, NamesTheFaultOfADamagedText) {
  const std::string good = Wrap(kName, RawSign(Padded(kText)));
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
  const Bytes signature = RawSign(Padded(kText));
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
