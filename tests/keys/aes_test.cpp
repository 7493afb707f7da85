#include "keys/aes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "examples/key_files.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

// Pieces and whole files are compared by the tests of those who cipher them.
TEST(Aes, TakesTheLow32BitsOfALength) {
  TypV2AES aes;
  const Bytes key = PadOf(32, 1), iv = PadOf(16, 2);
  Bytes text = PadOf(8192, 3), witness = text;
  AesCbc(true, key.data(), iv.data(), witness.data(), witness.size());
  const std::tuple<long long, int, long> rows[] = {
      {4097, -2064, 0}, {-16, -2064, 0}, {1LL << 31, -2064, 0}, {(1LL << 32) + 16, 0, 16}, {1LL << 32, 0, 0}};
  for (const auto& [length, want, bytes] : rows) {
    Bytes sealed(8192, 0xee), opened = sealed;
    EXPECT_EQ(aes.crypter(text.data(), length, iv.data(), key.data(), sealed.data()), want) << length;
    EXPECT_EQ(aes.decrypter(witness.data(), length, iv.data(), key.data(), opened.data()), want) << length;
    for (const auto& [out, in] : {std::pair(&sealed, &witness), std::pair(&opened, &text)}) {
      EXPECT_TRUE(std::equal(in->begin(), in->begin() + bytes, out->begin()));
      EXPECT_EQ(std::count(out->begin() + bytes, out->end(), 0xee), 8192 - bytes) << length;
    }
  }
}

}  // namespace
}  // namespace kestrune::testing
