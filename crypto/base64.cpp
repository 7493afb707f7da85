// Base64. Private keys come in it, so what a character stands for is computed, not looked up: a table would tell through
// the cache which of its parts were read.
#include <cstdint>

#include "base/byte_mask.h"
#include "crypto/classic.h"

namespace {

using kestrune::ByteMask, kestrune::IsBetween;

constexpr unsigned char kPad = '=';
constexpr std::size_t kMostPads = 2;

// `value`, below 64, as a character.
constexpr unsigned char Character(unsigned char value) {
  const int shift = (IsBetween(value, 0, 25) & 'A') | (IsBetween(value, 26, 51) & ('a' - 26)) |
                    (IsBetween(value, 52, 61) & (256 + '0' - 52)) |
                    (IsBetween(value, 62, 62) & (256 + '+' - 62)) |
                    (IsBetween(value, 63, 63) & (256 + '/' - 63));
  return static_cast<unsigned char>(value + shift);
}

constexpr unsigned char kNoDigit = 0xFF;

// What a character stands for, or kNoDigit.
constexpr unsigned char Value(unsigned char character) {
  const ByteMask upper = IsBetween(character, 'A', 'Z'), lower = IsBetween(character, 'a', 'z'),
                 digit = IsBetween(character, '0', '9'), plus = IsBetween(character, '+', '+'),
                 slash = IsBetween(character, '/', '/');
  const int shift = (upper & (256 - 'A')) | (lower & (256 + 26 - 'a')) | (digit & (52 - '0')) |
                    (plus & (62 - '+')) | (slash & (63 - '/'));
  const ByteMask known = upper | lower | digit | plus | slash;
  return static_cast<unsigned char>((character + shift) | ~known);
}

// What is done at once: a whole number of groups on either side.
constexpr std::size_t kRunCharacters = 64;
constexpr std::size_t kRunBytes = kRunCharacters / 4 * 3;

void EncodeRun(const unsigned char* input, unsigned char* output) {
  unsigned char values[kRunCharacters];
  for (std::size_t i = 0; i < kRunCharacters / 4; ++i) {
    const unsigned char* const in = input + 3 * i;
    unsigned char* const out = values + 4 * i;
    out[0] = in[0] >> 2;
    out[1] = static_cast<unsigned char>((in[0] << 4 | in[1] >> 4) & 63);
    out[2] = static_cast<unsigned char>((in[1] << 2 | in[2] >> 6) & 63);
    out[3] = in[2] & 63;
  }
  for (std::size_t i = 0; i < kRunCharacters; ++i) output[i] = Character(values[i]);
  wipe(values, sizeof values);
}

// False, and nothing written, unless all are digits.
bool DecodeRun(const unsigned char* input, unsigned char* output) {
  unsigned char values[kRunCharacters];
  unsigned char all = 0;
  for (std::size_t i = 0; i < kRunCharacters; ++i) {
    values[i] = Value(input[i]);
    all |= values[i];
  }
  const bool valid = all < 64;
  for (std::size_t i = 0; valid && i < kRunCharacters / 4; ++i) {
    const unsigned char* const in = values + 4 * i;
    unsigned char* const out = output + 3 * i;
    out[0] = static_cast<unsigned char>(in[0] << 2 | in[1] >> 4);
    out[1] = static_cast<unsigned char>(in[1] << 4 | in[2] >> 2);
    out[2] = static_cast<unsigned char>(in[2] << 6 | in[3]);
  }
  wipe(values, sizeof values);
  return valid;
}

bool IsRunOfDigits(const unsigned char* input) {
  unsigned char all = 0;
  for (std::size_t i = 0; i < kRunCharacters; ++i) all |= Value(input[i]);
  return all < 64;
}

struct Counted {
  bool valid = true;
  std::size_t digits = 0, pads = 0;

