// The text of a key or certificate file. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_KEY_TEXT_H
#define KESTRUNE_CRYPTO_KEY_TEXT_H

#include <cstddef>
#include <span>
#include <string_view>

#include "base/buffer.h"

namespace kestrune::crypto {

// A whole small file: PEM, or else DER.
class KeyText {
 public:
  explicit KeyText(const char* path);

  // False when there is no such regular file, when it is empty or larger than any key, or without memory.
  bool complete() const { return complete_; }
  std::span<const unsigned char> bytes() const { return bytes_.span().first(bytes_.size() - 1); }
  // The only reason that is no fault of the file.
  bool lacks_memory() const { return lacks_memory_; }
  // What stands before the first zero.
  std::string_view text() const { return bytes_.text(); }

 private:
  SecretCBuffer bytes_;  // and a zero
  bool complete_ = false;
  bool lacks_memory_ = false;
};

}  // namespace kestrune::crypto

#endif
