#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>
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

// Lengths on both sides of every block and padding boundary.
TEST(Hashes, AgreeWithTheWitnessInOneGoAndInSteps) {
  for (const std::size_t length : {0, 1, 55, 56, 63, 64, 65, 111, 112, 127, 128, 129, 5000}) {
    const Bytes bytes = Pattern(length);
    const std::size_t cut = length / 3;
    for (const int is384 : {0, 1}) {
      const Bytes want = WitnessDigest(is384 != 0 ? EVP_sha384() : EVP_sha512(), bytes);
      Bytes once(64), steps(64);
      sha4(bytes.data(), length, once.data(), is384);
      sha4_context context;
      sha4_starts(&context, is384);
      sha4_update(&context, bytes.data(), cut);
      sha4_update(&context, bytes.data() + cut, length - cut);
      sha4_finish(&context, steps.data());
      once.resize(want.size());
      steps.resize(want.size());
      EXPECT_EQ(once, want) << length;
      EXPECT_EQ(steps, want) << length;
    }
    Bytes once(20), steps(20);
    sha1(bytes.data(), length, once.data());
    sha1_context context;
    sha1_starts(&context);
    sha1_update(&context, bytes.data(), cut);
    sha1_update(&context, bytes.data() + cut, length - cut);
    sha1_finish(&context, steps.data());
    EXPECT_EQ(once, WitnessDigest(EVP_sha1(), bytes)) << length;
    EXPECT_EQ(steps, once) << length;
  }
}

