// The signer: from data to a signature block, a text (docs/signature_block.md) that has fewer than 800 characters for a
// 4096-bit key.
#ifndef KESTRUNE_SIGN_SIGNATURE_H
#define KESTRUNE_SIGN_SIGNATURE_H

#include <array>
#include <cstdint>

#include "base/export.h"
#include "core/limits.h"
#include "core/object.h"
#include "core/owned.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "sign/key_utils.h"

class TypV2InstanceCreator;
namespace kestrune {
class KnownDigest;
}  // namespace kestrune

// Signs with the RSA private key of the current year (PKCS#1 v1.5 type 1, RFC 8017). Made by the factory,
// set up by `InitCreate`, used any number of times (the key is read once), released by `Kill`. The pass
// phrase and the key are wiped with the object at the latest.
class KESTRUNE_API TypApiV2Signature : public kestrune::LibraryObject<TypApiV2Signature> {
 public:
  // Keeps the factory (it must outlive the object) and copies the rest.
  //   name      signing key, at most 39 characters, else -87
  //   folder    where the keys are, a prefix that ends with the separator; at most 2047 characters, else
  //             -86, which replaces -87
  //   password  see SetPassword
  // -96: an object could not be made. After a failure `Kill` must not be called.
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* name, const char* folder, char* password);

  // Releases the key, then the helpers. 0.
  virtual int Kill();

  // At most 32 characters, else -88 (also for null). In the caller's own text '#', '$', '&', '*', '-', '='
  // and '@' become '_' (key files are protected with the result), then it is copied.
  virtual int SetPassword(char* password);

  // Wipes the pass phrase held. 0.
  virtual int ZeroPassword();

  // Writes the signature block of `length` bytes into `out`, which is emptied first and must be large
  // enough; no bound is passed. Mode 1 signs the SHA-512 of the data. Any other mode signs the data itself,
  // at most the modulus - 11 bytes, and who holds the public key can read them back.
  // Codes: those of Signer and Crypter; -72, -71: the signature is longer than 4096 / 3069 bytes; -96. On
  // failure `out` is empty.
  virtual int GetSignatureXMLLight(const unsigned char* data, std::uint32_t length, char* out, long mode);

  // Finds the key of the current year and reads it; does nothing once it is there. -103: no key file. -104:
  // the pass phrase does not open it. -95: unreadable, no RSA key, or its parts do not fit together.
  virtual int LoadPrivateKey();

  // Wipes and releases the key. Kept so: it counts as loaded as before, so none is read again; signing
  // gives -94 from then on. 0.
  virtual int FreePrivateKey();

  // Signs the SHA-512 of the data. `signature` needs 1024 bytes; *signature_length is 0 on failure. -93:
  // more than 1,000,000,000 bytes; else as LoadPrivateKey and SignDigestSHA512.
  virtual int Signer(const unsigned char* data, std::uint32_t length, unsigned char* signature,
                     std::uint32_t* signature_length);

  // Signs the bytes as they are (whatever the name says), with the key already loaded. -94: the RSA
  // operation failed, for one because there are too many bytes for the key.
  virtual int SignDigestSHA512(const unsigned char* digest, std::uint32_t length, unsigned char* signature,
                               std::uint32_t* signature_length);

  // 64-byte SHA-512. -93: more than 1,000,000,000 bytes.
  virtual int DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* digest,
                           std::uint32_t* digest_length);

  // Signs the data itself. As Signer otherwise.
  int Crypter(const unsigned char* data, std::uint32_t length, unsigned char* signature,
              std::uint32_t* signature_length);

 private:
  friend class kestrune::KnownDigest;

  static constexpr std::size_t kKeyFileNameBytes = 64;  // name, ".z.", six characters of year, ".key"

  TypV2InstanceCreator* creator_ = nullptr;
  kestrune::Owned<TypV2Utils> utils_;
  kestrune::Owned<TypKeyUtils> key_utils_;
  std::int64_t key_loaded_ = 0;
  std::array<char, kestrune::limits::kKeyName + 1> name_{};
  std::array<char, kestrune::limits::kFolder + 1> folder_{};
  kestrune::SecretArray<kestrune::limits::kSigningPassword + 1> password_;
  std::array<char, kKeyFileNameBytes> key_file_name_{};
  rsa_context private_key_;
  const kestrune::KnownDigest* known_digest_ = nullptr;
};

#endif
