// What an rsa_context holds. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_OPENSSL_RSA_IMPL_H
#define KESTRUNE_CRYPTO_OPENSSL_RSA_IMPL_H

#include <cstddef>

#include "crypto/classic.h"
#include "crypto/openssl/bignum.h"

struct rsa_context::Impl {
  std::size_t bytes = 0;  // of the modulus
  kestrune::crypto::Number modulus, public_exponent;
  kestrune::crypto::Montgomery by_modulus;

  // The private half; all or none. `coefficient` is the inverse of the second prime by the first.
  kestrune::crypto::Number private_exponent, prime[2], exponent[2], coefficient;
  kestrune::crypto::Montgomery by_prime[2];

  bool is_private() const { return private_exponent != nullptr; }
};

#endif
