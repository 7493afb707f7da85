// OpenSSL as outside witness of AES-256-CBC, and what it is asked about.
#ifndef KESTRUNE_TESTS_KEYS_OPENSSL_H
#define KESTRUNE_TESTS_KEYS_OPENSSL_H

#include <string>
#include <vector>

#include "examples/key_files.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

inline const std::string kZeroIv(32, '0');

inline std::string Aes256Cbc(bool encipher, const std::string& input, const std::string& key,
                             const std::string& iv = kZeroIv) {
  Bytes bytes = ToBytes(input);
  AesCbc(encipher, FromHex(key).data(), FromHex(iv).data(), bytes.data(), bytes.size());
  return ToText(bytes);
}

// `count` letters, their period prime to a block.
inline std::string Sample(std::size_t count) {
  std::string text;
  while (text.size() < count) text.push_back(static_cast<char>('a' + text.size() % 23));
  return text;
}

inline std::vector<std::size_t> LengthsWorthTrying() {
  std::vector<std::size_t> lengths = {1023, 1024, 1025, 2048, 65535, 65536, 65537};
  for (std::size_t length = 0; length <= 100; ++length) lengths.push_back(length);
  return lengths;
}

}  // namespace kestrune::testing

#endif
