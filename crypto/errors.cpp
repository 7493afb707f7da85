#include "crypto/errors.h"

#include <mbedtls/aes.h>
#include <mbedtls/base64.h>
#include <mbedtls/rsa.h>

#include "crypto/classic.h"

namespace kestrune::crypto {
namespace {

struct Pair {
  int library;
  int classic;
};

constexpr Pair kPairs[] = {
    {MBEDTLS_ERR_BASE64_BUFFER_TOO_SMALL, ERR_BASE64_BUFFER_TOO_SMALL},
    {MBEDTLS_ERR_BASE64_INVALID_CHARACTER, ERR_BASE64_INVALID_CHARACTER},
    {MBEDTLS_ERR_RSA_BAD_INPUT_DATA, ERR_RSA_BAD_INPUT_DATA},
    {MBEDTLS_ERR_RSA_INVALID_PADDING, ERR_RSA_INVALID_PADDING},
    {MBEDTLS_ERR_RSA_KEY_CHECK_FAILED, ERR_RSA_KEY_CHECK_FAILED},
    {MBEDTLS_ERR_RSA_PUBLIC_FAILED, ERR_RSA_PUBLIC_FAILED},
    {MBEDTLS_ERR_RSA_PRIVATE_FAILED, ERR_RSA_PRIVATE_FAILED},
    {MBEDTLS_ERR_RSA_VERIFY_FAILED, ERR_RSA_VERIFY_FAILED},
    {MBEDTLS_ERR_RSA_OUTPUT_TOO_LARGE, ERR_RSA_OUTPUT_TOO_LARGE},
    {MBEDTLS_ERR_RSA_RNG_FAILED, ERR_RSA_RNG_FAILED},
    {MBEDTLS_ERR_AES_INVALID_KEY_LENGTH, ERR_AES_INVALID_KEY_LENGTH},
    {MBEDTLS_ERR_AES_INVALID_INPUT_LENGTH, ERR_AES_INVALID_INPUT_LENGTH},
};

}  // namespace

int ToClassicError(int library_error) {
  for (const Pair& pair : kPairs) {
    if (pair.library == library_error) return pair.classic;
  }
  return library_error;
}

}  // namespace kestrune::crypto
