// RSA by the library's big numbers.
//
// Not by its keys and providers: setting those up takes several times as long as a signature, for the sake of random
// numbers that the system gives as well. What a program without them has to do itself is done here: private
// operations are blinded, and checked with the public half before they leave (a faulty computation would betray the
// key).
#include <openssl/bn.h>
#include <openssl/bnerr.h>
#include <openssl/err.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "base/buffer.h"
#include "base/system_random.h"
#include "crypto/classic.h"
#include "crypto/library.h"
#include "crypto/openssl/bignum.h"
#include "crypto/openssl/error_queue.h"
#include "crypto/openssl/rsa_impl.h"

using kestrune::SecretArray;
using namespace kestrune::crypto;

namespace {

using Impl = rsa_context::Impl;

constexpr int kLeastModulusBits = 128;
constexpr std::size_t kBlindingBytes = 32;
constexpr BN_ULONG kBlindingSpread = 65537;
constexpr int kMostBlindingDraws = 10;  // a draw that will not do betrays a factor of the key: there is none

bool SetModulus(Montgomery* modulus, const BIGNUM* value, BN_CTX* scratch) {
  modulus->reset(BN_MONT_CTX_new());
  return *modulus != nullptr && BN_MONT_CTX_set(modulus->get(), value, scratch) == 1;
}

// base^exponent by the modulus, for what is no secret.
bool PublicPower(BIGNUM* result, const BIGNUM* base, const Impl& key, BN_CTX* scratch) {
  return BN_mod_exp_mont(result, base, key.public_exponent.get(), key.modulus.get(), scratch,
                         key.by_modulus.get()) == 1;
}

// A random odd number and its inverse by the modulus. The number is short, for an inverse by a short number is found
// many times as quickly: where t is the inverse of the modulus by the number, it is (modulus * (number - t) + 1) / number.
int DrawInvertible(BIGNUM* number, BIGNUM* inverse, const Impl& key, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const rest = frame.Take();
  BIGNUM* const divisor = frame.Take();  // the number, told to be a secret where that costs little
  if (divisor == nullptr) return ERR_NO_MEMORY;
  SecretArray<kBlindingBytes> bytes;
  for (int draw = 0; draw < kMostBlindingDraws; ++draw) {
    if (!kestrune::DrawFromSystem(bytes.data(), bytes.size())) return ERR_RSA_RNG_FAILED;
    bytes.data()[kBlindingBytes - 1] |= 1;
    if (BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), number) == nullptr ||
        BN_copy(divisor, number) == nullptr || BN_mod(rest, key.modulus.get(), number, scratch) != 1) {
      return ERR_NO_MEMORY;
    }
    BN_set_flags(divisor, BN_FLG_CONSTTIME);
    if (BN_mod_inverse(rest, rest, divisor, scratch) == nullptr) {
      if (ERR_GET_REASON(ERR_peek_last_error()) != BN_R_NO_INVERSE) return ERR_NO_MEMORY;
      continue;
    }
    const bool done = BN_sub(rest, number, rest) == 1 &&
                      BN_mul(rest, rest, key.modulus.get(), scratch) == 1 && BN_add_word(rest, 1) == 1 &&
                      BN_div(inverse, nullptr, rest, number, scratch) == 1;
    return done ? 0 : ERR_NO_MEMORY;
  }
  return ERR_RSA_PRIVATE_FAILED;
}

// A factor for the input and the one that takes it out of the result: r^e, and the inverse of r, where r is a power of
// a random number that is as long as the modulus whatever e is.
int DrawBlinding(BIGNUM* factor, BIGNUM* inverse, const Impl& key, BN_CTX* scratch) {
  if (const int rc = DrawInvertible(factor, inverse, key, scratch); rc != 0) return rc;
  Frame frame(scratch);
  BIGNUM* const spread = frame.Take();
  const BIGNUM* const modulus = key.modulus.get();
  const bool done = spread != nullptr && BN_set_word(spread, kBlindingSpread) == 1 &&
                    BN_nnmod(factor, factor, modulus, scratch) == 1 &&
                    BN_mod_exp_mont(factor, factor, spread, modulus, scratch, key.by_modulus.get()) == 1 &&
                    BN_mod_exp_mont(inverse, inverse, spread, modulus, scratch, key.by_modulus.get()) == 1 &&
                    PublicPower(factor, factor, key, scratch);
  return done ? 0 : ERR_NO_MEMORY;
}

