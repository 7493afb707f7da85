// What the entry points for short texts have in common: padding, drawn keys, bounded hexadecimal.
#ifndef KESTRUNE_KEYS_HYBRID_TEXT_H
#define KESTRUNE_KEYS_HYBRID_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "core/owned.h"
#include "core/random.h"
#include "core/result.h"
#include "core/utils.h"
#include "crypto/classic.h"

namespace kestrune {

// What Api2Aes and Api2AesFile are asked for; the last one the file alone.
enum Mode { kEncipher = 0, kDecipher = 1, kRekey = 2 };

using AesKey = SecretArray<kAes256KeyBytes>;
using AesIv = SecretArray<kAesBlockBytes>;

// Fills the array with the low 8 bits of one draw each.
template <std::size_t N>
void DrawBytes(SecretArray<N>* bytes) {
  for (std::size_t i = 0; i < N; ++i) bytes->data()[i] = static_cast<unsigned char>(DrawRandom());
}

// The bytes of at most 2 N hexadecimal characters; missing ones are zero, what follows does not count.
template <std::size_t N>
void BytesFromHex(TypV2Utils* utils, const char* hex, SecretArray<N>* bytes) {
  SecretArray<2 * N + 1> digits;
  std::memcpy(digits.data(), hex, ::strnlen(hex, 2 * N));
  bytes->Wipe();
  unsigned long long count = 0;
  utils->DeHexadecimalise(digits.text(), bytes->data(), &count);
}

// The text and 1 to 16 zero bytes, up to a multiple of the cipher's block. False: no memory.
[[nodiscard]] inline bool PadText(const char* text, SecretCBuffer* padded) {
  const std::size_t length = std::strlen(text);
  if (!padded->Allocate(length + kAesBlockBytes - length % kAesBlockBytes)) return false;
  std::memcpy(padded->data(), text, length);
  return true;
}

// Whether what was deciphered has to look like a text: nothing in a form proves its key.
enum class Noise { kPasses, kRefused };

// Whether these bytes are what PadText leaves behind a text.
[[nodiscard]] inline bool IsPadding(std::span<const unsigned char> bytes) {
  const bool is_its_length = !bytes.empty() && bytes.size() <= kAesBlockBytes;
  return is_its_length &&
         std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

// Copies the deciphered text up to the zero bytes of its padding; without any, up to its end.
inline Result CopyDeciphered(std::span<const unsigned char> bytes, Noise noise, char* out) {
  const std::size_t length = ::strnlen(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (noise == Noise::kRefused && !IsPadding(bytes.subspan(length))) return hybrid::kNoText;
  std::memcpy(out, bytes.data(), length);
  out[length] = 0;
  return kOk;
}

}  // namespace kestrune

#endif
