// The growing text in which mail is composed.
#ifndef KESTRUNE_MAIL_TEXT_BUFFER_H
#define KESTRUNE_MAIL_TEXT_BUFFER_H

#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "core/owned.h"

namespace kestrune::mail {

// A text that grows as it is appended to, always zero-terminated. It holds clear text: what it leaves
// behind when it grows, is replaced or ends is wiped. Where there is no memory, std::bad_alloc is thrown
// (the entry points turn it into -96) and the text is what it was.
class TextBuffer {
 public:
  TextBuffer() = default;

  // Makes room for `count` more characters, so that appending them moves nothing; in a new text for exactly
  // as many.
  void Reserve(std::size_t count);

  void Append(std::string_view text) {
    if (!text.empty()) std::memcpy(Extend(text.size()), text.data(), text.size());
  }

  // Lengthens the text by `count` characters and returns where they begin; the caller writes them all.
  char* Extend(std::size_t count) {
    if (!bytes_ || count > capacity() - size_) Grow(count);
    char* const begin = bytes_.text() + size_;
    size_ += count;
    bytes_.text()[size_] = 0;
    return begin;
  }

  // Shortens the text to `count` characters, which it has.
  void Truncate(std::size_t count) noexcept {
    size_ = count;
    if (bytes_) bytes_.text()[size_] = 0;
  }

  // Takes over a block of `bytes` from malloc, in place of what was held; its text is what stands before its
  // first zero byte, but all of it is wiped in the end.
  void Adopt(char* block, std::size_t bytes) noexcept {
    size_ = std::strlen(block);
    bytes_.Adopt(block, bytes);
  }

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  std::span<unsigned char> span() noexcept { return bytes_.span().first(size_); }
  std::string_view view() const noexcept { return {c_str(), size_}; }
  const char* c_str() const noexcept { return bytes_ ? bytes_.text() : ""; }

  // Hands the text out: zero-terminated, from malloc, never null.
  [[nodiscard]] char* release();

 private:
  std::size_t capacity() const noexcept { return bytes_ ? bytes_.size() - 1 : 0; }
  void Grow(std::size_t count);
  void Move(std::size_t new_capacity);

  SecretCBuffer bytes_;
  std::size_t size_ = 0;
};

}  // namespace kestrune::mail

#endif
