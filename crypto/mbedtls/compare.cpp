#include "crypto/classic.h"
#include "crypto/mbedtls/version.h"

bool equal_in_constant_time(const void* a, const void* b, std::size_t count) {
  return mbedtls_ct_memcmp(a, b, count) == 0;
}
