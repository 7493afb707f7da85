// The random bytes that hide a private-key operation from those who time it.
#ifndef KESTRUNE_CRYPTO_BLINDING_H
#define KESTRUNE_CRYPTO_BLINDING_H

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>

#include <cstddef>

namespace kestrune::crypto {

// A DRBG (SP 800-90A) seeded from the system's entropy, for one operation: nothing lives between calls.
class BlindingGenerator {
 public:
  BlindingGenerator() {
    mbedtls_entropy_init(&entropy_);
    mbedtls_ctr_drbg_init(&drbg_);
    ready_ = mbedtls_ctr_drbg_seed(&drbg_, mbedtls_entropy_func, &entropy_, nullptr, 0) == 0;
  }
  ~BlindingGenerator() {
    mbedtls_ctr_drbg_free(&drbg_);
    mbedtls_entropy_free(&entropy_);
  }
  BlindingGenerator(const BlindingGenerator&) = delete;
  BlindingGenerator& operator=(const BlindingGenerator&) = delete;

  bool ready() const { return ready_; }
  void* state() { return &drbg_; }
  static int Draw(void* state, unsigned char* output, std::size_t count) {
    return mbedtls_ctr_drbg_random(state, output, count);
  }

 private:
  mbedtls_entropy_context entropy_;
  mbedtls_ctr_drbg_context drbg_;
  bool ready_ = false;
};

}  // namespace kestrune::crypto

#endif
