#include "keys/aes.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "core/result.h"

using namespace kestrune;

namespace {

// The count that the cipher is given: the low 32 bits, signed. A negative one is no multiple of anything.
bool ToCount(long long length, std::size_t* count) {
  const auto low = static_cast<std::int32_t>(length);
  *count = static_cast<std::size_t>(low);
  return low >= 0;
}

struct PrivateIv {
  std::array<unsigned char, kAesBlockBytes> bytes;
  explicit PrivateIv(const unsigned char* iv) { std::memcpy(bytes.data(), iv, bytes.size()); }
};

}  // namespace

int TypV2AES::InitCreate(TypV2InstanceCreator* creator) {
  creator_ = creator;
  return kOk;
}

int TypV2AES::Kill() {
  return kOk;
}

int TypV2AES::crypter(const unsigned char* in, long long length, const unsigned char* iv,
                      const unsigned char* key, unsigned char* out) {
  PrivateIv own(iv);
  return cryptershunk(in, length, own.bytes.data(), key, out);
}

int TypV2AES::decrypter(const unsigned char* in, long long length, const unsigned char* iv,
                        const unsigned char* key, unsigned char* out) {
  PrivateIv own(iv);
  return decryptershunk(in, length, own.bytes.data(), key, out);
}

int TypV2AES::zeroiv(unsigned char* iv) {
  std::memset(iv, 0, kAesBlockBytes);
  return kOk;
}

int TypV2AES::cryptershunk(const unsigned char* in, long long length, unsigned char* iv,
                           const unsigned char* key, unsigned char* out) {
  if (const int rc = aes_setkey_enc(&context_, key, kAes256KeyBits); rc != 0) return rc;
  std::size_t count = 0;
  if (!ToCount(length, &count)) return ERR_AES_INVALID_INPUT_LENGTH;
  return aes_crypt_cbc(&context_, AES_ENCRYPT, count, iv, in, out);
}

int TypV2AES::decryptershunk(const unsigned char* in, long long length, unsigned char* iv,
                             const unsigned char* key, unsigned char* out) {
  if (const int rc = aes_setkey_dec(&context_, key, kAes256KeyBits); rc != 0) return rc;
  std::size_t count = 0;
  if (!ToCount(length, &count)) return ERR_AES_INVALID_INPUT_LENGTH;
  return aes_crypt_cbc(&context_, AES_DECRYPT, count, iv, in, out);
}

int TypV2AES::decrypterchunks(unsigned char* chunks, unsigned long long count, const unsigned char* ivs,
                              const unsigned char* key) {
  if (const int rc = aes_setkey_dec(&context_, key, kAes256KeyBits); rc != 0) return rc;
  for (unsigned long long i = 0; i < count; ++i) {
    PrivateIv own(ivs + i * kAesBlockBytes);
    unsigned char* const chunk = chunks + i * kChunkBytes;
    if (const int rc = aes_crypt_cbc(&context_, AES_DECRYPT, kChunkBytes, own.bytes.data(), chunk, chunk);
        rc != 0) {
      return rc;
    }
  }
  return kOk;
}
