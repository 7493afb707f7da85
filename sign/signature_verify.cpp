#include "sign/signature_verify.h"

#include <cstring>
#include <string_view>

#include "core/instance_creator.h"
#include "core/light_xml.h"
#include "core/result.h"
#include "sign/digest.h"

using namespace kestrune;

namespace {

constexpr std::size_t kMostBlockCharacters = 4097;  // of <SIGN>, and of <S> in it
constexpr std::size_t kSignatureBytes = 4096;
// Below this exponent a cube root (or the like) is enough to forge a short text with bytes behind it.
constexpr unsigned kLeastExponentToRecover = 65537;

constexpr char kCertificateSuffix[] = ".pem";

using BlockText = std::array<char, kMostBlockCharacters + 1>;

// A name that came inside a block stays inside the folder.
bool NamesFileInFolder(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

// That there was no memory says nothing of a signature.
Result ToResult(int crypto_error) {
  if (crypto_error == 0) return kOk;
  return crypto_error == ERR_NO_MEMORY ? kNoObject : verifier::kBadSignature;
}

}  // namespace

struct TypApiV2SignatureVerify::Signature {
  std::array<unsigned char, kSignatureBytes> bytes;
  std::size_t length = 0;
};

int TypApiV2SignatureVerify::InitCreate(TypV2InstanceCreator* creator, const char* folder) {
  creator_ = creator;
  certificate_loaded_ = 0;
  if (!CopyTextThatFits(folder_, folder)) return verifier::kFolder;
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  if (const Result rc = utils_.Init(); rc != kOk) return rc;
  key_utils_ = Owned<TypKeyUtils>(creator_->newTypKeyUtils());
  return key_utils_.Init(creator_);
}

int TypApiV2SignatureVerify::Kill() {
  const Result rc = FreePublicKey();
  utils_.Reset();
  key_utils_.Reset();
  return rc;
}

int TypApiV2SignatureVerify::DigestSHA512(const unsigned char* data, std::uint32_t length,
                                          unsigned char* digest, std::uint32_t* digest_length) {
  return DigestForSignature(data, length, known_digest_, digest, digest_length);
}

int TypApiV2SignatureVerify::LoadPublicKey(const char* file_name) {
  // Kept so: what is held stays, also when another name is asked for.
  if (certificate_loaded_ == 1) return kOk;
  if (file_name == nullptr) return verifier::kCertificate;
  x509_free(&certificate_);
  int rc = x509parse_crtfile(&certificate_, BoundedPath{folder_.data(), file_name}.c_str());
  // Deliberate: the key is asked for only when the parsing was not clean, and its answer counts instead. So
  // a file whose first readable certificate holds a sound key serves, whatever else is in the file.
  if (rc != 0 && rc != ERR_NO_MEMORY) rc = rsa_check_pubkey(&certificate_.rsa);
  if (rc != 0) return rc == ERR_NO_MEMORY ? kNoObject : verifier::kCertificate;
  certificate_loaded_ = 1;
  return kOk;
}

int TypApiV2SignatureVerify::FreePublicKey() {
  if (certificate_loaded_ == 1) x509_free(&certificate_);
  certificate_loaded_ = 0;
  return kOk;
}

int TypApiV2SignatureVerify::VerifySignAndIntegrityDataFromXMLSignBlock(const char* block,
                                                                        const unsigned char* data,
                                                                        unsigned long long length,
                                                                        char* name) {
  if (block == nullptr) return verifier::kNoBlock;
  if (data == nullptr) return verifier::kNoData;
  if (name == nullptr) return verifier::kNoNameOutput;
  if (length > kMostSignedBytes) return verifier::kTooLong;
  std::array<unsigned char, kSha512Bytes> digest{};
  std::uint32_t digest_length = 0;
  Result rc = DigestSHA512(data, static_cast<std::uint32_t>(length), digest.data(), &digest_length);
  if (rc != kOk) return rc;
  Signature signature;
  if (rc = ReadBlock(block, name, &signature); rc != kOk) return rc;
  return ToResult(rsa_pkcs1_verify(&certificate_.rsa, RSA_PUBLIC, SIG_RSA_RAW, kSha512Bytes, digest.data(),
                                   signature.bytes.data()));
}

int TypApiV2SignatureVerify::VerifyXMLSignBlockAuthentificationData(const char* block, char* name,
                                                                    unsigned char* data,
                                                                    unsigned long long* length) {
  if (data == nullptr) return argument::kNoOutput;
  if (length == nullptr) return argument::kNoLengthOutput;
  *data = 0;
  *length = 0;
  if (block == nullptr) return verifier::kNoBlock;
  if (name == nullptr) return verifier::kNoNameOutput;
  Signature signature;
  if (const Result rc = ReadBlock(block, name, &signature); rc != kOk) return rc;
  return RecoverText(signature, data, length);
}

int TypApiV2SignatureVerify::VerifyXMLSignBlockAuthentificationOnly(const char* block, char* name) {
  SecretArray<kDataOutputBytes> dropped;
  unsigned long long length = 0;
  return VerifyXMLSignBlockAuthentificationData(block, name, dropped.data(), &length);
}

// From the text to the signature's bytes, with the signer's certificate at hand.
int TypApiV2SignatureVerify::ReadBlock(const char* block, char* name, Signature* signature) {
  *name = 0;
  BlockText content;
  BlockText base64;
  Result rc = ExtractFirst(utils_.get(), block, "SIGN", content.data(), kMostBlockCharacters);
  if (rc != kOk) return rc;
  rc = ExtractFirst(utils_.get(), content.data(), "N", name, limits::kSignerName);
  if (rc != kOk) return rc;
  rc = ExtractFirst(utils_.get(), content.data(), "S", base64.data(), kMostBlockCharacters);
  if (rc != kOk) return rc;
  if (!NamesFileInFolder(name)) return verifier::kCertificate;
  std::array<char, kNameOutputBytes + sizeof kCertificateSuffix> file_name;
  CopyText(file_name, name);
  std::strcat(file_name.data(), kCertificateSuffix);
  if (rc = LoadPublicKey(file_name.data()); rc != kOk) return rc;

  signature->length = signature->bytes.size();
  if (base64_decode(signature->bytes.data(), &signature->length,
                    reinterpret_cast<const unsigned char*>(base64.data()),
                    std::string_view(base64.data()).size()) != 0) {
    return verifier::kBase64;
  }
  // The operations behind read as many bytes as the modulus has.
  return signature->length == certificate_.rsa.len() ? kOk : verifier::kBadSignature;
}

int TypApiV2SignatureVerify::RecoverText(const Signature& signature, unsigned char* data,
                                         unsigned long long* length) {
  if (!certificate_.rsa.public_exponent_at_least(kLeastExponentToRecover)) return verifier::kBadSignature;
  std::size_t recovered = 0;
  const int rc = rsa_pkcs1_decodesignature(&certificate_.rsa, RSA_PUBLIC, &recovered, data,
                                           kDataOutputBytes - 1, signature.bytes.data(), signature.length);
  if (rc != 0) return ToResult(rc);
  data[recovered] = 0;
  *length = recovered;
  return kOk;
}
