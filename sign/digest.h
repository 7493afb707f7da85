// The digest that signatures are made over and checked against.
#ifndef KESTRUNE_SIGN_DIGEST_H
#define KESTRUNE_SIGN_DIGEST_H

#include <cstdint>

#include "core/result.h"
#include "crypto/classic.h"

namespace kestrune {

inline constexpr std::uint32_t kMostSignedBytes = 1'000'000'000;

// SHA-512 of at most kMostSignedBytes into 64 bytes; signer::kTooLong (the verifier's code too) beyond.
inline Result DigestForSignature(const unsigned char* data, std::uint32_t length, unsigned char* digest,
                                 std::uint32_t* digest_length) {
  *digest_length = 0;
  if (length > kMostSignedBytes) return signer::kTooLong;
  sha4(data, length, digest, 0);
  *digest_length = static_cast<std::uint32_t>(kSha512Bytes);
  return kOk;
}

}  // namespace kestrune

#endif
