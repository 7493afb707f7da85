#include "sign/signature.h"

#include <cstring>

#include "core/instance_creator.h"
#include "core/password.h"
#include "core/result.h"
#include "sign/digest.h"
#include "sign/signature_block.h"

using namespace kestrune;

namespace {

constexpr std::size_t kSignatureBytes = 4096;

}  // namespace

int TypApiV2Signature::InitCreate(TypV2InstanceCreator* creator, const char* name, const char* folder,
                                  char* password) {
  creator_ = creator;
  key_loaded_ = 0;
  key_file_name_[0] = 0;
  Result rc = CopyTextThatFits(name_, name) ? kOk : signer::kKeyName;
  // The folder is looked at whatever the name was, and its code wins.
  if (!CopyTextThatFits(folder_, folder)) rc = signer::kFolder;
  rsa_free(&private_key_);
  if (rc != kOk) return rc;
  utils_ = Owned<TypV2Utils>(creator_->newTypV2Utils());
  if (rc = utils_.Init(); rc != kOk) return rc;
  key_utils_ = Owned<TypKeyUtils>(creator_->newTypKeyUtils());
  if (rc = key_utils_.Init(creator_); rc != kOk) return rc;
  return SetPassword(password);
}

int TypApiV2Signature::Kill() {
  if (key_loaded_ == 1) FreePrivateKey();
  utils_.Reset();
  key_utils_.Reset();
  return kOk;
}

int TypApiV2Signature::SetPassword(char* password) {
  if (!IsShorterThan(password, password_.size())) return signer::kPassword;
  SubstitutePasswordCharacters(password);
  std::strcpy(password_.text(), password);
  return kOk;
}

int TypApiV2Signature::ZeroPassword() {
  password_.Wipe();
  return kOk;
}

int TypApiV2Signature::GetSignatureXMLLight(const unsigned char* data, std::uint32_t length, char* out,
                                            long mode) {
  *out = 0;
  CBuffer signature;
  if (!signature.Allocate(kSignatureBytes)) return kNoObject;
  std::uint32_t signature_length = 0;
  const Result rc = mode == kDigestMode ? Signer(data, length, signature.data(), &signature_length)
                                        : Crypter(data, length, signature.data(), &signature_length);
  if (rc != kOk) return rc;
  if (signature_length > kSignatureBytes) return signer::kSignatureTooLong;
  return WriteSignatureBlock(key_file_name_.data(), signature.data(), signature_length, out);
}

int TypApiV2Signature::LoadPrivateKey() {
  if (key_loaded_ == 1) return kOk;
  Result rc = key_utils_->GetSignPrivateKey(name_.data(), folder_.data(), key_file_name_.data());
  if (rc != kOk) return rc;
  const BoundedPath path{folder_.data(), key_file_name_.data()};
  rc = x509parse_keyfile(&private_key_, path.c_str(), password_.text());
  if (rc == ERR_X509_KEY_PASSWORD_MISMATCH) return signer::kWrongPassword;
  if (rc == 0) rc = rsa_check_privkey(&private_key_);
  if (rc != 0) {
    rsa_free(&private_key_);  // nothing is ever signed with a key whose parts do not fit together
    return rc == ERR_NO_MEMORY ? kNoObject : signer::kKeyUnreadable;
  }
  key_loaded_ = 1;
  return kOk;
}

int TypApiV2Signature::FreePrivateKey() {
  rsa_free(&private_key_);
  return kOk;
}

int TypApiV2Signature::Signer(const unsigned char* data, std::uint32_t length, unsigned char* signature,
                              std::uint32_t* signature_length) {
  *signature_length = 0;
  if (const Result rc = LoadPrivateKey(); rc != kOk) return rc;
  std::array<unsigned char, kSha512Bytes> digest;
  std::uint32_t digest_length = 0;
  const Result rc = DigestSHA512(data, length, digest.data(), &digest_length);
  if (rc != kOk || digest_length != kSha512Bytes) return rc;
  return SignDigestSHA512(digest.data(), digest_length, signature, signature_length);
}

int TypApiV2Signature::Crypter(const unsigned char* data, std::uint32_t length, unsigned char* signature,
                               std::uint32_t* signature_length) {
  *signature_length = 0;
  if (const Result rc = LoadPrivateKey(); rc != kOk) return rc;
  return SignDigestSHA512(data, length, signature, signature_length);
}

int TypApiV2Signature::SignDigestSHA512(const unsigned char* digest, std::uint32_t length,
                                        unsigned char* signature, std::uint32_t* signature_length) {
  *signature_length = 0;
  const int rc = rsa_pkcs1_sign(&private_key_, RSA_PRIVATE, SIG_RSA_RAW, length, digest, signature);
  if (rc != 0) return rc == ERR_NO_MEMORY ? kNoObject : signer::kSign;
  *signature_length = static_cast<std::uint32_t>(private_key_.len());
  return kOk;
}

int TypApiV2Signature::DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* digest,
                                    std::uint32_t* digest_length) {
  return DigestForSignature(data, length, known_digest_, digest, digest_length);
}
