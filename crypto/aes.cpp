// AES-CBC behind the classic names.
#include <mbedtls/aes.h>

#include <utility>

#include "crypto/classic.h"
#include "crypto/errors.h"

using kestrune::crypto::ToClassicError;

struct aes_context::Impl {
  mbedtls_aes_context schedule;
  Impl() { mbedtls_aes_init(&schedule); }
  ~Impl() { mbedtls_aes_free(&schedule); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
};

namespace {

// A schedule holds a pointer into itself, so each key gets a fresh one; the old one is wiped first.
mbedtls_aes_context* FreshSchedule(aes_context* context) {
  if (context->impl == nullptr) {
    context->impl = std::make_unique<aes_context::Impl>();
  } else {
    mbedtls_aes_free(&context->impl->schedule);
    mbedtls_aes_init(&context->impl->schedule);
  }
  return &context->impl->schedule;
}

// A schedule that was not built must not be used: the library would follow its null pointer.
int KeepOnlyWhenSet(aes_context* context, int library_error) {
  if (library_error != 0) context->impl.reset();
  return ToClassicError(library_error);
}

// The library fills its tables with the first key and has no lock for that, so the first key is set here, before
// there can be threads.
[[maybe_unused]] const bool g_tables_are_filled = [] {
  constexpr unsigned char kAnyKey[kAes256KeyBytes] = {};
  mbedtls_aes_context schedule;
  mbedtls_aes_init(&schedule);
  const int rc = mbedtls_aes_setkey_enc(&schedule, kAnyKey, 8 * kAes256KeyBytes);
  mbedtls_aes_free(&schedule);
  return rc == 0;
}();

}  // namespace

aes_context::aes_context() noexcept = default;
aes_context::~aes_context() = default;

int aes_setkey_enc(aes_context* context, const unsigned char* key, unsigned bits) {
  return KeepOnlyWhenSet(context, mbedtls_aes_setkey_enc(FreshSchedule(context), key, bits));
}

int aes_setkey_dec(aes_context* context, const unsigned char* key, unsigned bits) {
  return KeepOnlyWhenSet(context, mbedtls_aes_setkey_dec(FreshSchedule(context), key, bits));
}

int aes_crypt_cbc(aes_context* context, int mode, std::size_t length, unsigned char* iv,
                  const unsigned char* input, unsigned char* output) {
  if (length % kAesBlockBytes != 0) return ERR_AES_INVALID_INPUT_LENGTH;
  if (length == 0) return 0;
  if (context->impl == nullptr) return ERR_AES_INVALID_KEY_LENGTH;
  const int direction = mode == AES_ENCRYPT ? MBEDTLS_AES_ENCRYPT : MBEDTLS_AES_DECRYPT;
  return ToClassicError(
      mbedtls_aes_crypt_cbc(&context->impl->schedule, direction, length, iv, input, output));
}
