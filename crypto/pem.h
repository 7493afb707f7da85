// PEM (RFC 7468), protected in the traditional way (RFC 1421) or not. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_PEM_H
#define KESTRUNE_CRYPTO_PEM_H

#include <cstddef>
#include <string_view>

#include "base/buffer.h"
#include "crypto/pass_phrase.h"

namespace kestrune::crypto {

enum class PemRead {
  kAbsent,  // no such part
  kFaulty,  // it is there, but is none
  kNoMemory,
  kPassPhrase,  // the pass phrase is missing
  kDone,
};

// What stands between the BEGIN and END lines of the first part with this label, deciphered where it is protected.
struct PemPart {
  SecretCBuffer der;
  bool was_protected = false;
  std::size_t end = 0;  // where the text goes on behind it, for kFaulty and kDone

  PemRead Read(std::string_view text, std::string_view label, const PassPhrase& phrase);
};

}  // namespace kestrune::crypto

#endif
