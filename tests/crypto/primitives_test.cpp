#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "crypto/classic.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

Bytes Pattern(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(i * 31 + i / 256);
  return bytes;
}

Bytes WitnessDigest(const EVP_MD* kind, const Bytes& bytes) {
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(kind)));
  EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, kind, nullptr), 1);
  return digest;
}

// Lengths on both sides of every block and padding boundary; one digest goes on from the middle of another.
TEST(Hashes, AgreeWithTheWitness) {
  for (const std::size_t length : {0, 1, 55, 56, 63, 64, 65, 111, 112, 127, 128, 129, 5000}) {
    const Bytes bytes = Pattern(length);
    const std::size_t cut = length / 3;
    Bytes steps(64), once(20);
    sha4_context begun, cloned;
    sha4_starts(&begun, 0);
    sha4_update(&begun, bytes.data(), cut);
    sha4_clone(&cloned, &begun);
    sha4_update(&begun, bytes.data(), cut);
    sha4_update(&cloned, bytes.data() + cut, length - cut);
    sha4_finish(&cloned, steps.data());
    EXPECT_EQ(steps, WitnessDigest(EVP_sha512(), bytes)) << length;
    sha1(bytes.data(), length, once.data());
    EXPECT_EQ(once, WitnessDigest(EVP_sha1(), bytes)) << length;
  }
}

TEST(Aes, LeavesNoScheduleOfAKeyThatWasRefused) {
  const Bytes key = Pattern(32);
  Bytes iv(16), block(17);
  aes_context context;
  const auto cipher = [&](std::size_t length) {
    return aes_crypt_cbc(&context, AES_ENCRYPT, length, iv.data(), block.data(), block.data());
  };
  EXPECT_EQ(cipher(16), -2048);
  EXPECT_EQ(aes_setkey_enc(&context, key.data(), 256), 0);
  EXPECT_EQ(cipher(17), -2064);
  EXPECT_EQ(block, Bytes(17));
  EXPECT_EQ(aes_setkey_enc(&context, key.data(), 100), -2048);
  EXPECT_EQ(cipher(16), -2048);
}

TEST(Base64, AgreesWithTheWitness) {
  for (std::size_t length = 0; length < 70; ++length) {
    const Bytes bytes = Pattern(length);
    Bytes want(100), out(100, '?'), back(100);
    want.resize(
        static_cast<std::size_t>(EVP_EncodeBlock(want.data(), bytes.data(), static_cast<int>(length))));
    std::size_t characters = want.size() + 1;
    ASSERT_EQ(base64_encode(out.data(), &characters, bytes.data(), length), 0);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(characters)), want);
    EXPECT_EQ(out[characters], 0);
    std::size_t size = length;
    EXPECT_EQ(base64_decode(back.data(), &size, out.data(), characters), 0);
    back.resize(size);
    EXPECT_EQ(back, bytes);
    if (length == 0) continue;
    characters = want.size();  // no room for the terminator
    EXPECT_EQ(base64_encode(out.data(), &characters, bytes.data(), length), -16);
    EXPECT_EQ(characters, want.size() + 1);
    size = length - 1;
    EXPECT_EQ(base64_decode(back.data(), &size, want.data(), want.size()), -16);
    EXPECT_EQ(size, length);
  }
}

TEST(Base64, DecodesWhatIsBase64Alone) {
  const struct {
    const char* text;
    int rc;
    const char* content;
  } rows[] = {{"YWJj\nZGU=", 0, "abcde"},
              {"YWJj\r\nZGU=\r\n", 0, "abcde"},
              {"\n\n", 0, ""},
              {"", 0, ""},
              {"YW Jj", -18, ""},
              {"YWJ-", -18, ""},
              {"YQ===", -18, ""},
              {"YQ=a", -18, ""},
              {"YWJj\rZGU=", -18, ""},
              {"YWJj\xC3\xA9", -18, ""}};
  for (const auto& row : rows) {
    unsigned char out[32];
    std::size_t size = sizeof out;
    const std::string text = row.text;
    const int rc =
        base64_decode(out, &size, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    EXPECT_EQ(rc, row.rc) << row.text;
    EXPECT_EQ(std::string(out, out + size), row.content) << row.text;
  }
}

TEST(Rsa, RefusesWithoutAKeyAndBeyondItsSize) {
  constexpr std::size_t kModulus = 128;
  Bytes buffer(kModulus, 0xff);  // as a number, not below the modulus
  rsa_context key;
  std::size_t length = 9;
  const auto sign = [&](std::size_t count) {
    return rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW, count, buffer.data(), buffer.data());
  };
  EXPECT_EQ(rsa_check_privkey(&key), -1072);
  EXPECT_EQ(rsa_public(&key, buffer.data(), buffer.data()), -1088);
  EXPECT_EQ(rsa_pkcs1_decrypt(&key, RSA_PRIVATE, &length, buffer.data(), buffer.data(), kModulus), -1024);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(sign(1), -1024);
  ASSERT_EQ(x509parse_keyfile(&key, DataPath("rsa1024.key").c_str(), nullptr), 0);
  for (const std::size_t count : {kModulus - kPkcs1PaddingBytes + 1, ~std::size_t{0}, ~std::size_t{0} - 10}) {
    EXPECT_EQ(sign(count), -1024);
  }
  EXPECT_EQ(rsa_public(&key, buffer.data(), buffer.data()), -1088);
  EXPECT_EQ(rsa_private(&key, buffer.data(), buffer.data()), -1104);
  EXPECT_EQ(rsa_pkcs1_verify(&key, RSA_PUBLIC, SIG_RSA_RAW, ~std::size_t{0}, buffer.data(), buffer.data()),
            -1024);
}

}  // namespace
}  // namespace kestrune::testing
