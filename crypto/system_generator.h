// Random bytes for RSA: what hides a private operation from those who time it, and what fills the padding of
// an encryption.
#ifndef KESTRUNE_CRYPTO_SYSTEM_GENERATOR_H
#define KESTRUNE_CRYPTO_SYSTEM_GENERATOR_H

#include <mbedtls/ctr_drbg.h>
#include <sys/random.h>

#include <cstddef>

namespace kestrune::crypto {

// A DRBG (SP 800-90A) seeded from the system's entropy, for one operation: nothing lives between calls.
class SystemGenerator {
 public:
  SystemGenerator() {
    mbedtls_ctr_drbg_init(&drbg_);
    ready_ = mbedtls_ctr_drbg_seed(&drbg_, SystemEntropy, nullptr, nullptr, 0) == 0;
  }
  ~SystemGenerator() { mbedtls_ctr_drbg_free(&drbg_); }
  SystemGenerator(const SystemGenerator&) = delete;
  SystemGenerator& operator=(const SystemGenerator&) = delete;

  bool ready() const { return ready_; }
  void* state() { return &drbg_; }
  static int Draw(void* state, unsigned char* output, std::size_t count) {
    return mbedtls_ctr_drbg_random(state, output, count);
  }

 private:
  // Straight from the system: the library's own collector first mixes timings of the processor, which costs
  // a short program some hundredths of its run and adds nothing to what the system gives.
  static int SystemEntropy(void*, unsigned char* output, std::size_t count) {
    // Requests of up to 256 bytes are answered whole.
    const bool whole = ::getrandom(output, count, 0) == static_cast<ssize_t>(count);
    return whole ? 0 : MBEDTLS_ERR_CTR_DRBG_ENTROPY_SOURCE_FAILED;
  }

  mbedtls_ctr_drbg_context drbg_;
  bool ready_ = false;
};

}  // namespace kestrune::crypto

#endif
