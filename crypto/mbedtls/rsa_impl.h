// What an rsa_context holds. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_MBEDTLS_RSA_IMPL_H
#define KESTRUNE_CRYPTO_MBEDTLS_RSA_IMPL_H

#include "crypto/classic.h"
#include "crypto/mbedtls/version.h"

struct rsa_context::Impl {
  Impl() { kestrune::crypto::mbedtls::InitRsa(&key); }
  ~Impl() { mbedtls_rsa_free(&key); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  // Mutable because the older library's read-only questions take a non-const key.
  mutable mbedtls_rsa_context key;
};

#endif
