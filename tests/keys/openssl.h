// The openssl command as outside witness.
#ifndef KESTRUNE_TESTS_KEYS_OPENSSL_H
#define KESTRUNE_TESTS_KEYS_OPENSSL_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/process.h"

namespace kestrune::testing {

inline const std::string kZeroIv(32, '0');

inline std::string Openssl(std::vector<std::string> words, const std::string& input) {
  words.insert(words.begin(), "openssl");
  const ProcessResult result = RunProgram(words, input);
  EXPECT_EQ(result.status, 0) << result.err;
  return result.out;
}

inline std::string Aes256Cbc(const std::string& direction, const std::string& input, const std::string& key,
                             const std::string& iv = kZeroIv) {
  return Openssl({"enc", "-aes-256-cbc", "-nopad", direction, "-K", key, "-iv", iv}, input);
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
