#include "crypto/padding.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/system_random.h"
#include "crypto/classic.h"

namespace kestrune::crypto {
namespace {

constexpr unsigned char kForSignature = 1, kForEncryption = 2;  // block types
constexpr unsigned char kSignatureFill = 0xFF;
constexpr std::size_t kPaddingBegin = 2;
constexpr std::size_t kLeastPadding = 8;

std::span<unsigned char> LayOut(unsigned char type, std::span<const unsigned char> bytes,
                                std::span<unsigned char> block) {
  const std::size_t separator = block.size() - bytes.size() - 1;
  block[0] = 0;
  block[1] = type;
  block[separator] = 0;
  std::copy(bytes.begin(), bytes.end(), block.begin() + static_cast<std::ptrdiff_t>(separator) + 1);
  return block.subspan(kPaddingBegin, separator - kPaddingBegin);
}

// ---- Without branches ------------------------------------------------------------------------------

// Numbers below 2^32, and masks: all bits set for true, none for false.
using Mask = std::uint32_t;

// The value, of which the compiler can know nothing: it must not turn masks back into branches.
Mask Hidden(Mask value) {
  asm volatile("" : "+r"(value));
  return value;
}

Mask IsZero(Mask number) {
  return Hidden(((number | (0 - number)) >> 31) - 1);
}

Mask IsLess(Mask a, Mask b) {  // both below 2^31
  return Hidden(0 - ((a - b) >> 31));
}

Mask Choose(Mask mask, Mask if_true, Mask if_false) {
  return (if_true & mask) | (if_false & ~mask);
}

// Moves the bytes down by `distance`, by the powers of two that make it up, each move done or seemingly done.
void MoveDown(std::span<unsigned char> bytes, Mask distance) {
  for (std::size_t step = 1; step <= bytes.size(); step *= 2) {
    const Mask keep = IsZero(distance & static_cast<Mask>(step));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const Mask moved = i + step < bytes.size() ? bytes[i + step] : 0;
      bytes[i] = static_cast<unsigned char>(Choose(keep, bytes[i], moved));
    }
  }
}

}  // namespace

bool FitsBlock(std::size_t length, std::size_t block_length) {
  return block_length >= kPkcs1PaddingBytes && length <= block_length - kPkcs1PaddingBytes;
}

void PadForSignature(std::span<const unsigned char> bytes, std::span<unsigned char> block) {
  const std::span<unsigned char> padding = LayOut(kForSignature, bytes, block);
  std::fill(padding.begin(), padding.end(), kSignatureFill);
}

bool PadForEncryption(std::span<const unsigned char> bytes, std::span<unsigned char> block) {
  const std::span<unsigned char> padding = LayOut(kForEncryption, bytes, block);
  if (!kestrune::DrawFromSystem(padding.data(), padding.size())) return false;
  for (unsigned char& byte : padding) {
    while (byte == 0) {
      if (!kestrune::DrawFromSystem(&byte, 1)) return false;
    }
  }
  return true;
}

int Unpad(std::span<unsigned char> block, unsigned char* output, std::size_t output_max,
          std::size_t* output_length) {
  const auto size = static_cast<Mask>(block.size());
  Mask bad = ~IsZero(block[0]) | ~IsZero(block[1] ^ kForEncryption);
  Mask in_padding = ~Mask{0}, padding = 0;
  for (std::size_t i = kPaddingBegin; i < block.size(); ++i) {
    in_padding &= ~IsZero(block[i]);
    padding += in_padding & 1;
  }
  bad |= in_padding | IsLess(padding, kLeastPadding);

  // What could come out stands at the end of the block; of a bad block all of it is taken, as zeros.
  const std::size_t most = std::min(output_max, block.size() - kPkcs1PaddingBytes);
  const std::span<unsigned char> room = block.last(most);
  Mask length = Choose(bad, 0, size - padding - Mask{kPaddingBegin} - 1);
  const Mask too_long = IsLess(static_cast<Mask>(most), length);
  length &= ~too_long;
  const Mask refused = bad | too_long;
  for (unsigned char& byte : room) byte &= static_cast<unsigned char>(~refused);
  MoveDown(room, static_cast<Mask>(most) - length);
  if (most > 0) std::memcpy(output, room.data(), most);
  *output_length = length;
  return -static_cast<int>(Choose(bad, -ERR_RSA_INVALID_PADDING, too_long & Mask{-ERR_RSA_OUTPUT_TOO_LARGE}));
}

}  // namespace kestrune::crypto
