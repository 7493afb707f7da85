// Texts in memory of a fixed size.
#ifndef KESTRUNE_BASE_BOUNDED_TEXT_H
#define KESTRUNE_BASE_BOUNDED_TEXT_H

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <initializer_list>
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

// Copies a text that is there and fits. False otherwise, and `destination` is as it was.
template <std::size_t N>
[[nodiscard]] bool CopyTextThatFits(std::array<char, N>& destination, const char* text) noexcept {
  if (!IsShorterThan(text, N)) return false;
  CopyText(destination, text);
  return true;
}

// A path put together from pieces, in a memory of its own. What goes beyond the longest path that a system takes
// is cut off; the rest is still too long, so that nothing is ever opened under it.
class BoundedPath {
 public:
  BoundedPath(std::initializer_list<std::string_view> pieces) noexcept {
    for (const std::string_view piece : pieces) {
      const std::size_t count = std::min(piece.size(), kMostCharacters - length_);
      std::memcpy(text_.data() + length_, piece.data(), count);
      length_ += count;
    }
    text_[length_] = 0;
  }

  const char* c_str() const noexcept { return text_.data(); }

 private:
  static constexpr std::size_t kMostCharacters = PATH_MAX;  // one more than fits, the terminator counted

  std::array<char, kMostCharacters + 1> text_;
  std::size_t length_ = 0;
};

}  // namespace kestrune

#endif
