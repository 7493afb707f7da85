// Who owns the library's big numbers. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_OPENSSL_BIGNUM_H
#define KESTRUNE_CRYPTO_OPENSSL_BIGNUM_H

#include <openssl/bn.h>

#include <memory>

namespace kestrune::crypto {

struct FreeBignum {
  void operator()(BIGNUM* number) const { BN_clear_free(number); }
  void operator()(BN_CTX* scratch) const { BN_CTX_free(scratch); }  // wipes what it holds
  void operator()(BN_MONT_CTX* modulus) const { BN_MONT_CTX_free(modulus); }
};
using Number = std::unique_ptr<BIGNUM, FreeBignum>;
using Scratch = std::unique_ptr<BN_CTX, FreeBignum>;
using Montgomery = std::unique_ptr<BN_MONT_CTX, FreeBignum>;

// Numbers from a scratch, given back together.
class Frame {
 public:
  explicit Frame(BN_CTX* scratch) : scratch_(scratch) { BN_CTX_start(scratch); }
  ~Frame() { BN_CTX_end(scratch_); }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  // Null without memory, and then for each later one too.
  BIGNUM* Take() { return BN_CTX_get(scratch_); }

 private:
  BN_CTX* scratch_;
};

}  // namespace kestrune::crypto

#endif
