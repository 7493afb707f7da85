// RSA behind the classic names. Private operations are always blinded, and signatures checked with the
// public half before they leave (a faulty computation would betray the key).
#include <mbedtls/md.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/buffer.h"
#include "crypto/classic.h"
#include "crypto/errors.h"
#include "crypto/rsa_impl.h"
#include "crypto/system_generator.h"

using kestrune::SecretArray;
using kestrune::crypto::NoMemoryOr;
using kestrune::crypto::SystemGenerator;
using kestrune::crypto::ToClassicError;

namespace {

constexpr unsigned char kPrivateKeyBlock = 1;  // block type of PKCS#1 v1.5
constexpr unsigned char kPrivateKeyFill = 0xFF;

bool Holds(const rsa_context* key) {
  return key->impl != nullptr;
}

// 00 01 FF ... FF 00 and the bytes; the caller has compared the lengths.
void PadForSignature(const unsigned char* bytes, std::size_t length, std::size_t block_length,
                     unsigned char* block) {
  block[0] = 0;
  block[1] = kPrivateKeyBlock;
  unsigned char* const separator = block + (block_length - length - 1);
  std::fill(block + 2, separator, kPrivateKeyFill);
  *separator = 0;
  std::copy_n(bytes, length, separator + 1);
}

// Out of memory in the middle of renewing them, the library leaves two values that do not belong together, and
// every later operation with the key would fail. The next one draws new ones.
void ForgetBlinding(mbedtls_rsa_context* key) {
  mbedtls_mpi_free(&key->Vi);
  mbedtls_mpi_free(&key->Vf);
}

}  // namespace

rsa_context::rsa_context() noexcept = default;
rsa_context::~rsa_context() = default;

std::size_t rsa_context::len() const {
  return impl == nullptr ? 0 : mbedtls_rsa_get_len(&impl->key);
}

bool rsa_context::public_exponent_at_least(unsigned least) const {
  return impl != nullptr && mbedtls_mpi_cmp_int(&impl->key.E, static_cast<mbedtls_mpi_sint>(least)) >= 0;
}

int rsa_check_pubkey(const rsa_context* key) {
  if (!Holds(key)) return ERR_RSA_KEY_CHECK_FAILED;
  return ToClassicError(mbedtls_rsa_check_pubkey(&key->impl->key));
}

int rsa_check_privkey(const rsa_context* key) {
  if (!Holds(key)) return ERR_RSA_KEY_CHECK_FAILED;
  // Asked twice before a key is called inconsistent: the library says the same of a moment without memory.
  if (mbedtls_rsa_check_privkey(&key->impl->key) == 0) return 0;
  return ToClassicError(mbedtls_rsa_check_privkey(&key->impl->key));
}

int rsa_public(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (!Holds(key)) return ERR_RSA_PUBLIC_FAILED;
  const int rc = mbedtls_rsa_public(&key->impl->key, input, output);
  return rc == 0 ? 0 : NoMemoryOr(ERR_RSA_PUBLIC_FAILED, rc);
}

int rsa_private(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (!Holds(key)) return ERR_RSA_PRIVATE_FAILED;
  SystemGenerator blinding;
  if (!blinding.ready()) return ERR_RSA_RNG_FAILED;
  mbedtls_rsa_context* const own = &key->impl->key;
  const auto compute = [&] {
    const int failed = mbedtls_rsa_private(own, SystemGenerator::Draw, blinding.state(), input, output);
    if (failed != 0) ForgetBlinding(own);
    return failed;
  };
  int rc = compute();
  // So ends, too, what ran out of memory where the library does not look. A second attempt succeeds or tells.
  if (rc == MBEDTLS_ERR_RSA_VERIFY_FAILED) rc = compute();
  return rc == 0 ? 0 : NoMemoryOr(ERR_RSA_PRIVATE_FAILED, rc);
}

int rsa_pkcs1_sign(rsa_context* key, int mode, int hash_id, std::size_t length, const unsigned char* bytes,
                   unsigned char* signature) {
  if (!Holds(key) || mode != RSA_PRIVATE || hash_id != SIG_RSA_RAW) return ERR_RSA_BAD_INPUT_DATA;
  if (length > key->len() || length + kPkcs1PaddingBytes > key->len()) return ERR_RSA_BAD_INPUT_DATA;
  // Not the library's signing call: it would check the result with the public half a second time.
  SecretArray<kRsaMostBytes> block;
  PadForSignature(bytes, length, key->len(), block.data());
  return rsa_private(key, block.data(), signature);
}

int rsa_pkcs1_verify(rsa_context* key, int mode, int hash_id, std::size_t length, const unsigned char* bytes,
                     const unsigned char* signature) {
  if (!Holds(key) || mode != RSA_PUBLIC || hash_id != SIG_RSA_RAW) return ERR_RSA_BAD_INPUT_DATA;
  if (length > key->len()) return ERR_RSA_BAD_INPUT_DATA;
  return ToClassicError(mbedtls_rsa_rsassa_pkcs1_v15_verify(&key->impl->key, nullptr, nullptr,
                                                            MBEDTLS_RSA_PUBLIC, MBEDTLS_MD_NONE,
                                                            static_cast<unsigned>(length), bytes, signature));
}

int rsa_pkcs1_encrypt(rsa_context* key, int mode, std::size_t length, const unsigned char* input,
                      unsigned char* output) {
  if (!Holds(key) || mode != RSA_PUBLIC) return ERR_RSA_BAD_INPUT_DATA;
  SystemGenerator padding;
  if (!padding.ready()) return ERR_RSA_RNG_FAILED;
  return ToClassicError(mbedtls_rsa_rsaes_pkcs1_v15_encrypt(
      &key->impl->key, SystemGenerator::Draw, padding.state(), MBEDTLS_RSA_PUBLIC, length, input, output));
}

int rsa_pkcs1_decrypt(rsa_context* key, int mode, std::size_t* output_length, const unsigned char* input,
                      unsigned char* output, std::size_t output_max) {
  *output_length = 0;
  if (!Holds(key) || mode != RSA_PRIVATE) return ERR_RSA_BAD_INPUT_DATA;
  SystemGenerator blinding;
  if (!blinding.ready()) return ERR_RSA_RNG_FAILED;
  const int rc =
      mbedtls_rsa_rsaes_pkcs1_v15_decrypt(&key->impl->key, SystemGenerator::Draw, blinding.state(),
                                          MBEDTLS_RSA_PRIVATE, output_length, input, output, output_max);
  if (rc != 0) ForgetBlinding(&key->impl->key);
  return ToClassicError(rc);
}

void rsa_free(rsa_context* key) {
  key->impl.reset();
}
