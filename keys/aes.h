// AES-256-CBC without padding: the one block cipher of key files, message bodies and installation files.
#ifndef KESTRUNE_KEYS_AES_H
#define KESTRUNE_KEYS_AES_H

#include <cstddef>

#include "base/export.h"
#include "core/object.h"
#include "crypto/classic.h"

class TypV2InstanceCreator;

// A thin layer without a policy: callers pad and round. Arguments of every ciphering operation: `length`
// input bytes, a 16-byte IV, a 32-byte key, an output of `length` bytes, which may be the input buffer.
// They return 0 or -2064 when the length is no multiple of 16, nothing written. Of the length only the low
// 32 bits count, as a signed number (kept so); a negative one is -2064 too.
//
// The key schedule of the last call stays in the object until it is deleted, then it is wiped.
class KESTRUNE_API TypV2AES : public kestrune::LibraryObject<TypV2AES> {
 public:
  virtual int InitCreate(TypV2InstanceCreator* creator);

  // Does nothing (the key schedule goes with the object). 0.
  virtual int Kill();

  // The caller's IV is left as it was: chunks with an IV each do not depend on one another.
  virtual int crypter(const unsigned char* in, long long length, const unsigned char* iv,
                      const unsigned char* key, unsigned char* out);
  virtual int decrypter(const unsigned char* in, long long length, const unsigned char* iv,
                        const unsigned char* key, unsigned char* out);

  // Sets the 16 bytes of an IV to zero. 0.
  virtual int zeroiv(unsigned char* iv);

  // The IV carries the state of a stream: on return it holds the last ciphertext block, so that the chunks of
  // a long stream give the bytes of one pass over it.
  int cryptershunk(const unsigned char* in, long long length, unsigned char* iv, const unsigned char* key,
                   unsigned char* out);
  int decryptershunk(const unsigned char* in, long long length, unsigned char* iv, const unsigned char* key,
                     unsigned char* out);

 private:
  friend class TypV2KestruneKey;
  static constexpr std::size_t kChunkBytes = 4096;

  // Deciphers `count` chunks of 4096 bytes in place, each by itself: chunk i has the IV at ivs + 16 i. The
  // key schedule is built once for all of them.
  int decrypterchunks(unsigned char* chunks, unsigned long long count, const unsigned char* ivs,
                      const unsigned char* key);

  TypV2InstanceCreator* creator_ = nullptr;
  aes_context context_;
};

#endif
