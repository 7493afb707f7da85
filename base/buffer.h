// Who owns bytes: buffers from the C allocator, and arrays that hold a secret.
#ifndef KESTRUNE_BASE_BUFFER_H
#define KESTRUNE_BASE_BUFFER_H

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

#include "base/memory.h"
#include "base/wipe.h"

namespace kestrune {

// Bytes from the C allocator. `release()` hands them to a caller, who gives them to free(). The wiping
// kind is for keys, pads and clear text: every path out wipes.
template <bool kWiped>
class BasicCBuffer {
 public:
  BasicCBuffer() noexcept = default;
  BasicCBuffer(BasicCBuffer&& other) noexcept
      : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  BasicCBuffer& operator=(BasicCBuffer&& other) noexcept {
    if (this != &other) {
      Clear();
      bytes_ = std::exchange(other.bytes_, nullptr);
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }
  BasicCBuffer(const BasicCBuffer&) = delete;
  BasicCBuffer& operator=(const BasicCBuffer&) = delete;
  ~BasicCBuffer() { Clear(); }

  // `size` zeroed bytes, in place of what was held; false, holding nothing, when there is no memory. A
  // size of 0 gives a buffer too.
  [[nodiscard]] bool Allocate(std::size_t size) {
    Clear();
    bytes_ = static_cast<unsigned char*>(AllocateZeroed(size));
    size_ = bytes_ == nullptr ? 0 : size;
    return bytes_ != nullptr;
  }

  // The same with bytes of any value, for what is overwritten from end to end anyway.
  [[nodiscard]] bool AllocateUncleared(std::size_t size) {
    Clear();
    bytes_ = static_cast<unsigned char*>(kestrune::AllocateUncleared(size));
    size_ = bytes_ == nullptr ? 0 : size;
    return bytes_ != nullptr;
  }

  // Takes over `size` bytes from malloc, in place of what was held.
  void Adopt(void* bytes, std::size_t size) noexcept {
    Clear();
    bytes_ = static_cast<unsigned char*>(bytes);
    size_ = bytes == nullptr ? 0 : size;
  }

  void Clear() noexcept {
    if (kWiped && bytes_ != nullptr) wipe(bytes_, size_);
    std::free(bytes_);
    bytes_ = nullptr;
    size_ = 0;
  }

  [[nodiscard]] unsigned char* release() noexcept {
    size_ = 0;
    return std::exchange(bytes_, nullptr);
  }
  // Takes over a terminated text from malloc, or null; the terminator counts.
  void AdoptText(char* text) noexcept { Adopt(text, text == nullptr ? 0 : std::strlen(text) + 1); }

  [[nodiscard]] char* release_text() noexcept { return reinterpret_cast<char*>(release()); }

  unsigned char* data() noexcept { return bytes_; }
  const unsigned char* data() const noexcept { return bytes_; }
  char* text() noexcept { return reinterpret_cast<char*>(bytes_); }
  const char* text() const noexcept { return reinterpret_cast<const char*>(bytes_); }
  std::size_t size() const noexcept { return size_; }
  std::span<unsigned char> span() noexcept { return {bytes_, size_}; }
  std::span<const unsigned char> span() const noexcept { return {bytes_, size_}; }
  explicit operator bool() const noexcept { return bytes_ != nullptr; }

  // For functions that hand their result out through two pointers: what they wrote becomes ours.
  template <class Call>
  auto Receive(Call&& call) {
    unsigned char* bytes = nullptr;
    unsigned long long size = 0;
    const auto rc = call(&bytes, &size);
    Adopt(bytes, static_cast<std::size_t>(size));
    return rc;
  }
  // For those that hand out a terminated text.
  template <class Call>
  auto ReceiveText(Call&& call) {
    char* text = nullptr;
    const auto rc = call(&text);
    AdoptText(text);
    return rc;
  }

 private:
  unsigned char* bytes_ = nullptr;
  std::size_t size_ = 0;
};

using CBuffer = BasicCBuffer<false>;
using SecretCBuffer = BasicCBuffer<true>;

// N zeroed bytes that are wiped when they go.
template <std::size_t N>
class SecretArray {
 public:
  SecretArray() noexcept : bytes_{} {}
  SecretArray(const SecretArray&) = delete;
  SecretArray& operator=(const SecretArray&) = delete;
  ~SecretArray() { Wipe(); }

  void Wipe() noexcept { wipe(bytes_.data(), N); }
  unsigned char* data() noexcept { return bytes_.data(); }
  const unsigned char* data() const noexcept { return bytes_.data(); }
  char* text() noexcept { return reinterpret_cast<char*>(bytes_.data()); }
  const char* text() const noexcept { return reinterpret_cast<const char*>(bytes_.data()); }
  static constexpr std::size_t size() noexcept { return N; }

 private:
  std::array<unsigned char, N> bytes_;
};

}  // namespace kestrune

#endif
