/* The least program that does the tool's main job with the same library as one would write it: reads the key,
 * signs, prints. */
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) { /* TEXT KEY-FILE */
  static unsigned char signature[1024];
  static unsigned char base64[2048];
  size_t length = sizeof signature;
  FILE* file;
  EVP_PKEY* key;
  EVP_PKEY_CTX* operation;
  if (argc != 3 || (file = fopen(argv[2], "r")) == NULL) return 1;
  if ((key = PEM_read_PrivateKey(file, NULL, NULL, NULL)) == NULL) return 2;
  if ((operation = EVP_PKEY_CTX_new(key, NULL)) == NULL || EVP_PKEY_sign_init(operation) != 1) return 3;
  if (EVP_PKEY_CTX_set_rsa_padding(operation, RSA_PKCS1_PADDING) != 1 ||
      EVP_PKEY_sign(operation, signature, &length, (unsigned char*)argv[1], strlen(argv[1])) != 1) {
    return 4;
  }
  EVP_EncodeBlock(base64, signature, (int)length);
  return puts((char*)base64) < 0;
}
