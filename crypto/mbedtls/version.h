// Where mbed TLS 2.28 and 3.6 differ. For the sources of this folder alone.
//
// The older one answers under names of its own ("_ret"), the newer one hides the numbers of a key unless told that
// they are wanted.
#ifndef KESTRUNE_CRYPTO_MBEDTLS_VERSION_H
#define KESTRUNE_CRYPTO_MBEDTLS_VERSION_H

#define MBEDTLS_ALLOW_PRIVATE_ACCESS
#include <mbedtls/version.h>
// One of the older library's headers does not say itself that it is C.
extern "C" {
#include <mbedtls/constant_time.h>
}
#include <mbedtls/md.h>
#include <mbedtls/md5.h>
#include <mbedtls/pkcs5.h>
#include <mbedtls/rsa.h>
#include <mbedtls/sha1.h>
#include <mbedtls/sha512.h>

#include <cstddef>

#if MBEDTLS_VERSION_MAJOR == 2
#include <mbedtls/arc4.h>
#endif

namespace kestrune::crypto::mbedtls {

#if MBEDTLS_VERSION_MAJOR == 2

inline constexpr bool kIsOlder = true;

inline constexpr auto Sha512 = mbedtls_sha512_ret;
inline constexpr auto Sha512Starts = mbedtls_sha512_starts_ret;
inline constexpr auto Sha512Update = mbedtls_sha512_update_ret;
inline constexpr auto Sha512Finish = mbedtls_sha512_finish_ret;
inline constexpr auto Sha1 = mbedtls_sha1_ret;
inline constexpr auto Sha1Starts = mbedtls_sha1_starts_ret;
inline constexpr auto Sha1Update = mbedtls_sha1_update_ret;
inline constexpr auto Sha1Finish = mbedtls_sha1_finish_ret;
inline constexpr auto Md5Starts = mbedtls_md5_starts_ret;
inline constexpr auto Md5Update = mbedtls_md5_update_ret;
inline constexpr auto Md5Finish = mbedtls_md5_finish_ret;

inline void InitRsa(mbedtls_rsa_context* key) {
  mbedtls_rsa_init(key, MBEDTLS_RSA_PKCS_V15, 0);  // chooses nothing for the bare operations
}

inline int Pbkdf2(mbedtls_md_type_t digest, const unsigned char* phrase, std::size_t phrase_length,
                  const unsigned char* salt, std::size_t salt_length, unsigned iterations,
                  unsigned key_length, unsigned char* key) {
  mbedtls_md_context_t state;
  mbedtls_md_init(&state);
  int rc = mbedtls_md_setup(&state, mbedtls_md_info_from_type(digest), 1);
  if (rc == 0) {
    rc = mbedtls_pkcs5_pbkdf2_hmac(&state, phrase, phrase_length, salt, salt_length, iterations, key_length,
                                   key);
  }
  mbedtls_md_free(&state);
  return rc;
}

inline bool Rc4(const unsigned char* key, std::size_t key_length, unsigned char* bytes, std::size_t length) {
  mbedtls_arc4_context state;
  mbedtls_arc4_init(&state);
  mbedtls_arc4_setup(&state, key, static_cast<unsigned>(key_length));
  const int rc = mbedtls_arc4_crypt(&state, length, bytes, bytes);
  mbedtls_arc4_free(&state);
  return rc == 0;
}

#else

inline constexpr bool kIsOlder = false;

inline constexpr auto Sha512 = mbedtls_sha512;
inline constexpr auto Sha512Starts = mbedtls_sha512_starts;
inline constexpr auto Sha512Update = mbedtls_sha512_update;
inline constexpr auto Sha512Finish = mbedtls_sha512_finish;
inline constexpr auto Sha1 = mbedtls_sha1;
inline constexpr auto Sha1Starts = mbedtls_sha1_starts;
inline constexpr auto Sha1Update = mbedtls_sha1_update;
inline constexpr auto Sha1Finish = mbedtls_sha1_finish;
inline constexpr auto Md5Starts = mbedtls_md5_starts;
inline constexpr auto Md5Update = mbedtls_md5_update;
inline constexpr auto Md5Finish = mbedtls_md5_finish;

inline void InitRsa(mbedtls_rsa_context* key) {
  mbedtls_rsa_init(key);
}

inline int Pbkdf2(mbedtls_md_type_t digest, const unsigned char* phrase, std::size_t phrase_length,
                  const unsigned char* salt, std::size_t salt_length, unsigned iterations,
                  unsigned key_length, unsigned char* key) {
  return mbedtls_pkcs5_pbkdf2_hmac_ext(digest, phrase, phrase_length, salt, salt_length, iterations,
                                       key_length, key);
}

// It has none.
inline bool Rc4(const unsigned char*, std::size_t, unsigned char*, std::size_t) {
  return false;
}

#endif

}  // namespace kestrune::crypto::mbedtls

#endif
