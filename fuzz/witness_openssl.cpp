#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "crypto/openssl/rsa_impl.h"
#include "fuzz/witness.h"

namespace kestrune::testing {
namespace {

struct Free {
  void operator()(BIO* bytes) const { BIO_free(bytes); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using Key = std::unique_ptr<EVP_PKEY, Free>;

Bytes BytesOf(const BIGNUM* number) {
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

Numbers NumbersOf(const EVP_PKEY* key, std::initializer_list<const char*> names) {
  Numbers numbers;
  if (key == nullptr || EVP_PKEY_is_a(key, "RSA") != 1) return numbers;
  for (const char* name : names) {
    BIGNUM* value = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &value) != 1) return {};
    numbers.push_back(BytesOf(crypto::Number(value).get()));
  }
  return numbers;
}

int GivePhrase(char* room, int size, int, void* phrase) {
  const auto length = static_cast<int>(std::strlen(static_cast<const char*>(phrase)));
  if (length > size) return -1;
  std::memcpy(room, phrase, static_cast<std::size_t>(length));
  return length;
}

}  // namespace

const bool kLibraryReadsPem = false;
const bool kLibraryTakesAllOfOurs = false;
const bool kLibraryTakesNoOthers = false;

Numbers NumbersOf(const rsa_context& key) {
  if (key.impl == nullptr) return {};
  const rsa_context::Impl& own = *key.impl;
  Numbers numbers = {BytesOf(own.modulus.get()), BytesOf(own.public_exponent.get())};
  if (own.is_private()) {
    for (const auto* number : {&own.private_exponent, &own.prime[0], &own.prime[1]})
      numbers.push_back(BytesOf(number->get()));
  }
  return numbers;
}

Numbers LibraryReadsKey(std::span<const unsigned char> text, const char* phrase) {
  // Once one is loaded, the default one is no longer there by itself.
  [[maybe_unused]] static OSSL_PROVIDER* const providers[] = {OSSL_PROVIDER_load(nullptr, "default"),
                                                              OSSL_PROVIDER_load(nullptr, "legacy")};
  const auto size = static_cast<int>(text.size() - 1);
  const unsigned char* at = text.data();
  Key key(d2i_AutoPrivateKey(nullptr, &at, size));
  if (key == nullptr) {
    const std::unique_ptr<BIO, Free> bytes(BIO_new_mem_buf(text.data(), size));
    key.reset(d2i_PKCS8PrivateKey_bio(bytes.get(), nullptr, GivePhrase, const_cast<char*>(phrase)));
  }
  ERR_clear_error();
  return NumbersOf(key.get(), {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E, OSSL_PKEY_PARAM_RSA_D,
                               OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2});
}

Numbers LibraryReadsCertificate(std::span<const unsigned char> text, int* unread) {
  const unsigned char* at = text.data();
  const std::unique_ptr<X509, Free> certificate(d2i_X509(nullptr, &at, static_cast<long>(text.size() - 1)));
  *unread = 0;
  const EVP_PKEY* const key = certificate == nullptr ? nullptr : X509_get0_pubkey(certificate.get());
  ERR_clear_error();
  return NumbersOf(key, {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E});
}

}  // namespace kestrune::testing
