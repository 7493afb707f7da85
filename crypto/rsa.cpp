// RSA behind the classic names. Private operations are always blinded, and signatures checked with the
// public half before they leave (a faulty computation would betray the key).
#include <mbedtls/md.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "crypto/blinding.h"
#include "crypto/classic.h"
#include "crypto/errors.h"
#include "crypto/rsa_impl.h"

using kestrune::crypto::BlindingGenerator;
using kestrune::crypto::ToClassicError;

namespace {

constexpr unsigned char kPrivateKeyBlock = 1;  // block type of PKCS#1 v1.5
constexpr unsigned char kPrivateKeyFill = 0xFF;

bool Holds(const rsa_context* key) {
  return key->impl != nullptr;
}

// 00 01 FF ... FF 00 and the bytes; the caller has compared the lengths.
std::vector<unsigned char> PaddedForSignature(const unsigned char* bytes, std::size_t length,
                                              std::size_t block_length) {
  std::vector<unsigned char> block(block_length, kPrivateKeyFill);
  block[0] = 0;
  block[1] = kPrivateKeyBlock;
  block[block_length - length - 1] = 0;
  std::copy_n(bytes, length, block.end() - static_cast<std::ptrdiff_t>(length));
  return block;
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
  return ToClassicError(mbedtls_rsa_check_privkey(&key->impl->key));
}

int rsa_public(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (!Holds(key)) return ERR_RSA_PUBLIC_FAILED;
  return mbedtls_rsa_public(&key->impl->key, input, output) == 0 ? 0 : ERR_RSA_PUBLIC_FAILED;
}

int rsa_private(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (!Holds(key)) return ERR_RSA_PRIVATE_FAILED;
  BlindingGenerator blinding;
  if (!blinding.ready()) return ERR_RSA_RNG_FAILED;
  const int rc =
      mbedtls_rsa_private(&key->impl->key, BlindingGenerator::Draw, blinding.state(), input, output);
  return rc == 0 ? 0 : ERR_RSA_PRIVATE_FAILED;
}

int rsa_pkcs1_sign(rsa_context* key, int mode, int hash_id, std::size_t length, const unsigned char* bytes,
                   unsigned char* signature) {
  if (!Holds(key) || mode != RSA_PRIVATE || hash_id != SIG_RSA_RAW) return ERR_RSA_BAD_INPUT_DATA;
  if (length > key->len() || length + kPkcs1PaddingBytes > key->len()) return ERR_RSA_BAD_INPUT_DATA;
  // Not the library's signing call: it would check the result with the public half a second time.
  std::vector<unsigned char> block = PaddedForSignature(bytes, length, key->len());
  const int rc = rsa_private(key, block.data(), signature);
  wipe(block.data(), block.size());
  return rc;
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
  BlindingGenerator padding;
  if (!padding.ready()) return ERR_RSA_RNG_FAILED;
  return ToClassicError(mbedtls_rsa_rsaes_pkcs1_v15_encrypt(
      &key->impl->key, BlindingGenerator::Draw, padding.state(), MBEDTLS_RSA_PUBLIC, length, input, output));
}

int rsa_pkcs1_decrypt(rsa_context* key, int mode, std::size_t* output_length, const unsigned char* input,
                      unsigned char* output, std::size_t output_max) {
  *output_length = 0;
  if (!Holds(key) || mode != RSA_PRIVATE) return ERR_RSA_BAD_INPUT_DATA;
  BlindingGenerator blinding;
  if (!blinding.ready()) return ERR_RSA_RNG_FAILED;
  return ToClassicError(mbedtls_rsa_rsaes_pkcs1_v15_decrypt(&key->impl->key, BlindingGenerator::Draw,
                                                            blinding.state(), MBEDTLS_RSA_PRIVATE,
                                                            output_length, input, output, output_max));
}

void rsa_free(rsa_context* key) {
  key->impl.reset();
}
