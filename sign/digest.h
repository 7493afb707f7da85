// The digest that signatures are made over and checked against.
//
// For the library's own use; neither installed nor exported.
#ifndef KESTRUNE_SIGN_DIGEST_H
#define KESTRUNE_SIGN_DIGEST_H

#include <cstdint>
#include <cstring>

#include "core/result.h"
#include "crypto/classic.h"

namespace kestrune {

inline constexpr long kDigestMode = 1;  // of the signer: the SHA-512 of the data is signed
inline constexpr std::uint32_t kMostSignedBytes = 1'000'000'000;

// Tells a signer or verifier, while it lives, the SHA-512 of bytes that its caller has digested already. The
// operations are called as ever, so a subclass sees each call; only the library's own DigestSHA512, asked for
// exactly these bytes, copies the digest instead of running over them again. The bytes must not change
// meanwhile.
class KnownDigest {
 public:
  // Null: no digest is known.
  template <class Digester>
  KnownDigest(Digester* digester, const unsigned char* data, unsigned long long length,
              const unsigned char* digest)
      : place_(digester->known_digest_), before_(place_), data_(data), length_(length), digest_(digest) {
    place_ = this;
  }
  KnownDigest(const KnownDigest&) = delete;
  KnownDigest& operator=(const KnownDigest&) = delete;
  ~KnownDigest() { place_ = before_; }

  // The digest of these bytes, or null.
  const unsigned char* Of(const unsigned char* data, unsigned long long length) const {
    return data == data_ && length == length_ ? digest_ : nullptr;
  }

 private:
  const KnownDigest*& place_;
  const KnownDigest* const before_;
  const unsigned char* const data_;
  const unsigned long long length_;
  const unsigned char* const digest_;
};

// SHA-512 of at most kMostSignedBytes into 64 bytes; signer::kTooLong (the verifier's code too) beyond.
inline Result DigestForSignature(const unsigned char* data, std::uint32_t length,
                                 const KnownDigest* announced, unsigned char* digest,
                                 std::uint32_t* digest_length) {
  *digest_length = 0;
  if (length > kMostSignedBytes) return signer::kTooLong;
  const unsigned char* const known = announced == nullptr ? nullptr : announced->Of(data, length);
  if (known != nullptr) {
    std::memcpy(digest, known, kSha512Bytes);
  } else {
    sha4(data, length, digest, 0);
  }
  *digest_length = static_cast<std::uint32_t>(kSha512Bytes);
  return kOk;
}

}  // namespace kestrune

#endif
