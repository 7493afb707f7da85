// Who owns what: one owner for objects, one for buffers, one for arrays that hold a secret.
#ifndef KESTRUNE_CORE_OWNED_H
#define KESTRUNE_CORE_OWNED_H

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "core/memory.h"
#include "core/object.h"
#include "core/result.h"
#include "crypto/classic.h"

namespace kestrune {

// An object of the library from the factory to its deletion: `Kill` runs only after an `InitCreate` that
// returned kOk, the deletion always.
//   Owned<TypV2Utils> utils(creator->newTypV2Utils());
//   if (Result rc = utils.Init(); rc != kOk) return rc;
template <class T>
class Owned {
 public:
  Owned() noexcept = default;
  explicit Owned(T* made) noexcept : object_(made) {}
  Owned(Owned&& other) noexcept : object_(other.object_), live_(other.live_) { other.Forget(); }
  Owned& operator=(Owned&& other) noexcept {
    if (this != &other) {
      Reset();
      object_ = other.object_;
      live_ = other.live_;
      other.Forget();
    }
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { Reset(); }

  // `InitCreate` with these arguments; kNoObject when the factory refused.
  template <class... Args>
  [[nodiscard]] Result Init(Args&&... args) {
    if (object_ == nullptr) return kNoObject;
    Result rc;
    if constexpr (requires { object_->initCreate(std::forward<Args>(args)...); }) {
      rc = object_->initCreate(std::forward<Args>(args)...);
    } else {
      rc = object_->InitCreate(std::forward<Args>(args)...);
    }
    live_ = rc == kOk;
    return rc;
  }

  // Takes over an initialised object (null: none), in place of what was held.
  void Adopt(T* initialised) noexcept {
    Reset();
    object_ = initialised;
    live_ = initialised != nullptr;
  }

  // Ends the object now: `Kill` where it is due, then deletion.
  void Reset() noexcept {
    if (object_ == nullptr) return;
    if (live_) KillObject();
    DeleteObject(object_);
    Forget();
  }

  // Hands the object out; the caller kills and deletes it.
  [[nodiscard]] T* Release() noexcept {
    T* object = object_;
    Forget();
    return object;
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  void KillObject() {
    if constexpr (requires { object_->kill(); }) {
      object_->kill();
    } else {
      object_->Kill();
    }
  }
  void Forget() noexcept {
    object_ = nullptr;
    live_ = false;
  }

  T* object_ = nullptr;
  bool live_ = false;
};

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

  unsigned char* data() const noexcept { return bytes_; }
  char* text() const noexcept { return reinterpret_cast<char*>(bytes_); }
  std::size_t size() const noexcept { return size_; }
  std::span<unsigned char> span() const noexcept { return {bytes_, size_}; }
  explicit operator bool() const noexcept { return bytes_ != nullptr; }

  // For functions that hand their result out through two pointers: what they wrote becomes ours.
  template <class Call>
  Result Receive(Call&& call) {
    unsigned char* bytes = nullptr;
    unsigned long long size = 0;
    const Result rc = call(&bytes, &size);
    Adopt(bytes, static_cast<std::size_t>(size));
    return rc;
  }
  // For those that hand out a terminated text.
  template <class Call>
  Result ReceiveText(Call&& call) {
    char* text = nullptr;
    const Result rc = call(&text);
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
