// Who owns the bytes of a cell's fork.
#ifndef KESTRUNE_BLOCKS_FORK_H
#define KESTRUNE_BLOCKS_FORK_H

#include <cstdlib>
#include <cstring>

#include "base/memory.h"
#include "base/wipe.h"

namespace kestrune {

// Bytes of its own, wiped when they go, or lent ones, which stay somebody else's and are only ever read. A
// length without bytes is what a record from outside announced when reading its fork failed.
class Fork {
 public:
  Fork() noexcept = default;
  Fork(const Fork&) = delete;
  Fork& operator=(const Fork&) = delete;
  ~Fork() { Clear(); }

  unsigned char* data() noexcept { return bytes_; }
  const unsigned char* data() const noexcept { return bytes_; }
  unsigned long long length() const noexcept { return length_; }
  bool HasBytes() const noexcept { return bytes_ != nullptr && length_ != 0; }

  // Each in place of what was held.
  void Clear() noexcept {
    if (bytes_ != nullptr && !is_lent_) {
      wipe(bytes_, length_);
      std::free(bytes_);
    }
    bytes_ = nullptr;
    length_ = 0;
    is_lent_ = false;
  }
  void Announce(unsigned long long length) noexcept {
    Clear();
    length_ = length;
  }
  void Lend(const unsigned char* bytes, unsigned long long length) noexcept {
    Clear();
    bytes_ = length == 0 ? nullptr : const_cast<unsigned char*>(bytes);
    length_ = length;
    is_lent_ = length != 0;
  }
  // The bytes may be the fork's own. False, and the fork as it was, when there is no memory.
  [[nodiscard]] bool Copy(const void* bytes, unsigned long long length) noexcept {
    unsigned char* copy = nullptr;
    if (length != 0) {
      copy = static_cast<unsigned char*>(AllocateUncleared(length));
      if (copy == nullptr) return false;
      std::memcpy(copy, bytes, length);
    }
    Clear();
    bytes_ = copy;
    length_ = length;
    return true;
  }

 private:
  unsigned char* bytes_ = nullptr;
  unsigned long long length_ = 0;
  bool is_lent_ = false;
};

}  // namespace kestrune

#endif
