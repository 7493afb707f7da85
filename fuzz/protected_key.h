// Private keys under a pass phrase, made as the openssl command makes them. Whatever is put under it need be no key.
#ifndef KESTRUNE_FUZZ_PROTECTED_KEY_H
#define KESTRUNE_FUZZ_PROTECTED_KEY_H

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "fuzz/expect.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

inline std::string Enciphered(const EVP_CIPHER* cipher, const unsigned char* key, const unsigned char* iv,
                              std::string_view plain) {
  std::string sealed(plain.size() + EVP_MAX_BLOCK_LENGTH, '\0');
  auto* const out = reinterpret_cast<unsigned char*>(sealed.data());
  int length = 0, rest = 0;
  EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
  Expect(EVP_EncryptInit_ex(context, cipher, nullptr, key, iv) == 1 &&
         EVP_EncryptUpdate(context, out, &length, reinterpret_cast<const unsigned char*>(plain.data()),
                           static_cast<int>(plain.size())) == 1 &&
         EVP_EncryptFinal_ex(context, out + length, &rest) == 1);
  EVP_CIPHER_CTX_free(context);
  sealed.resize(static_cast<std::size_t>(length + rest));
  return sealed;
}

inline std::string Pem(std::string_view label, std::string_view headers, std::string_view der) {
  constexpr std::size_t kLine = 48;
  std::string pem = "-----BEGIN " + std::string(label) + "-----\n" + std::string(headers);
  for (; !der.empty(); der.remove_prefix(std::min(kLine, der.size())))
    pem += ToBase64(der.substr(0, kLine)) + "\n";
  return pem + "-----END " + std::string(label) + "-----\n";
}

// The traditional way, with AES-256 or DES-EDE3.
inline std::string TraditionalPem(std::string_view label, std::string_view der, const std::string& phrase,
                                  bool aes) {
  constexpr char kIv[] = "00112233445566778899AABBCCDDEEFF";
  const EVP_CIPHER* const cipher = aes ? EVP_aes_256_cbc() : EVP_des_ede3_cbc();
  const Bytes iv = FromHex(kIv);
  std::array<unsigned char, EVP_MAX_KEY_LENGTH> key;
  EVP_BytesToKey(cipher, EVP_md5(), iv.data(), reinterpret_cast<const unsigned char*>(phrase.data()),
                 static_cast<int>(phrase.size()), 1, key.data(), nullptr);
  const std::string headers =
      std::string("Proc-Type: 4,ENCRYPTED\nDEK-Info: ") +
      (aes ? std::string("AES-256-CBC,") + kIv : std::string("DES-EDE3-CBC,") + std::string(kIv, 16)) +
      "\n\n";
  return Pem(label, headers, Enciphered(cipher, key.data(), iv.data(), der));
}

// PBES2 with DES-EDE3 and one iteration.
inline std::string EncipheredPkcs8(std::string_view der, const std::string& phrase) {
  static const std::string salt = "sel, sel", iv = "iv 8 car";
  static const std::string scheme =
      ToText(FromHex("06092a864886f70d01050d"                          // PBES2, of
                     "3032 301a 06092a864886f70d01050c"                // PBKDF2, of
                     "300d 040873656c2c2073656c 020101"                // the salt, 1 iteration
                     "3014 06082a864886f70d0307 04086976203820636172"  // DES-EDE3-CBC, of the IV
                     ));
  std::array<unsigned char, 24> key;
  Expect(PKCS5_PBKDF2_HMAC_SHA1(phrase.data(), static_cast<int>(phrase.size()),
                                reinterpret_cast<const unsigned char*>(salt.data()),
                                static_cast<int>(salt.size()), 1, static_cast<int>(key.size()),
                                key.data()) == 1);
  const auto with_head = [](unsigned char tag, const std::string& content) {
    const std::string length = {static_cast<char>(0x82), static_cast<char>(content.size() >> 8),
                                static_cast<char>(content.size())};
    return std::string(1, static_cast<char>(tag)) + length + content;
  };
  const std::string sealed =
      Enciphered(EVP_des_ede3_cbc(), key.data(), reinterpret_cast<const unsigned char*>(iv.data()), der);
  constexpr unsigned char kSequence = 0x30, kOctetString = 0x04;
  const std::string algorithm = {kSequence, static_cast<char>(scheme.size())};
  return with_head(kSequence, algorithm + scheme + with_head(kOctetString, sealed));
}

}  // namespace kestrune::testing

#endif
