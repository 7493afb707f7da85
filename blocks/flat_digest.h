// The digests of a flat tree: the one that closes it, and the one that a signature of it signs.
#ifndef KESTRUNE_BLOCKS_FLAT_DIGEST_H
#define KESTRUNE_BLOCKS_FLAT_DIGEST_H

#include <array>

#include "crypto/classic.h"

namespace kestrune {

using Sha512Digest = std::array<unsigned char, kSha512Bytes>;

// Both come from one pass: the second is the first one's text and the trailer behind it.
struct FlatDigests {
  Sha512Digest trailer{};  // SHA-512 of all bytes before the trailer
  Sha512Digest whole{};    // SHA-512 of all bytes, the trailer's included
};

// Of the `length` bytes of a flat tree. Of fewer than 64 bytes, only the second one. Null when length is 0.
FlatDigests DigestFlatTree(const unsigned char* flat, unsigned long long length);

// Writes the trailer behind the first `length` bytes of a tree.
FlatDigests SealFlatTree(unsigned char* flat, unsigned long long length);

}  // namespace kestrune

#endif