// input^d by the modulus, from the powers by the two primes.
bool PrivatePower(BIGNUM* result, const BIGNUM* input, const Impl& key, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const first = frame.Take();
  BIGNUM* const second = frame.Take();
  BIGNUM* const power = frame.Take();
  if (power == nullptr) return false;
  const BIGNUM* const p = key.prime[0].get();
  const BIGNUM* const q = key.prime[1].get();
  return BN_mod(first, input, p, scratch) == 1 && BN_mod(second, input, q, scratch) == 1 &&
         BN_mod_exp_mont_consttime_x2(first, first, key.exponent[0].get(), p, key.by_prime[0].get(), second,
                                      second, key.exponent[1].get(), q, key.by_prime[1].get(),
                                      scratch) == 1 &&
         BN_mod_sub(power, first, second, p, scratch) == 1 &&
         BN_mod_mul(power, power, key.coefficient.get(), p, scratch) == 1 &&
         BN_mul(power, power, q, scratch) == 1 && BN_add(result, power, second) == 1;
}

int Private(const Impl& key, const unsigned char* input, unsigned char* output) {
  const Scratch scratch(BN_CTX_new());
  if (scratch == nullptr) return ERR_NO_MEMORY;
  Frame frame(scratch.get());
  BIGNUM* const value = frame.Take();
  BIGNUM* const factor = frame.Take();
  BIGNUM* const inverse = frame.Take();
  BIGNUM* const result = frame.Take();
  const BIGNUM* const modulus = key.modulus.get();
  const auto length = static_cast<int>(key.bytes);
  if (result == nullptr || BN_bin2bn(input, length, value) == nullptr) return ERR_NO_MEMORY;
  if (BN_ucmp(value, modulus) >= 0) return ERR_RSA_PRIVATE_FAILED;
  if (const int rc = DrawBlinding(factor, inverse, key, scratch.get()); rc != 0) return rc;
  const bool computed = BN_mod_mul(factor, value, factor, modulus, scratch.get()) == 1 &&
                        PrivatePower(result, factor, key, scratch.get()) &&
                        BN_mod_mul(result, result, inverse, modulus, scratch.get()) == 1 &&
                        PublicPower(factor, result, key, scratch.get());
  if (!computed) return ERR_NO_MEMORY;  // what else can fail in numbers
  if (BN_cmp(factor, value) != 0) return ERR_RSA_PRIVATE_FAILED;
  return BN_bn2binpad(result, output, length) == length ? 0 : ERR_RSA_PRIVATE_FAILED;
}

// number by (modulus - 1) is what `other` is.
bool AreCongruent(const BIGNUM* number, const BIGNUM* other, const BIGNUM* prime, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const less_one = frame.Take();
  BIGNUM* const difference = frame.Take();
  return difference != nullptr && BN_copy(less_one, prime) != nullptr && BN_sub_word(less_one, 1) == 1 &&
         !BN_is_zero(less_one) && BN_sub(difference, number, other) == 1 &&
         BN_nnmod(difference, difference, less_one, scratch) == 1 && BN_is_zero(difference);
}

bool IsConsistent(const Impl& key, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const product = frame.Take();
  if (product == nullptr) return false;
  const BIGNUM* const d = key.private_exponent.get();
  const BIGNUM* const p = key.prime[0].get();
  const BIGNUM* const q = key.prime[1].get();
  if (BN_mul(product, p, q, scratch) != 1 || BN_cmp(product, key.modulus.get()) != 0) return false;
  if (BN_is_one(d) || BN_cmp(d, key.modulus.get()) >= 0) return false;
  if (BN_mul(product, d, key.public_exponent.get(), scratch) != 1) return false;
  return AreCongruent(product, BN_value_one(), p, scratch) &&
         AreCongruent(product, BN_value_one(), q, scratch) &&
         AreCongruent(key.exponent[0].get(), d, p, scratch) &&
         AreCongruent(key.exponent[1].get(), d, q, scratch) &&
         BN_mod_mul(product, key.coefficient.get(), q, p, scratch) == 1 && BN_is_one(product);
}

