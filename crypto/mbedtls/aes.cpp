// AES-CBC behind the classic names.
#include <mbedtls/aes.h>

#include "crypto/classic.h"
#include "crypto/state.h"

using kestrune::crypto::StateIn;

namespace {

mbedtls_aes_context* ScheduleOf(aes_context* context) {
  return StateIn<mbedtls_aes_context>(context->state);
}

// The old schedule is wiped first. One that was not built must not be used: the library would follow its null
// pointer.
template <class SetKey>
int SetSchedule(aes_context* context, SetKey&& set_key, const unsigned char* key, unsigned bits) {
  mbedtls_aes_free(ScheduleOf(context));
  const int rc = set_key(ScheduleOf(context), key, bits);
  context->has_schedule = rc == 0;
  return rc == 0 ? 0 : ERR_AES_INVALID_KEY_LENGTH;
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

aes_context::aes_context() noexcept {
  mbedtls_aes_init(ScheduleOf(this));
}
aes_context::~aes_context() = default;

int aes_setkey_enc(aes_context* context, const unsigned char* key, unsigned bits) {
  return SetSchedule(context, mbedtls_aes_setkey_enc, key, bits);
}

int aes_setkey_dec(aes_context* context, const unsigned char* key, unsigned bits) {
  return SetSchedule(context, mbedtls_aes_setkey_dec, key, bits);
}

int aes_crypt_cbc(aes_context* context, int mode, std::size_t length, unsigned char* iv,
                  const unsigned char* input, unsigned char* output) {
  if (length % kAesBlockBytes != 0) return ERR_AES_INVALID_INPUT_LENGTH;
  if (length == 0) return 0;
  if (!context->has_schedule) return ERR_AES_INVALID_KEY_LENGTH;
  const int direction = mode == AES_ENCRYPT ? MBEDTLS_AES_ENCRYPT : MBEDTLS_AES_DECRYPT;
  return mbedtls_aes_crypt_cbc(ScheduleOf(context), direction, length, iv, input, output);
}
