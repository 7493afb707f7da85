// Deciding about secret bytes without a branch.
#ifndef KESTRUNE_BASE_BYTE_MASK_H
#define KESTRUNE_BASE_BYTE_MASK_H

namespace kestrune {

// All bits for true, none for false. Small enough for the compiler to do many at once.
using ByteMask = unsigned char;

constexpr ByteMask IsBetween(unsigned char value, unsigned char least, unsigned char most) {
  return static_cast<ByteMask>(-static_cast<int>(static_cast<unsigned char>(value - least) <= most - least));
}

}  // namespace kestrune

#endif
