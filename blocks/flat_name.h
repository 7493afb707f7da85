// What the first cell of a flat tree is called.
#ifndef KESTRUNE_BLOCKS_FLAT_NAME_H
#define KESTRUNE_BLOCKS_FLAT_NAME_H

#include <cstddef>
#include <string_view>

namespace kestrune {

// Empty when the bytes are too few for a cell, or state more characters than a name has. Neither lengths nor digest
// are looked at.
inline std::string_view NameOfFlatTree(const unsigned char* flat, unsigned long long length) {
  constexpr std::size_t kHeadBytes = 24;
  constexpr std::size_t kNameLengthAt = 2, kNameAt = 3, kMostCharacters = 5;
  if (flat == nullptr || length < kHeadBytes || flat[kNameLengthAt] > kMostCharacters) return {};
  return {reinterpret_cast<const char*>(flat) + kNameAt, flat[kNameLengthAt]};
}

}  // namespace kestrune

#endif
