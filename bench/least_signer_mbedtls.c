/* The least program that does the tool's main job with the same library: reads the key, signs blinded,
 * prints. */
#include <mbedtls/base64.h>
#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/pk.h>
#include <mbedtls/rsa.h>
#include <mbedtls/version.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) { /* TEXT KEY-FILE */
  static unsigned char signature[1024];
  static unsigned char base64[2048];
  size_t length;
  mbedtls_pk_context key;
  mbedtls_entropy_context entropy;
  mbedtls_ctr_drbg_context drbg;
  if (argc != 3) return 1;
  mbedtls_pk_init(&key);
  mbedtls_entropy_init(&entropy);
  mbedtls_ctr_drbg_init(&drbg);
  if (mbedtls_ctr_drbg_seed(&drbg, mbedtls_entropy_func, &entropy, NULL, 0) != 0) return 3;
#if MBEDTLS_VERSION_MAJOR == 2
  if (mbedtls_pk_parse_keyfile(&key, argv[2], NULL) != 0) return 2;
  if (mbedtls_rsa_pkcs1_sign(mbedtls_pk_rsa(key), mbedtls_ctr_drbg_random, &drbg, MBEDTLS_RSA_PRIVATE,
                             MBEDTLS_MD_NONE, (unsigned)strlen(argv[1]), (unsigned char*)argv[1],
                             signature)) {
    return 4;
  }
#else
  if (mbedtls_pk_parse_keyfile(&key, argv[2], NULL, mbedtls_ctr_drbg_random, &drbg) != 0) return 2;
  if (mbedtls_rsa_pkcs1_sign(mbedtls_pk_rsa(key), mbedtls_ctr_drbg_random, &drbg, MBEDTLS_MD_NONE,
                             (unsigned)strlen(argv[1]), (unsigned char*)argv[1], signature)) {
    return 4;
  }
#endif
  mbedtls_base64_encode(base64, sizeof base64, &length, signature, mbedtls_pk_get_len(&key));
  return puts((char*)base64) < 0;
}
