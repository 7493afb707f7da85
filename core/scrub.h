// Overwriting working copies of clear text with drawn bytes.
//
// How many bytes are drawn, and when, is part of the contract: every draw changes the keys and IVs that a process
// draws later.
#ifndef KESTRUNE_CORE_SCRUB_H
#define KESTRUNE_CORE_SCRUB_H

#include <cstring>
#include <span>

#include "core/random.h"

namespace kestrune {

// How much of a buffer is overwritten.
enum class Scrub {
  kAll,
  kAllButTerminator,  // all but its last byte
  kUpToDrawnZero,     // the text in it; a zero that is drawn ends that, and the scrubbing with it
};

// Scrubs, at the end of its life, what a buffer holds then; nothing when it is empty. Stands behind the buffer, which
// has a `span()` of its bytes.
template <class Buffer>
class ScrubAtEnd {
 public:
  ScrubAtEnd(Buffer& buffer, Scrub extent) : buffer_(buffer), extent_(extent) {}
  ScrubAtEnd(const ScrubAtEnd&) = delete;
  ScrubAtEnd& operator=(const ScrubAtEnd&) = delete;
  ~ScrubAtEnd() {
    const std::span<unsigned char> bytes = buffer_.span();
    if (bytes.empty()) return;
    if (extent_ == Scrub::kUpToDrawnZero) {
      UpToDrawnZero(bytes);
    } else {
      ScrubWithRandom(bytes.data(), bytes.size() - (extent_ == Scrub::kAll ? 0 : 1));
    }
  }

 private:
  static void UpToDrawnZero(std::span<unsigned char> bytes) {
    const std::size_t length = ::strnlen(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (unsigned char& byte : bytes.first(length)) {
      byte = static_cast<unsigned char>(DrawRandom());
      if (byte == 0) return;
    }
  }

  Buffer& buffer_;
  const Scrub extent_;
};

}  // namespace kestrune

#endif