bool Read(Number* number, Bytes bytes) {
  number->reset(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
  return *number != nullptr;
}

bool ReadSecret(Number* number, Bytes bytes) {
  if (!Read(number, bytes)) return false;
  BN_set_flags(number->get(), BN_FLG_CONSTTIME);
  return true;
}

bool ReadAll(Impl* key, const RsaNumbers& numbers) {
  if (!Read(&key->modulus, numbers.modulus) || !Read(&key->public_exponent, numbers.public_exponent))
    return false;
  key->bytes = static_cast<std::size_t>(BN_num_bytes(key->modulus.get()));
  if (!numbers.is_private()) return true;
  for (int i = 0; i < 2; ++i) {
    if (!ReadSecret(&key->prime[i], numbers.prime[i]) ||
        !ReadSecret(&key->exponent[i], numbers.exponent[i])) {
      return false;
    }
  }
  return ReadSecret(&key->coefficient, numbers.coefficient) &&
         ReadSecret(&key->private_exponent, numbers.private_exponent);
}

bool IsUsable(const Impl& key) {
  const BIGNUM* const n = key.modulus.get();
  const BIGNUM* const e = key.public_exponent.get();
  const bool is_public = BN_is_odd(n) && BN_num_bits(n) >= kLeastModulusBits && key.bytes <= kRsaMostBytes &&
                         BN_is_odd(e) && !BN_is_one(e) && BN_ucmp(e, n) < 0;
  return is_public && (!key.is_private() || (BN_is_odd(key.prime[0].get()) && BN_is_odd(key.prime[1].get())));
}

bool SetModuli(Impl* key, BN_CTX* scratch) {
  return SetModulus(&key->by_modulus, key->modulus.get(), scratch) &&
         (!key->is_private() || (SetModulus(&key->by_prime[0], key->prime[0].get(), scratch) &&
                                 SetModulus(&key->by_prime[1], key->prime[1].get(), scratch)));
}

}  // namespace

int kestrune::crypto::MakeRsaKey(const RsaNumbers& numbers, rsa_context* key) {
  const ErrorQueue errors;
  std::unique_ptr<Impl> held(new (std::nothrow) Impl);
  const Scratch scratch(BN_CTX_new());
  if (held == nullptr || scratch == nullptr || !ReadAll(held.get(), numbers)) return ERR_NO_MEMORY;
  if (!IsUsable(*held)) return ERR_RSA_KEY_CHECK_FAILED;
  if (!SetModuli(held.get(), scratch.get())) return ERR_NO_MEMORY;
  key->impl = std::move(held);
  return 0;
}

std::size_t kestrune::crypto::WriteRsaNumber(const rsa_context& key, int number, unsigned char* output) {
  if (key.impl == nullptr) return 0;
  const Impl& held = *key.impl;
  const BIGNUM* const numbers[kRsaNumbers] = {
      held.modulus.get(),  held.public_exponent.get(), held.private_exponent.get(), held.prime[0].get(),
      held.prime[1].get(), held.exponent[0].get(),     held.exponent[1].get(),      held.coefficient.get()};
  const BIGNUM* const value = numbers[number];
  if (value == nullptr || BN_num_bytes(value) > static_cast<int>(kRsaMostBytes)) return 0;
  return static_cast<std::size_t>(BN_bn2bin(value, output));
}

namespace {

// A prime p, as long as half a modulus, where p - 1 has an inverse by the exponent.
bool DrawPrime(BIGNUM* prime, int bits, const BIGNUM* exponent, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const rest = frame.Take();
  if (rest == nullptr) return false;
  do {
    if (BN_generate_prime_ex2(prime, bits, 0, nullptr, nullptr, nullptr, scratch) != 1 ||
        BN_mod(rest, prime, exponent, scratch) != 1)
      return false;
    BN_set_flags(prime, BN_FLG_CONSTTIME);
  } while (BN_is_one(rest));  // the exponent is a prime: it divides p - 1, or has no factor with it
  return true;
}

// The numbers of a fresh key, in the order of RSAPrivateKey.
bool DrawKey(BIGNUM* const (&numbers)[kRsaNumbers], int bits, BN_CTX* scratch) {
  Frame frame(scratch);
  BIGNUM* const before_p = frame.Take();
  BIGNUM* const before_q = frame.Take();
  BIGNUM* const phi = frame.Take();
  auto& [n, e, d, p, q, dp, dq, qp] = numbers;
  if (phi == nullptr || BN_set_word(e, kUsualExponent) != 1) return false;
  BN_set_flags(phi, BN_FLG_CONSTTIME);
  // Both have their two highest bits set, so their product has all of its bits.
  const bool is_drawn = DrawPrime(p, bits / 2, e, scratch) && DrawPrime(q, bits / 2, e, scratch) &&
                        BN_cmp(p, q) != 0 && BN_mul(n, p, q, scratch) == 1 &&
                        BN_copy(before_p, p) != nullptr && BN_sub_word(before_p, 1) == 1 &&
                        BN_copy(before_q, q) != nullptr && BN_sub_word(before_q, 1) == 1;
  return is_drawn && BN_mul(phi, before_p, before_q, scratch) == 1 &&
         BN_mod_inverse(d, e, phi, scratch) != nullptr && BN_mod(dp, d, before_p, scratch) == 1 &&
         BN_mod(dq, d, before_q, scratch) == 1 && BN_mod_inverse(qp, q, p, scratch) != nullptr;
}

}  // namespace

