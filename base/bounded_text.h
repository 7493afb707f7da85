// Texts in memory of a fixed size.
#ifndef KESTRUNE_BASE_BOUNDED_TEXT_H
#define KESTRUNE_BASE_BOUNDED_TEXT_H

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace kestrune {

// Copies `text` with its terminator into an array of N characters; the caller has compared the length.
template <std::size_t N>
void CopyText(std::array<char, N>& destination, std::string_view text) noexcept {
  std::memcpy(destination.data(), text.data(), text.size());
  destination[text.size()] = 0;
}

// True for a text that is there and has fewer than `limit` characters; reads at most `limit` of them.
inline bool IsShorterThan(const char* text, std::size_t limit) noexcept {
  return text != nullptr && ::strnlen(text, limit) < limit;
}

}  // namespace kestrune

#endif
