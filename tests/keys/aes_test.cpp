#include "keys/aes.h"

#include <gtest/gtest.h>

#include "examples/key_files.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

// Over pieces and whole files the cipher is compared by the tests of its users.
TEST(Aes, CiphersTheLow32BitsOfALengthAndMovesTheIvOnInChunksOnly) {
  TypV2AES aes;
  const Bytes key = PadOf(32, 1), iv = PadOf(16, 2), text = PadOf(8192, 3);
  Bytes witness = text;
  AesCbc(true, key.data(), iv.data(), witness.data(), witness.size());
  struct Row {
    long long length;
    int want;
    std::size_t bytes;
  };
  for (const Row& row : {Row{8192, 0, 8192}, Row{0, 0, 0}, Row{4097, -2064, 0}, Row{-16, -2064, 0},
                         Row{1LL << 31, -2064, 0}, Row{(1LL << 32) + 16, 0, 16}}) {
    Bytes want(8192, 0xee), out = want, state = iv, moved = iv;
    std::copy_n(witness.begin(), row.bytes, want.begin());
    EXPECT_EQ(aes.crypter(text.data(), row.length, state.data(), key.data(), out.data()), row.want);
    EXPECT_EQ(out, want) << row.length;
    EXPECT_EQ(aes.decryptershunk(out.data(), row.length, moved.data(), key.data(), out.data()), row.want);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + static_cast<long>(row.bytes), text.begin()));
    EXPECT_EQ(aes.decrypter(witness.data(), row.length, state.data(), key.data(), out.data()), row.want);
    EXPECT_EQ(state, iv);
    EXPECT_EQ(moved, row.bytes == 0 ? iv : Bytes(&want[row.bytes - 16], &want[row.bytes - 16] + 16));
  }
}

}  // namespace
}  // namespace kestrune::testing
