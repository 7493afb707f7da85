// What opens a protected key. DES, RC4 and MD5 go by the library's direct calls: its providers have them in a module
// that has to be loaded, if at all.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/core_names.h>
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/md5.h>
#include <openssl/params.h>
#include <openssl/rc4.h>

#include <cstring>
#include <memory>

#include "base/wipe.h"
#include "crypto/library.h"
#include "crypto/openssl/error_queue.h"
#include "crypto/openssl/providers.h"

namespace kestrune::crypto {
namespace {

struct FreeDerivation {
  void operator()(EVP_KDF* kind) const { EVP_KDF_free(kind); }
  void operator()(EVP_KDF_CTX* derivation) const { EVP_KDF_CTX_free(derivation); }
};

bool Derive(const char* kind_name, const OSSL_PARAM* parameters, std::span<unsigned char> key) {
  const ErrorQueue errors;
  const Providers* const providers = OwnProviders();
  if (providers == nullptr) return false;
  const std::unique_ptr<EVP_KDF, FreeDerivation> kind(EVP_KDF_fetch(providers->context, kind_name, nullptr));
  if (kind == nullptr) return false;
  const std::unique_ptr<EVP_KDF_CTX, FreeDerivation> derivation(EVP_KDF_CTX_new(kind.get()));
  return derivation != nullptr && EVP_KDF_derive(derivation.get(), key.data(), key.size(), parameters) == 1;
}

// The library takes pointers that it could write through, and does not. Nor does it take null for no bytes.
OSSL_PARAM Octets(const char* name, Bytes bytes) {
  static unsigned char none;
  void* const begin = bytes.empty() ? &none : const_cast<unsigned char*>(bytes.data());
  return OSSL_PARAM_construct_octet_string(name, begin, bytes.size());
}

OSSL_PARAM Text(const char* name, const char* text) {
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char*>(text), 0);
}

const char* NameOf(Digest digest) {
  switch (digest) {
    case Digest::kSha1:
      return "SHA1";
    case Digest::kSha224:
      return "SHA224";
    case Digest::kSha256:
      return "SHA256";
    case Digest::kSha384:
      return "SHA384";
    case Digest::kSha512:
      break;
  }
  return "SHA512";
}

}  // namespace

bool DecipherDes(Bytes key, const unsigned char* iv, std::span<unsigned char> bytes) {
  DES_key_schedule schedules[3];
  DES_cblock chain;
  std::memcpy(chain, iv, sizeof chain);
  for (std::size_t i = 0; i < std::size(schedules); ++i) {
    DES_cblock part;  // of two, the first one is the third, too; of one, it is all three
    std::memcpy(part, key.data() + i * kDesBlockBytes % key.size(), sizeof part);
    DES_set_key_unchecked(&part, &schedules[i]);
    wipe(part, sizeof part);
  }
  DES_ede3_cbc_encrypt(bytes.data(), bytes.data(), static_cast<long>(bytes.size()), &schedules[0],
                       &schedules[1], &schedules[2], &chain, DES_DECRYPT);
  wipe(schedules, sizeof schedules);
  return true;
}

bool DecipherRc4(Bytes key, std::span<unsigned char> bytes) {
  RC4_KEY schedule;
  RC4_set_key(&schedule, static_cast<int>(key.size()), key.data());
  RC4(&schedule, bytes.size(), bytes.data(), bytes.data());
  wipe(&schedule, sizeof schedule);
  return true;
}

bool Md5(Bytes first, Bytes second, Bytes third, unsigned char* digest) {
  MD5_CTX state;
  MD5_Init(&state);
  for (const Bytes piece : {first, second, third}) MD5_Update(&state, piece.data(), piece.size());
  MD5_Final(digest, &state);
  wipe(&state, sizeof state);
  return true;
}

bool DerivePbkdf2(Digest digest, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key) {
  const OSSL_PARAM parameters[] = {Octets(OSSL_KDF_PARAM_PASSWORD, phrase), Octets(OSSL_KDF_PARAM_SALT, salt),
                                   OSSL_PARAM_construct_int(OSSL_KDF_PARAM_ITER, &iterations),
                                   Text(OSSL_KDF_PARAM_DIGEST, NameOf(digest)), OSSL_PARAM_construct_end()};
  return Derive(OSSL_KDF_NAME_PBKDF2, parameters, key);
}

bool DerivePkcs12(int purpose, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key) {
  const OSSL_PARAM parameters[] = {Octets(OSSL_KDF_PARAM_PASSWORD, phrase),
                                   Octets(OSSL_KDF_PARAM_SALT, salt),
                                   OSSL_PARAM_construct_int(OSSL_KDF_PARAM_ITER, &iterations),
                                   OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS12_ID, &purpose),
                                   Text(OSSL_KDF_PARAM_DIGEST, NameOf(Digest::kSha1)),
                                   OSSL_PARAM_construct_end()};
  return Derive("PKCS12KDF", parameters, key);
}

const bool kReadsPbes2WithAes = true;

}  // namespace kestrune::crypto
