// What an rsa_context holds. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_RSA_IMPL_H
#define KESTRUNE_CRYPTO_RSA_IMPL_H

#include <mbedtls/rsa.h>

#include "crypto/classic.h"

struct rsa_context::Impl {
  // The library wants these two arguments; they choose nothing for type 1 and type 2 padding.
  Impl() { mbedtls_rsa_init(&key, MBEDTLS_RSA_PKCS_V15, 0); }
  ~Impl() { mbedtls_rsa_free(&key); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  // Mutable because the library's read-only questions take a non-const key.
  mutable mbedtls_rsa_context key;
};

#endif
