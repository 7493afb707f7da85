// Base64 and comparing behind the classic names.
#include <mbedtls/base64.h>

// This header of the library does not say itself that it is C.
extern "C" {
#include <mbedtls/constant_time.h>
}

#include "crypto/classic.h"
#include "crypto/errors.h"

using kestrune::crypto::ToClassicError;

bool equal_in_constant_time(const void* a, const void* b, std::size_t count) {
  return mbedtls_ct_memcmp(a, b, count) == 0;
}

int base64_encode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                  std::size_t length) {
  std::size_t written = 0;
  const int rc =
      mbedtls_base64_encode(output, output == nullptr ? 0 : *output_length, &written, input, length);
  // The library leaves an empty result unterminated, and refuses none whatever the capacity.
  if (rc == 0 && written == 0 && output != nullptr && *output_length > 0) output[0] = 0;
  *output_length = written;
  return ToClassicError(rc);
}

int base64_decode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                  std::size_t length) {
  std::size_t written = 0;
  const int rc =
      mbedtls_base64_decode(output, output == nullptr ? 0 : *output_length, &written, input, length);
  *output_length = written;
  return ToClassicError(rc);
}
