#include <gtest/gtest.h>
#include <openssl/err.h>

#include <string>

#include "crypto/classic.h"
#include "tests/support/bytes.h"
#include "tests/support/rows.h"

namespace kestrune::testing {
namespace {

TEST(Aes, LeavesNoScheduleOfAKeyThatWasRefused) {
  const Bytes key(32, 'k');
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
  for (std::size_t length = 1; length < 70; ++length) {
    Bytes bytes(length), out(100, '?'), back(100);
    for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(i * 31 + length);
    const std::string want = ToBase64(ToText(bytes));
    std::size_t characters = want.size();  // no room for the terminator
    EXPECT_EQ(base64_encode(out.data(), &characters, bytes.data(), length), -16);
    EXPECT_EQ(characters, want.size() + 1);
    ASSERT_EQ(base64_encode(out.data(), &characters, bytes.data(), length), 0);
    EXPECT_EQ(characters, want.size());
    EXPECT_STREQ(reinterpret_cast<char*>(out.data()), want.c_str());
    std::size_t size = length - 1;
    EXPECT_EQ(base64_decode(back.data(), &size, out.data(), characters), -16);
    EXPECT_EQ(size, length);
    EXPECT_EQ(base64_decode(back.data(), &size, out.data(), characters), 0);
    back.resize(size);
    EXPECT_EQ(back, bytes);
  }
}

TEST(Base64, DecodesWhatIsBase64Alone) {
  for (const auto& [text, code, content] : Rows<3>("crypto.txt", "base64")) {
    unsigned char out[32];
    std::size_t size = sizeof out;
    const Bytes exact = ToBytes(text);
    EXPECT_EQ(base64_decode(out, &size, exact.data(), exact.size()), Number(code)) << text;
    EXPECT_EQ(std::string(out, out + size), content) << text;
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
  EXPECT_EQ(rsa_pkcs1_sign(&key, RSA_PUBLIC, SIG_RSA_RAW, 1, buffer.data(), buffer.data()), -1024);
  EXPECT_EQ(rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW + 1, 1, buffer.data(), buffer.data()), -1024);
  for (const std::size_t count : {kModulus - kPkcs1PaddingBytes + 1, ~std::size_t{0}, ~std::size_t{0} - 10}) {
    EXPECT_EQ(sign(count), -1024);
  }
  EXPECT_EQ(rsa_public(&key, buffer.data(), buffer.data()), -1088);
  EXPECT_EQ(rsa_private(&key, buffer.data(), buffer.data()), -1104);
  EXPECT_EQ(rsa_pkcs1_verify(&key, RSA_PUBLIC, SIG_RSA_RAW, ~std::size_t{0}, buffer.data(), buffer.data()),
            -1024);
}

// A program may use libcrypto itself: what it has not yet looked at stays, and nothing is added.
TEST(ErrorQueue, HoldsWhatTheProgramLeftThere) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, 1);
  Bytes block(128, 0xff), iv(16);
  rsa_context key;
  aes_context schedule;
  x509_cert certificate;
  EXPECT_EQ(x509parse_keyfile(&key, DataPath("rsa1024-protected.key").c_str(), "wrong"), -736);
  EXPECT_EQ(x509parse_crtfile(&certificate, DataPath("ec.pem").c_str()), -64);
  ASSERT_EQ(x509parse_keyfile(&key, DataPath("rsa1024.key").c_str(), nullptr), 0);
  EXPECT_EQ(rsa_private(&key, block.data(), block.data()), -1104);
  EXPECT_EQ(aes_setkey_enc(&schedule, block.data(), 100), -2048);
  EXPECT_EQ(aes_crypt_cbc(&schedule, AES_ENCRYPT, 16, iv.data(), block.data(), block.data()), -2048);
  EXPECT_EQ(ERR_GET_LIB(ERR_get_error()), ERR_LIB_USER);
  EXPECT_EQ(ERR_get_error(), 0u);
}

// What was enciphered with padding of its own length comes out, what was not does not, whatever the room.
TEST(Rsa, DecryptsWhatWasPadded) {
  rsa_context key;
  ASSERT_EQ(x509parse_keyfile(&key, DataPath("rsa1024.key").c_str(), nullptr), 0);
  const std::string longest(key.len() - kPkcs1PaddingBytes, 'x');
  for (const std::string& text : {std::string(), std::string("x"), std::string(32, 'k'), longest}) {
    Bytes block(key.len()), out(key.len(), '?');
    std::size_t length = 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    ASSERT_EQ(rsa_pkcs1_encrypt(&key, RSA_PUBLIC, text.size(), bytes, block.data()), 0);
    ASSERT_EQ(rsa_pkcs1_decrypt(&key, RSA_PRIVATE, &length, block.data(), out.data(), out.size()), 0);
    EXPECT_EQ(std::string(out.begin(), out.begin() + static_cast<long>(length)), text);
    if (!text.empty()) {
      EXPECT_EQ(rsa_pkcs1_decrypt(&key, RSA_PRIVATE, &length, block.data(), out.data(), text.size() - 1),
                -1136);
    }
  }
  const struct {
    std::size_t changed;
    unsigned char value;
    int rc;
  } rows[] = {{0, 0, 0}, {0, 1, -1040}, {1, 1, -1040}, {9, 0, -1040}, {10, 0, 0}, {127, 'x', 0}};
  for (const auto& row : rows) {
    Bytes block(key.len(), 'x'), out(key.len());
    std::size_t length = 0;
    block[0] = 0;
    block[1] = 2;
    block[60] = 0;
    block[row.changed] = row.value;
    ASSERT_EQ(rsa_public(&key, block.data(), block.data()), 0);
    EXPECT_EQ(rsa_pkcs1_decrypt(&key, RSA_PRIVATE, &length, block.data(), out.data(), out.size()), row.rc);
    EXPECT_EQ(length, row.rc != 0 ? 0 : row.changed == 10 ? 117u : 67u) << row.changed;
  }
}

}  // namespace
}  // namespace kestrune::testing
