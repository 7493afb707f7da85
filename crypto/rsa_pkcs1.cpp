// RSA as PKCS#1 v1.5 has it (RFC 8017): the padding around the libraries' bare operations.
#include <cstddef>
#include <span>

#include "base/buffer.h"
#include "crypto/classic.h"
#include "crypto/padding.h"

namespace {

using namespace kestrune::crypto;

// An encoded block as long as a key; wiped.
class Block {
 public:
  explicit Block(const rsa_context& key) : size_(key.len()) {}
  std::span<unsigned char> bytes() { return {storage_.data(), size_}; }
  unsigned char* data() { return storage_.data(); }

 private:
  kestrune::SecretArray<kRsaMostBytes> storage_;
  std::size_t size_;
};

}  // namespace

int rsa_pkcs1_sign(rsa_context* key, int mode, int hash_id, std::size_t length, const unsigned char* bytes,
                   unsigned char* signature) {
  if (mode != RSA_PRIVATE || hash_id != SIG_RSA_RAW || !FitsBlock(length, key->len()))
    return ERR_RSA_BAD_INPUT_DATA;
  Block block(*key);
  PadForSignature({bytes, length}, block.bytes());
  return rsa_private(key, block.data(), signature);
}

int rsa_pkcs1_verify(rsa_context* key, int mode, int hash_id, std::size_t length, const unsigned char* bytes,
                     const unsigned char* signature) {
  if (mode != RSA_PUBLIC || hash_id != SIG_RSA_RAW || !FitsBlock(length, key->len()))
    return ERR_RSA_BAD_INPUT_DATA;
  Block wanted(*key), got(*key);
  PadForSignature({bytes, length}, wanted.bytes());
  if (const int rc = rsa_public(key, signature, got.data()); rc != 0) return rc;
  return equal_in_constant_time(wanted.data(), got.data(), key->len()) ? 0 : ERR_RSA_VERIFY_FAILED;
}

int rsa_pkcs1_encrypt(rsa_context* key, int mode, std::size_t length, const unsigned char* input,
                      unsigned char* output) {
  if (mode != RSA_PUBLIC || !FitsBlock(length, key->len())) return ERR_RSA_BAD_INPUT_DATA;
  Block block(*key);
  if (!PadForEncryption({input, length}, block.bytes())) return ERR_RSA_RNG_FAILED;
  return rsa_public(key, block.data(), output);
}

int rsa_pkcs1_decrypt(rsa_context* key, int mode, std::size_t* output_length, const unsigned char* input,
                      unsigned char* output, std::size_t output_max) {
  *output_length = 0;
  if (mode != RSA_PRIVATE || key->len() == 0) return ERR_RSA_BAD_INPUT_DATA;
  Block block(*key);
  if (const int rc = rsa_private(key, input, block.data()); rc != 0) return rc;
  return Unpad(block.bytes(), output, output_max, output_length);
}
