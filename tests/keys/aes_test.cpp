#include "keys/aes.h"

#include <gtest/gtest.h>

#include "examples/key_files.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

struct AesTest : ::testing::Test {
  TypV2AES aes;
  const Bytes key = PadOf(32, 1);
  const Bytes iv = PadOf(16, 2);
  const Bytes text = PadOf(8192, 3);
  Bytes witness = text;
  void SetUp() override { AesCbc(true, key.data(), iv.data(), witness.data(), witness.size()); }
};

TEST_F(AesTest, IsCbcInPlaceAndApartAndByPieces) {
  Bytes out(8192), state = iv, in_place = text;
  ASSERT_EQ(aes.crypter(in_place.data(), 8192, state.data(), key.data(), in_place.data()), 0);
  EXPECT_EQ(in_place, witness);
  EXPECT_EQ(state, iv);
  for (const bool encipher : {true, false}) {
    state = iv;
    for (const int at : {0, 4096}) {
      ASSERT_EQ(encipher ? aes.cryptershunk(&text[at], 4096, state.data(), key.data(), &out[at])
                         : aes.decryptershunk(&witness[at], 4096, state.data(), key.data(), &out[at]),
                0);
    }
    EXPECT_EQ(out, encipher ? witness : text);
    EXPECT_EQ(state, Bytes(witness.end() - 16, witness.end()));
  }
  ASSERT_EQ(aes.decrypter(in_place.data(), 8192, iv.data(), key.data(), in_place.data()), 0);
  EXPECT_EQ(in_place, text);
}

TEST_F(AesTest, TakesTheLow32BitsOfALength) {
  struct Row {
    long long length;
    int want;
    std::size_t bytes;
  };
  for (const Row& row : {Row{0, 0, 0}, Row{15, -2064, 0}, Row{4097, -2064, 0}, Row{-16, -2064, 0},
                         Row{1LL << 31, -2064, 0}, Row{(1LL << 32) + 16, 0, 16}, Row{1LL << 32, 0, 0}}) {
    Bytes want(8192, 0xee), out = want;
    std::copy_n(witness.begin(), row.bytes, want.begin());
    EXPECT_EQ(aes.crypter(text.data(), row.length, iv.data(), key.data(), out.data()), row.want)
        << row.length;
    EXPECT_EQ(out, want) << row.length;
  }
}

}  // namespace
}  // namespace kestrune::testing