  // Rounded up where the last group is not whole.
  std::size_t bytes() const {
    const std::size_t all = digits + pads;
    return all / 8 * 6 + (all % 8 * 6 + 7) / 8 - pads;
  }
};

// Line ends, and spaces before them, do not count.
Counted Count(const unsigned char* input, std::size_t length) {
  Counted counted;
  for (std::size_t i = 0; i < length; ++i) {
    while (counted.pads == 0 && length - i > kRunCharacters && IsRunOfDigits(input + i)) {
      counted.digits += kRunCharacters;
      i += kRunCharacters;
    }
    const std::size_t begin = i;
    while (i < length && input[i] == ' ') ++i;
    if (i == length) break;
    if (input[i] == '\n' || (input[i] == '\r' && i + 1 < length && input[i + 1] == '\n')) continue;
    const bool is_pad = input[i] == kPad;
    const bool is_digit = Value(input[i]) != kNoDigit;
    if (is_pad) ++counted.pads;
    if (is_digit) ++counted.digits;
    counted.valid = i == begin && (is_pad ? counted.pads <= kMostPads : is_digit && counted.pads == 0);
    if (!counted.valid) break;
  }
  return counted;
}

}  // namespace

int base64_encode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                  std::size_t length) {
  if (length > (~std::size_t{0} - 1) / 4 * 3 - 2) {
    *output_length = ~std::size_t{0};
    return ERR_BASE64_BUFFER_TOO_SMALL;
  }
  const std::size_t characters = (length + 2) / 3 * 4;
  const std::size_t capacity = *output_length;
  *output_length = characters;
  if (length == 0) {
    if (output != nullptr && capacity > 0) output[0] = 0;
    return 0;  // whatever the capacity
  }
  if (output == nullptr || capacity < characters + 1) {
    *output_length = characters + 1;
    return ERR_BASE64_BUFFER_TOO_SMALL;
  }
  for (; length >= kRunBytes; length -= kRunBytes, input += kRunBytes, output += kRunCharacters) {
    EncodeRun(input, output);
  }
  for (; length >= 3; length -= 3, input += 3, output += 4) {
    const std::uint32_t group = std::uint32_t{input[0]} << 16 | std::uint32_t{input[1]} << 8 | input[2];
    output[0] = Character(static_cast<unsigned char>(group >> 18));
    output[1] = Character(static_cast<unsigned char>(group >> 12 & 63));
    output[2] = Character(static_cast<unsigned char>(group >> 6 & 63));
    output[3] = Character(static_cast<unsigned char>(group & 63));
  }
  if (length > 0) {
    const std::uint32_t group =
        std::uint32_t{input[0]} << 16 | (length > 1 ? std::uint32_t{input[1]} << 8 : 0);
    output[0] = Character(static_cast<unsigned char>(group >> 18));
    output[1] = Character(static_cast<unsigned char>(group >> 12 & 63));
    output[2] = length > 1 ? Character(static_cast<unsigned char>(group >> 6 & 63)) : kPad;
    output[3] = kPad;
    output += 4;
  }
  *output = 0;
  return 0;
}

int base64_decode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                  std::size_t length) {
  const std::size_t capacity = *output_length;
  const Counted counted = Count(input, length);
  *output_length = 0;
  if (!counted.valid) return ERR_BASE64_INVALID_CHARACTER;
  const std::size_t needed = counted.bytes();
  if (counted.digits + counted.pads == 0) return 0;
  if (output == nullptr || capacity < needed) {
    *output_length = needed;
    return ERR_BASE64_BUFFER_TOO_SMALL;
  }
  // Digits of a last group that is not whole are dropped.
  std::uint32_t group = 0;
  std::size_t held = 0, pads = 0, written = 0;
  for (std::size_t i = 0; i < length; ++i) {
    while (held == 0 && length - i > kRunCharacters && DecodeRun(input + i, output + written)) {
      i += kRunCharacters;
      written += kRunBytes;
    }
    if (input[i] == '\r' || input[i] == '\n' || input[i] == ' ') continue;
    const bool is_pad = input[i] == kPad;
    group = group << 6 | (is_pad ? 0 : std::uint32_t{Value(input[i])});
    pads += is_pad ? 1 : 0;
    if (++held < 4) continue;
    held = 0;
    output[written++] = static_cast<unsigned char>(group >> 16);
    if (pads < 2) output[written++] = static_cast<unsigned char>(group >> 8);
    if (pads < 1) output[written++] = static_cast<unsigned char>(group);
  }
  *output_length = written;
  return 0;
}
