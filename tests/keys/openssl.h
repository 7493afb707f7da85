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

// Around the cipher's block, the grain of installation files and the piece in which files pass.
inline const std::vector<std::size_t> kLengthsWorthTrying = {0,  1,  15, 16, 17,   31,    32,    33,
                                                             47, 48, 49, 95, 1024, 65535, 65536, 65537};

}  // namespace kestrune::testing

#endif
