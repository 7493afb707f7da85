// The verifier: from a signature block (docs/signature_block.md) back to what was signed, and by whom.
//
// A certificate is trusted because it lies in the certificate folder: neither its chain nor its dates nor a
// revocation list is looked at. Whoever can write into the folder decides whose signatures count.
#ifndef KESTRUNE_SIGN_SIGNATURE_VERIFY_H
#define KESTRUNE_SIGN_SIGNATURE_VERIFY_H

#include <array>
#include <cstddef>
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

// Checks signature blocks (PKCS#1 v1.5 type 1, RFC 8017) with the signer's X.509 certificate, the file
// NAME.pem of the certificate folder, NAME being the name in the block. Made by the factory, set up by
// `InitCreate`, released by `Kill`.
//
// One object holds one certificate: the first one read serves every later block, whatever name that block
// carries. Make a verifier for each block, or call FreePublicKey between blocks of different signers.
class KESTRUNE_API TypApiV2SignatureVerify : public kestrune::LibraryObject<TypApiV2SignatureVerify> {
 public:
  // Room that the outputs below need, in bytes.
  static constexpr std::size_t kNameOutputBytes = kestrune::limits::kSignerName + 1;
  static constexpr std::size_t kDataOutputBytes = 1024;  // the largest modulus - 11, and a terminator

  // Keeps the factory (it must outlive the object) and copies the folder, a prefix that ends with the
  // separator. -86: folder missing, or of 2048 characters or more. -96: an object could not be made. After a
  // failure `Kill` must not be called.
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* folder);

  // Releases the certificate, then the helpers. 0.
  virtual int Kill();

  // 64-byte SHA-512. -93: more than 1,000,000,000 bytes.
  virtual int DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* digest,
                           std::uint32_t* digest_length);

  // Reads the certificate in the file of that name in the folder; does nothing, and gives 0, once one is
  // held. -106: no regular file, unreadable, or its key is no RSA key. -96: no memory.
  virtual int LoadPublicKey(const char* file_name);

  // Releases the certificate, so that another one can be read. 0.
  virtual int FreePublicKey();

  // The three operations read the first signature block of `block`, a text of any length that may hold more
  // around it. `name` (kNameOutputBytes) gets the signer's name as soon as the block has shown it, so it is
  // proven only when the result is 0; it is empty when no name was found. In this order:
  //   -76 block missing; -66 name missing
  //   -69 an element is missing; -70 <SIGN> or <S> of more than 4097 characters, <N> of more than 48
  //   -106 certificate (see LoadPublicKey); a name that is empty, "." or "..", or holds a '/', has none
  //   -71 <S> is not Base64
  //   -68 the signature is not exactly as long as the key's modulus, or does not prove what is asked

  // Checks that the block is a signature of the SHA-512 of these data (the signer's mode 1): the one right
  // encoding is built and compared. `length` is tested whole, in 64 bits. Also -77: data missing (after
  // -76, before -66); -93: more than 1,000,000,000 bytes.
  int VerifySignAndIntegrityDataFromXMLSignBlock(const char* block, const unsigned char* data,
                                                 unsigned long long length, char* name);

  // Recovers the text that a block carries (the signer's mode 0) into `data` (kDataOutputBytes), with a
  // terminator behind it that *length does not count; the text itself may hold zeros. Both outputs are
  // empty after a failure. The key's public exponent must be 65537 or more, else -68: with a small one,
  // anybody can make a block that carries a short text and bytes of his choice. Also -60, -59: data or
  // length missing, before all other codes.
  int VerifyXMLSignBlockAuthentificationData(const char* block, char* name, unsigned char* data,
                                             unsigned long long* length);

  // The same, and what was recovered is dropped: it only tells whether the block decodes with the
  // certificate of the signer that it names.
  int VerifyXMLSignBlockAuthentificationOnly(const char* block, char* name);

 private:
  friend class kestrune::KnownDigest;

  struct Signature;

  int ReadBlock(const char* block, char* name, Signature* signature);
  int RecoverText(const Signature& signature, unsigned char* data, unsigned long long* length);

  TypV2InstanceCreator* creator_ = nullptr;
  kestrune::Owned<TypV2Utils> utils_;
  kestrune::Owned<TypKeyUtils> key_utils_;
  std::int64_t certificate_loaded_ = 0;
  std::array<char, kestrune::limits::kFolder + 1> folder_{};
  x509_cert certificate_;
  const kestrune::KnownDigest* known_digest_ = nullptr;
};

#endif
