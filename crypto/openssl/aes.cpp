// AES-CBC through the library's providers: its direct calls do not reach the processor's own AES instructions.
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "crypto/classic.h"
#include "crypto/openssl/error_queue.h"
#include "crypto/openssl/providers.h"
#include "crypto/state.h"

using kestrune::crypto::ErrorQueue;
using kestrune::crypto::OwnProviders;
using kestrune::crypto::Providers;
using kestrune::crypto::StateIn;

namespace {

constexpr std::size_t kMostAtOnce = 1 << 30;  // whole blocks, and an int

// What the context's room holds.
struct Schedule {
  EVP_CIPHER_CTX* cipher;  // null until the first key
};

Schedule* ScheduleOf(aes_context* context) {
  return StateIn<Schedule>(context->state);
}

bool IsKeyLength(unsigned bits) {
  return bits == 128 || bits == 192 || bits == 256;
}

EVP_CIPHER* CipherFor(unsigned bits) {
  if (!IsKeyLength(bits)) return nullptr;
  const Providers* const providers = OwnProviders();
  return providers == nullptr ? nullptr : providers->aes_cbc[(bits - 128) / 64];
}

bool Set(Schedule* schedule, const unsigned char* key, unsigned bits, int direction) {
  const EVP_CIPHER* const cipher = CipherFor(bits);
  if (cipher == nullptr) return false;
  if (schedule->cipher == nullptr) schedule->cipher = EVP_CIPHER_CTX_new();
  return schedule->cipher != nullptr &&
         EVP_CipherInit_ex2(schedule->cipher, cipher, key, nullptr, direction, nullptr) == 1 &&
         EVP_CIPHER_CTX_set_padding(schedule->cipher, 0) == 1;
}

int SetSchedule(aes_context* context, const unsigned char* key, unsigned bits, int direction) {
  const ErrorQueue errors;
  Schedule* const schedule = ScheduleOf(context);
  context->has_schedule = Set(schedule, key, bits, direction);
  if (context->has_schedule) return 0;
  EVP_CIPHER_CTX_reset(schedule->cipher);
  return IsKeyLength(bits) ? ERR_AES_NO_MEMORY : ERR_AES_INVALID_KEY_LENGTH;
}

}  // namespace

aes_context::aes_context() noexcept = default;
aes_context::~aes_context() {
  EVP_CIPHER_CTX_free(ScheduleOf(this)->cipher);  // wipes
}

int aes_setkey_enc(aes_context* context, const unsigned char* key, unsigned bits) {
  return SetSchedule(context, key, bits, AES_ENCRYPT);
}

int aes_setkey_dec(aes_context* context, const unsigned char* key, unsigned bits) {
  return SetSchedule(context, key, bits, AES_DECRYPT);
}

int aes_crypt_cbc(aes_context* context, int mode, std::size_t length, unsigned char* iv,
                  const unsigned char* input, unsigned char* output) {
  if (length % kAesBlockBytes != 0) return ERR_AES_INVALID_INPUT_LENGTH;
  if (length == 0) return 0;
  if (!context->has_schedule) return ERR_AES_INVALID_KEY_LENGTH;
  const ErrorQueue errors;
  EVP_CIPHER_CTX* const cipher = ScheduleOf(context)->cipher;
  unsigned char last[kAesBlockBytes];  // of the ciphertext, which is the output when that is made
  if (mode != AES_ENCRYPT) std::memcpy(last, input + length - kAesBlockBytes, sizeof last);
  bool done = EVP_CipherInit_ex2(cipher, nullptr, nullptr, iv, -1, nullptr) == 1;
  for (std::size_t position = 0; done && position < length;) {
    const std::size_t count = std::min(length - position, kMostAtOnce);
    int written = 0;
    done = EVP_CipherUpdate(cipher, output + position, &written, input + position, static_cast<int>(count)) ==
               1 &&
           written == static_cast<int>(count);
    position += count;
  }
  if (!done) return ERR_AES_NO_MEMORY;
  std::memcpy(iv, mode == AES_ENCRYPT ? output + length - kAesBlockBytes : last, kAesBlockBytes);
  return 0;
}
