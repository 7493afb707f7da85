// RSA. Private operations are always blinded, and checked by the library with the public half before they leave (a
// faulty computation would betray the key).
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "base/system_random.h"
#include "crypto/classic.h"
#include "crypto/library.h"
#include "crypto/mbedtls/rsa_impl.h"

namespace {

// The library draws through this; `state` is the flag that tells a lack of random numbers from other failures.
int Draw(void* state, unsigned char* output, std::size_t count) {
  const bool drawn = kestrune::DrawFromSystem(output, count);
  *static_cast<bool*>(state) = !drawn;
  return drawn ? 0 : MBEDTLS_ERR_RSA_RNG_FAILED;
}

// Out of memory in the middle of renewing them, the library leaves two values that do not belong together, and
// every later operation with the key would fail. The next one draws new ones.
void ForgetBlinding(mbedtls_rsa_context* key) {
  mbedtls_mpi_free(&key->Vi);
  mbedtls_mpi_free(&key->Vf);
}

// A library error is the sum of one of a high level and one of a low level, which has the last seven bits.
int NoMemoryOr(int otherwise, int library_error) {
  constexpr int kLowLevel = 0x7F;
  return -(-library_error & kLowLevel) == MBEDTLS_ERR_MPI_ALLOC_FAILED ? ERR_NO_MEMORY : otherwise;
}

}  // namespace

namespace kestrune::crypto {
namespace {

bool Read(mbedtls_mpi* number, Bytes bytes) {
  return mbedtls_mpi_read_binary(number, bytes.data(), bytes.size()) == 0;
}

bool ReadPrivate(mbedtls_rsa_context* key, const RsaNumbers& numbers) {
  return Read(&key->D, numbers.private_exponent) && Read(&key->P, numbers.prime[0]) &&
         Read(&key->Q, numbers.prime[1]) && Read(&key->DP, numbers.exponent[0]) &&
         Read(&key->DQ, numbers.exponent[1]) && Read(&key->QP, numbers.coefficient);
}

}  // namespace

int MakeRsaKey(const RsaNumbers& numbers, rsa_context* key) {
  std::unique_ptr<rsa_context::Impl> held(new (std::nothrow) rsa_context::Impl);
  if (held == nullptr) return ERR_NO_MEMORY;
  mbedtls_rsa_context* const into = &held->key;
  // Numbers come from small files: reading one fails for nothing but memory.
  if (!Read(&into->N, numbers.modulus) || !Read(&into->E, numbers.public_exponent) ||
      (numbers.is_private() && !ReadPrivate(into, numbers))) {
    return ERR_NO_MEMORY;
  }
  into->len = mbedtls_mpi_size(&into->N);
  // Nothing is left to be computed; this looks at sizes and parities.
  if (into->len > kRsaMostBytes || mbedtls_rsa_complete(into) != 0 || mbedtls_rsa_check_pubkey(into) != 0) {
    return ERR_RSA_KEY_CHECK_FAILED;
  }
  key->impl = std::move(held);
  return 0;
}

std::size_t WriteRsaNumber(const rsa_context& key, int number, unsigned char* output) {
  if (key.impl == nullptr) return 0;
  mbedtls_rsa_context& held = key.impl->key;
  const mbedtls_mpi* const numbers[kRsaNumbers] = {&held.N, &held.E,  &held.D,  &held.P,
                                                   &held.Q, &held.DP, &held.DQ, &held.QP};
  const std::size_t count = mbedtls_mpi_size(numbers[number]);
  return count <= kRsaMostBytes && mbedtls_mpi_write_binary(numbers[number], output, count) == 0 ? count : 0;
}

int GenerateRsaKey(rsa_context* key, unsigned bits) {
  std::unique_ptr<rsa_context::Impl> held(new (std::nothrow) rsa_context::Impl);
  if (held == nullptr) return ERR_NO_MEMORY;
  bool without_random = false;
  const int rc =
      mbedtls_rsa_gen_key(&held->key, Draw, &without_random, bits, static_cast<int>(kUsualExponent));
  if (rc != 0) return without_random ? ERR_RSA_RNG_FAILED : NoMemoryOr(ERR_RSA_KEY_CHECK_FAILED, rc);
  key->impl = std::move(held);
  return 0;
}

}  // namespace kestrune::crypto

rsa_context::rsa_context() noexcept = default;
rsa_context::~rsa_context() = default;

std::size_t rsa_context::len() const {
  return impl == nullptr ? 0 : mbedtls_rsa_get_len(&impl->key);
}

bool rsa_context::public_exponent_at_least(unsigned least) const {
  return impl != nullptr && mbedtls_mpi_cmp_int(&impl->key.E, static_cast<mbedtls_mpi_sint>(least)) >= 0;
}

int rsa_check_pubkey(const rsa_context* key) {
  return key->impl == nullptr || mbedtls_rsa_check_pubkey(&key->impl->key) != 0 ? ERR_RSA_KEY_CHECK_FAILED
                                                                                : 0;
}

int rsa_check_privkey(const rsa_context* key) {
  if (key->impl == nullptr) return ERR_RSA_KEY_CHECK_FAILED;
  // Asked twice before a key is called inconsistent: the library says the same of a moment without memory.
  if (mbedtls_rsa_check_privkey(&key->impl->key) == 0) return 0;
  const int rc = mbedtls_rsa_check_privkey(&key->impl->key);
  return rc == 0 ? 0 : NoMemoryOr(ERR_RSA_KEY_CHECK_FAILED, rc);
}

int rsa_public(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (key->impl == nullptr) return ERR_RSA_PUBLIC_FAILED;
  const int rc = mbedtls_rsa_public(&key->impl->key, input, output);
  return rc == 0 ? 0 : NoMemoryOr(ERR_RSA_PUBLIC_FAILED, rc);
}

int rsa_private(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (key->impl == nullptr) return ERR_RSA_PRIVATE_FAILED;
  mbedtls_rsa_context* const own = &key->impl->key;
  bool without_random = false;
  const auto compute = [&] {
    const int failed = mbedtls_rsa_private(own, Draw, &without_random, input, output);
    if (failed != 0) ForgetBlinding(own);
    return failed;
  };
  int rc = compute();
  // So ends, too, what ran out of memory where the library does not look. A second attempt succeeds or tells.
  if (rc == MBEDTLS_ERR_RSA_VERIFY_FAILED) rc = compute();
  if (rc == 0) return 0;
  return without_random ? ERR_RSA_RNG_FAILED : NoMemoryOr(ERR_RSA_PRIVATE_FAILED, rc);
}

void rsa_free(rsa_context* key) {
  key->impl.reset();
}
