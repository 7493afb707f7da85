#include "blocks/flat_digest.h"

#include <cstring>

namespace kestrune {

namespace {

// The trailer's digest, and the state from which the whole one goes on.
void DigestUpToTrailer(const unsigned char* flat, unsigned long long length, sha4_context* context,
                       FlatDigests* digests) {
  sha4_starts(context, 0);
  sha4_update(context, flat, length);
  sha4_context at_trailer;
  sha4_clone(&at_trailer, context);
  sha4_finish(&at_trailer, digests->trailer.data());
}

}  // namespace

FlatDigests DigestFlatTree(const unsigned char* flat, unsigned long long length) {
  FlatDigests digests;
  if (length < kSha512Bytes) {
    sha4(flat, length, digests.whole.data(), 0);
    return digests;
  }
  sha4_context context;
  DigestUpToTrailer(flat, length - kSha512Bytes, &context, &digests);
  sha4_update(&context, flat + length - kSha512Bytes, kSha512Bytes);
  sha4_finish(&context, digests.whole.data());
  return digests;
}

FlatDigests SealFlatTree(unsigned char* flat, unsigned long long length) {
  FlatDigests digests;
  sha4_context context;
  DigestUpToTrailer(flat, length, &context, &digests);
  std::memcpy(flat + length, digests.trailer.data(), kSha512Bytes);
  sha4_update(&context, digests.trailer.data(), kSha512Bytes);
  sha4_finish(&context, digests.whole.data());
  return digests;
}

}  // namespace kestrune
