// What opens a protected key.
#include <mbedtls/des.h>
#include <mbedtls/md5.h>
#include <mbedtls/pkcs12.h>

#include <cstring>

#include "crypto/library.h"
#include "crypto/mbedtls/version.h"

namespace kestrune::crypto {
namespace {

mbedtls_md_type_t TypeOf(Digest digest) {
  switch (digest) {
    case Digest::kSha1:
      return MBEDTLS_MD_SHA1;
    case Digest::kSha224:
      return MBEDTLS_MD_SHA224;
    case Digest::kSha256:
      return MBEDTLS_MD_SHA256;
    case Digest::kSha384:
      return MBEDTLS_MD_SHA384;
    case Digest::kSha512:
      break;
  }
  return MBEDTLS_MD_SHA512;
}

bool DecipherSingle(Bytes key, unsigned char* iv, std::span<unsigned char> bytes) {
  mbedtls_des_context schedule;
  mbedtls_des_init(&schedule);
  const bool done = mbedtls_des_setkey_dec(&schedule, key.data()) == 0 &&
                    mbedtls_des_crypt_cbc(&schedule, MBEDTLS_DES_DECRYPT, bytes.size(), iv, bytes.data(),
                                          bytes.data()) == 0;
  mbedtls_des_free(&schedule);
  return done;
}

bool DecipherTriple(Bytes key, unsigned char* iv, std::span<unsigned char> bytes) {
  mbedtls_des3_context schedule;
  mbedtls_des3_init(&schedule);
  const bool has_two_keys = key.size() == 2 * kDesBlockBytes;
  const auto set_key = has_two_keys ? mbedtls_des3_set2key_dec : mbedtls_des3_set3key_dec;
  const bool done = set_key(&schedule, key.data()) == 0 &&
                    mbedtls_des3_crypt_cbc(&schedule, MBEDTLS_DES_DECRYPT, bytes.size(), iv, bytes.data(),
                                           bytes.data()) == 0;
  mbedtls_des3_free(&schedule);
  return done;
}

}  // namespace

bool DecipherDes(Bytes key, const unsigned char* iv, std::span<unsigned char> bytes) {
  unsigned char chain[kDesBlockBytes];
  std::memcpy(chain, iv, sizeof chain);
  return key.size() == kDesBlockBytes ? DecipherSingle(key, chain, bytes) : DecipherTriple(key, chain, bytes);
}

bool DecipherRc4(Bytes key, std::span<unsigned char> bytes) {
  return mbedtls::Rc4(key.data(), key.size(), bytes.data(), bytes.size());
}

bool Md5(Bytes first, Bytes second, Bytes third, unsigned char* digest) {
  mbedtls_md5_context state;
  mbedtls_md5_init(&state);
  bool done = mbedtls::Md5Starts(&state) == 0;
  for (const Bytes piece : {first, second, third}) {
    done = done && mbedtls::Md5Update(&state, piece.data(), piece.size()) == 0;
  }
  done = done && mbedtls::Md5Finish(&state, digest) == 0;
  mbedtls_md5_free(&state);
  return done;
}

bool DerivePbkdf2(Digest digest, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key) {
  return mbedtls::Pbkdf2(TypeOf(digest), phrase.data(), phrase.size(), salt.data(), salt.size(),
                         static_cast<unsigned>(iterations), static_cast<unsigned>(key.size()),
                         key.data()) == 0;
}

bool DerivePkcs12(int purpose, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key) {
  return mbedtls_pkcs12_derivation(key.data(), key.size(), phrase.data(), phrase.size(), salt.data(),
                                   salt.size(), MBEDTLS_MD_SHA1, purpose, iterations) == 0;
}

const bool kReadsPbes2WithAes = !mbedtls::kIsOlder;

}  // namespace kestrune::crypto
