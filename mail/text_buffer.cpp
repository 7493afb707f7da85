#include "mail/text_buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

namespace kestrune::mail {

namespace {

constexpr std::size_t kLeastCapacity = 256;

}  // namespace

void TextBuffer::Reserve(std::size_t count) {
  if (!bytes_) {
    Move(count);
  } else if (count > capacity() - size_) {
    Grow(count);
  }
}

char* TextBuffer::release() {
  if (!bytes_) Move(0);
  size_ = 0;
  return bytes_.release_text();
}

// Doubling keeps appending linear.
void TextBuffer::Grow(std::size_t count) {
  if (count >= SIZE_MAX / 2 - size_) throw std::bad_alloc();
  const std::size_t needed = size_ + count;
  const std::size_t doubled = capacity() < SIZE_MAX / 4 ? 2 * capacity() : needed;
  Move(std::max({needed, doubled, kLeastCapacity}));
}

void TextBuffer::Move(std::size_t new_capacity) {
  if (new_capacity == SIZE_MAX) throw std::bad_alloc();
  SecretCBuffer larger;
  if (!larger.Allocate(new_capacity + 1)) throw std::bad_alloc();
  if (size_ != 0) std::memcpy(larger.data(), bytes_.data(), size_);
  bytes_ = std::move(larger);
}

}  // namespace kestrune::mail
