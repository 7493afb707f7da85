#include "crypto/errors.h"

#include <mbedtls/aes.h>
#include <mbedtls/asn1.h>
#include <mbedtls/base64.h>
#include <mbedtls/bignum.h>
#include <mbedtls/cipher.h>
#include <mbedtls/md.h>
#include <mbedtls/pem.h>
#include <mbedtls/pk.h>
#include <mbedtls/rsa.h>
#include <mbedtls/x509.h>

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

// A library error is the sum of one of a high level and one of a low level, which has the last seven bits.
bool IsLackOfMemory(int library_error) {
  constexpr int kLowLevel = 0x7F;
  const int low = -(-library_error & kLowLevel);
  return low == MBEDTLS_ERR_MPI_ALLOC_FAILED || low == MBEDTLS_ERR_ASN1_ALLOC_FAILED ||
         library_error == MBEDTLS_ERR_PEM_ALLOC_FAILED || library_error == MBEDTLS_ERR_PK_ALLOC_FAILED ||
         library_error == MBEDTLS_ERR_X509_ALLOC_FAILED || library_error == MBEDTLS_ERR_MD_ALLOC_FAILED ||
         library_error == MBEDTLS_ERR_CIPHER_ALLOC_FAILED;
}

}  // namespace

int NoMemoryOr(int otherwise, int library_error) {
  return IsLackOfMemory(library_error) ? ERR_NO_MEMORY : otherwise;
}

int ToClassicError(int library_error) {
  if (IsLackOfMemory(library_error)) return ERR_NO_MEMORY;
  for (const Pair& pair : kPairs) {
    if (pair.library == library_error) return pair.classic;
  }
  return library_error;
}

}  // namespace kestrune::crypto
