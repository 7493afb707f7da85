// Base64. Private keys come in it, so what a character stands for is computed, not looked up: a table would tell through
// the cache which of its parts were read.
#include <cstdint>

#include "crypto/classic.h"

namespace {

constexpr unsigned char kPad = '=';
constexpr std::size_t kMostPads = 2;

// 1 for `least` <= value <= `most`; all below 2^31.
constexpr std::uint32_t IsBetween(std::uint32_t value, std::uint32_t least, std::uint32_t most) {
  return ((least - 1 - value) & (value - most - 1)) >> 31;
}

// `value`, below 64, as a character.
unsigned char Character(std::uint32_t value) {
  return static_cast<unsigned char>(value + 'A' + IsBetween(value, 26, 51) * ('a' - 'A' - 26) -
                                    IsBetween(value, 52, 61) * ('A' + 52 - '0') -
                                    IsBetween(value, 62, 62) * ('A' + 62 - '+') -
                                    IsBetween(value, 63, 63) * ('A' + 63 - '/'));
}

// What a character stands for plus 1, or 0 for one that stands for nothing.
std::uint32_t ValuePlusOne(std::uint32_t character) {
  return IsBetween(character, 'A', 'Z') * (character - 'A' + 1) +
         IsBetween(character, 'a', 'z') * (character - 'a' + 27) +
         IsBetween(character, '0', '9') * (character - '0' + 53) + IsBetween(character, '+', '+') * 63 +
         IsBetween(character, '/', '/') * 64;
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
    const std::size_t begin = i;
    while (i < length && input[i] == ' ') ++i;
    if (i == length) break;
    if (input[i] == '\n' || (input[i] == '\r' && i + 1 < length && input[i + 1] == '\n')) continue;
    const bool is_pad = input[i] == kPad;
    const bool is_digit = ValuePlusOne(input[i]) != 0;
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
  for (; length >= 3; length -= 3, input += 3, output += 4) {
    const std::uint32_t group = std::uint32_t{input[0]} << 16 | std::uint32_t{input[1]} << 8 | input[2];
    output[0] = Character(group >> 18);
    output[1] = Character(group >> 12 & 63);
    output[2] = Character(group >> 6 & 63);
    output[3] = Character(group & 63);
  }
  if (length > 0) {
    const std::uint32_t group =
        std::uint32_t{input[0]} << 16 | (length > 1 ? std::uint32_t{input[1]} << 8 : 0);
    output[0] = Character(group >> 18);
    output[1] = Character(group >> 12 & 63);
    output[2] = length > 1 ? Character(group >> 6 & 63) : kPad;
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
    if (input[i] == '\r' || input[i] == '\n' || input[i] == ' ') continue;
    const bool is_pad = input[i] == kPad;
    group = group << 6 | (is_pad ? 0 : ValuePlusOne(input[i]) - 1);
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
