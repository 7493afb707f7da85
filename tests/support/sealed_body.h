// A second reading, and a second writer, of sealed message bodies; neither knows the library.
#ifndef KESTRUNE_TESTS_SUPPORT_SEALED_BODY_H
#define KESTRUNE_TESTS_SUPPORT_SEALED_BODY_H

#include <cstdint>

#include "tests/support/bytes.h"

namespace kestrune::testing {

// The three pads in clear.
struct Pads {
  Bytes first;
  Bytes second;
  Bytes master;
};

// `count` bytes of a pad that starts again at its end.
Bytes RunOf(const Bytes& pad, std::uint64_t offset, std::size_t count);

// What a sealed body is made of.
struct SealedParts {
  std::uint64_t password_offset = 0;  // in the second pad
  std::uint64_t run_offset = 0;       // in the first pad
  std::uint64_t master_offset = 0;    // in the master pad
  Bytes r1;                           // leading random string, r1[0] its length
  Bytes body;
  Bytes r2;  // trailing random string, its last byte its length
};

// Random strings of these lengths around a body; r2 as long as the format wants it.
SealedParts PartsOf(const Bytes& body, std::size_t r1_length = 20);

// Seals the parts as they are, also lying ones (a wrong r1[0]); behind the last whole 16 bytes nothing is
// enciphered.
Bytes SealParts(const SealedParts& parts, const Pads& pads);

// Takes a sealed body apart; false when its random strings do not leave room between them.
bool OpenParts(const Bytes& sealed, const Pads& pads, SealedParts* parts);

}  // namespace kestrune::testing

#endif
