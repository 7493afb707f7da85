// What a pass phrase opens. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_PASS_PHRASE_H
#define KESTRUNE_CRYPTO_PASS_PHRASE_H

#include <cstddef>

#include "base/buffer.h"
#include "crypto/der.h"

namespace kestrune::crypto {

struct PassPhrase {
  const unsigned char* text = nullptr;  // null: none
  std::size_t length = 0;

  der::Bytes bytes() const { return {text, length}; }
};

enum class Cipher { kDes, kDoubleDes, kTripleDes, kAes128, kAes192, kAes256 };  // all in CBC mode

inline constexpr std::size_t kMostCipherKeyBytes = 32;
inline constexpr std::size_t kMostBlockBytes = 16;
std::size_t KeyBytes(Cipher cipher);
std::size_t BlockBytes(Cipher cipher);

// Deciphers a traditional PEM part (RFC 1421) in place: the key is made of MD5 over the pass phrase and the first 8
// bytes of the IV. The bytes are a whole number of blocks. False without memory.
bool OpenTraditional(Cipher cipher, const unsigned char* iv, const PassPhrase& phrase,
                     std::span<unsigned char> bytes);

enum class Opened {
  kUnreadable,  // by a way that is not read, or damaged
  kNoMemory,
  kMismatch,  // another pass phrase was used, or none is given
  kDone,
};

// EncryptedPrivateKeyInfo (RFC 5958): PBES2 (RFC 8018) with DES, or AES where the library reads that, or PKCS#12's ways
// (RFC 7292) with DES, or RC4 where the library has it. What states more than 10,000,000 iterations, which would be
// opened for hours, is unreadable. `plain` keeps the padding behind the key.
Opened OpenPkcs8(der::Bytes der, const PassPhrase& phrase, SecretCBuffer* plain);

// Whether it is one, and whether OpenPkcs8 would try a pass phrase on it.
bool IsEnciphered(der::Bytes der);
bool ReadsWay(der::Bytes der);

// Every private key is a sequence that begins with a version number; what a wrong pass phrase deciphers to is none. A
// guess from less (two bytes, or the padding) would take one wrong phrase in a few hundred for a damaged key.
bool BeginsAsKey(der::Bytes bytes, int wanted_version);

}  // namespace kestrune::crypto

#endif
