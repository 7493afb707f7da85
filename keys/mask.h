// XOR of long runs, by words.
#ifndef KESTRUNE_KEYS_MASK_H
#define KESTRUNE_KEYS_MASK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/owned.h"

namespace kestrune {

inline std::uint64_t WordAt(const unsigned char* bytes) {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// out[i] = a[i] ^ b[i] ^ c[i] ^ d[i]. `out` may be one of the inputs, or lie at least 8 bytes before it.
// A function of its own: among the values of a caller the compiler runs out of registers, and parks pieces of a
// mask on the stack.
[[gnu::noinline]] inline void XorFour(unsigned char* out, const unsigned char* a, const unsigned char* b,
                                      const unsigned char* c, const unsigned char* d, std::size_t count) {
  std::size_t i = 0;
  for (; i + sizeof(std::uint64_t) <= count; i += sizeof(std::uint64_t)) {
    const std::uint64_t word = WordAt(a + i) ^ WordAt(b + i) ^ WordAt(c + i) ^ WordAt(d + i);
    std::memcpy(out + i, &word, sizeof word);
  }
  for (; i < count; ++i) out[i] = static_cast<unsigned char>(a[i] ^ b[i] ^ c[i] ^ d[i]);
}

// out[i] ^= a[i] ^ b[i]; for short runs.
inline void XorInto(unsigned char* out, const unsigned char* a, const unsigned char* b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(out[i] ^ a[i] ^ b[i]);
}

// The mask that a body is under: the bytes behind the first one of a random string, over and over. They are
// written out often enough that no position is ever divided by their number.
class CyclingMask {
 public:
  // `length` is that of the random string, at most 255; below 2 there is no mask (zeros).
  CyclingMask(const unsigned char* random_string, std::size_t length) {
    const std::size_t period = length < 2 ? 1 : length - 1;
    bytes_ = period * kRepeats;
    if (length < 2) return;
    for (std::size_t i = 0; i < bytes_; i += period) std::memcpy(mask_.data() + i, random_string + 1, period);
  }

  // out[i] = a[i] ^ b[i] ^ c[i] ^ mask, the mask from its beginning; `out` as for XorFour.
  void Apply(unsigned char* out, const unsigned char* a, const unsigned char* b, const unsigned char* c,
             std::size_t count) const {
    for (std::size_t i = 0; i < count; i += bytes_) {
      XorFour(out + i, a + i, b + i, c + i, mask_.data(), std::min(bytes_, count - i));
    }
  }

 private:
  static constexpr std::size_t kLongestPeriod = 254;
  static constexpr std::size_t kRepeats = 32;

  std::size_t bytes_ = 0;
  SecretArray<kLongestPeriod * kRepeats> mask_;
};

}  // namespace kestrune

#endif