int kestrune::crypto::GenerateRsaKey(rsa_context* key, unsigned bits) {
  const ErrorQueue errors;
  const Scratch scratch(BN_CTX_secure_new());
  if (scratch == nullptr) return ERR_NO_MEMORY;
  Frame frame(scratch.get());
  BIGNUM* numbers[kRsaNumbers];
  for (BIGNUM*& number : numbers) number = frame.Take();
  if (numbers[kRsaNumbers - 1] == nullptr) return ERR_NO_MEMORY;
  if (!DrawKey(numbers, static_cast<int>(bits), scratch.get())) return ERR_RSA_KEY_CHECK_FAILED;
  SecretArray<kRsaNumbers * kRsaMostBytes> bytes;
  Bytes written[kRsaNumbers];
  for (int i = 0; i < kRsaNumbers; ++i) {
    unsigned char* const place = bytes.data() + static_cast<std::size_t>(i) * kRsaMostBytes;
    written[i] = {place, static_cast<std::size_t>(BN_bn2bin(numbers[i], place))};
  }
  const auto& [n, e, d, p, q, dp, dq, qp] = written;
  return MakeRsaKey({n, e, d, {p, q}, {dp, dq}, qp}, key);
}

rsa_context::rsa_context() noexcept = default;
rsa_context::~rsa_context() = default;

std::size_t rsa_context::len() const {
  return impl == nullptr ? 0 : impl->bytes;
}

bool rsa_context::public_exponent_at_least(unsigned least) const {
  if (impl == nullptr) return false;
  const BIGNUM* const e = impl->public_exponent.get();
  return BN_num_bits(e) > 32 || BN_get_word(e) >= least;
}

int rsa_check_pubkey(const rsa_context* key) {
  return key->impl == nullptr ? ERR_RSA_KEY_CHECK_FAILED : 0;  // checked when it was read
}

int rsa_check_privkey(const rsa_context* key) {
  if (key->impl == nullptr || !key->impl->is_private()) return ERR_RSA_KEY_CHECK_FAILED;
  const ErrorQueue errors;
  const Scratch scratch(BN_CTX_new());
  if (scratch == nullptr) return ERR_NO_MEMORY;
  // Asked twice before a key is called inconsistent: lack of memory for a number looks the same.
  if (IsConsistent(*key->impl, scratch.get())) return 0;
  if (IsConsistent(*key->impl, scratch.get())) return 0;
  return Number(BN_new()) == nullptr ? ERR_NO_MEMORY : ERR_RSA_KEY_CHECK_FAILED;
}

int rsa_public(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (key->impl == nullptr) return ERR_RSA_PUBLIC_FAILED;
  const ErrorQueue errors;
  const Scratch scratch(BN_CTX_new());
  if (scratch == nullptr) return ERR_NO_MEMORY;
  Frame frame(scratch.get());
  BIGNUM* const value = frame.Take();
  const auto length = static_cast<int>(key->impl->bytes);
  if (value == nullptr || BN_bin2bn(input, length, value) == nullptr) return ERR_NO_MEMORY;
  if (BN_ucmp(value, key->impl->modulus.get()) >= 0) return ERR_RSA_PUBLIC_FAILED;
  const bool done =
      PublicPower(value, value, *key->impl, scratch.get()) && BN_bn2binpad(value, output, length) == length;
  return done ? 0 : ERR_NO_MEMORY;
}

int rsa_private(rsa_context* key, const unsigned char* input, unsigned char* output) {
  if (key->impl == nullptr || !key->impl->is_private()) return ERR_RSA_PRIVATE_FAILED;
  const ErrorQueue errors;
  return Private(*key->impl, input, output);
}

void rsa_free(rsa_context* key) {
  key->impl.reset();
}
