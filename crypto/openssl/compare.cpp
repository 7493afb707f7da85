#include <openssl/crypto.h>

#include "crypto/classic.h"

bool equal_in_constant_time(const void* a, const void* b, std::size_t count) {
  return CRYPTO_memcmp(a, b, count) == 0;
}