TEST(Aes, AgreesWithTheWitnessAndChains) {
  const Bytes key = Pattern(32), first_iv = Pattern(16), clear = Pattern(96);
  Bytes want(clear.size() + 16);
  int length = 0;
  EVP_CIPHER_CTX* witness = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(witness, EVP_aes_256_cbc(), nullptr, key.data(), first_iv.data());
  EVP_CIPHER_CTX_set_padding(witness, 0);
  EVP_EncryptUpdate(witness, want.data(), &length, clear.data(), static_cast<int>(clear.size()));
  EVP_CIPHER_CTX_free(witness);
  want.resize(static_cast<std::size_t>(length));

  aes_context context;
  Bytes iv = first_iv, out = clear;
  EXPECT_EQ(aes_crypt_cbc(&context, AES_ENCRYPT, 16, iv.data(), out.data(), out.data()),
            -2048);  // no key yet
  EXPECT_EQ(aes_setkey_enc(&context, key.data(), 256), 0);
  // In place, in two steps that the IV joins.
  EXPECT_EQ(aes_crypt_cbc(&context, AES_ENCRYPT, 32, iv.data(), out.data(), out.data()), 0);
  EXPECT_EQ(aes_crypt_cbc(&context, AES_ENCRYPT, 64, iv.data(), out.data() + 32, out.data() + 32), 0);
  EXPECT_EQ(out, want);
  EXPECT_EQ(iv, Bytes(want.end() - 16, want.end()));
  EXPECT_EQ(aes_crypt_cbc(&context, AES_ENCRYPT, 17, iv.data(), out.data(), out.data()), -2064);
  EXPECT_EQ(out, want);

  iv = first_iv;
  EXPECT_EQ(aes_setkey_dec(&context, key.data(), 256), 0);
  EXPECT_EQ(aes_crypt_cbc(&context, AES_DECRYPT, out.size(), iv.data(), out.data(), out.data()), 0);
  EXPECT_EQ(out, clear);
  // A key that is refused takes the old one with it.
  EXPECT_EQ(aes_setkey_dec(&context, key.data(), 100), -2048);
  EXPECT_EQ(aes_crypt_cbc(&context, AES_DECRYPT, 16, iv.data(), out.data(), out.data()), -2048);
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

class Rsa : public ::testing::Test {
 protected:
  Rsa() {
    EXPECT_EQ(x509parse_keyfile(&key_, DataPath("rsa1024.key").c_str(), nullptr), 0);
    std::FILE* file = std::fopen(DataPath("rsa1024.key").c_str(), "r");
    witness_ = PEM_read_PrivateKey(file, nullptr, nullptr, nullptr);
    std::fclose(file);
  }
  ~Rsa() override { EVP_PKEY_free(witness_); }

  using Operation = int (*)(EVP_PKEY_CTX*, unsigned char*, std::size_t*, const unsigned char*, std::size_t);
  Bytes Witness(int (*init)(EVP_PKEY_CTX*), Operation operation, const Bytes& in) const {
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(witness_, nullptr);
    Bytes out(kModulus);
    std::size_t length = out.size();
    EXPECT_EQ(init(context), 1);
    EXPECT_EQ(operation(context, out.data(), &length, in.data(), in.size()), 1);
    EVP_PKEY_CTX_free(context);
    out.resize(length);
    return out;
  }

  static constexpr std::size_t kModulus = 128;
  rsa_context key_;
  EVP_PKEY* witness_ = nullptr;
};

TEST_F(Rsa, ChecksSignaturesOfTheWitness) {
  const Bytes text = Pattern(50);
  Bytes signature = Witness(EVP_PKEY_sign_init, EVP_PKEY_sign, text);
  const auto verify = [&](std::size_t length) {
    return rsa_pkcs1_verify(&key_, RSA_PUBLIC, SIG_RSA_RAW, length, text.data(), signature.data());
  };
  EXPECT_EQ(verify(text.size()), 0);
  EXPECT_NE(verify(text.size() - 1), 0);
  EXPECT_NE(verify(~std::size_t{0}), 0);
  signature.back() ^= 1;
  EXPECT_NE(verify(text.size()), 0);
  signature.assign(kModulus, 0xff);  // not below the modulus
  EXPECT_NE(verify(text.size()), 0);
  EXPECT_EQ(rsa_public(&key_, signature.data(), signature.data()), -1088);
  EXPECT_EQ(rsa_private(&key_, signature.data(), signature.data()), -1104);
}

TEST_F(Rsa, EnciphersForTheWitnessAndBack) {
  const Bytes text = Pattern(kModulus - kPkcs1PaddingBytes);
  Bytes sealed(kModulus), opened(kModulus);
  EXPECT_EQ(rsa_pkcs1_encrypt(&key_, RSA_PUBLIC, text.size(), text.data(), sealed.data()), 0);
  EXPECT_EQ(Witness(EVP_PKEY_decrypt_init, EVP_PKEY_decrypt, sealed), text);
  EXPECT_EQ(rsa_pkcs1_encrypt(&key_, RSA_PUBLIC, text.size() + 1, text.data(), sealed.data()), -1024);

  sealed = Witness(EVP_PKEY_encrypt_init, EVP_PKEY_encrypt, text);
  std::size_t length = 0;
  EXPECT_EQ(rsa_pkcs1_decrypt(&key_, RSA_PRIVATE, &length, sealed.data(), opened.data(), text.size()), 0);
  opened.resize(length);
  EXPECT_EQ(opened, text);
  EXPECT_EQ(rsa_pkcs1_decrypt(&key_, RSA_PRIVATE, &length, sealed.data(), opened.data(), text.size() - 1),
            -1136);
  sealed = Witness(EVP_PKEY_sign_init, EVP_PKEY_sign, text);  // padding of the other type
  EXPECT_NE(rsa_pkcs1_decrypt(&key_, RSA_PRIVATE, &length, sealed.data(), opened.data(), opened.size()), 0);
}

TEST_F(Rsa, RefusesWithoutAKeyAndBeyondItsSize) {
  Bytes buffer(1024);
  EXPECT_EQ(rsa_pkcs1_sign(&key_, RSA_PRIVATE, SIG_RSA_RAW, kModulus - 10, buffer.data(), buffer.data()),
            -1024);
  EXPECT_EQ(rsa_pkcs1_sign(&key_, RSA_PRIVATE, SIG_RSA_RAW, ~std::size_t{0}, buffer.data(), buffer.data()),
            -1024);
  rsa_free(&key_);
  std::size_t length = 9;
  EXPECT_EQ(key_.len(), 0u);
  EXPECT_EQ(rsa_check_privkey(&key_), -1072);
  EXPECT_EQ(rsa_public(&key_, buffer.data(), buffer.data()), -1088);
  EXPECT_EQ(rsa_pkcs1_sign(&key_, RSA_PRIVATE, SIG_RSA_RAW, 1, buffer.data(), buffer.data()), -1024);
  EXPECT_EQ(rsa_pkcs1_decrypt(&key_, RSA_PRIVATE, &length, buffer.data(), buffer.data(), 1024), -1024);
  EXPECT_EQ(length, 0u);
}

}  // namespace
}  // namespace kestrune::testing
