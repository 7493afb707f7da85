// What the library does not look at in a protected key. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_PROTECTED_KEY_H
#define KESTRUNE_CRYPTO_PROTECTED_KEY_H

#include <cstddef>

namespace kestrune::crypto {

// True for a protected PKCS#8 key, as PEM or DER, that wants its pass phrase hashed more than 10,000,000 times:
// whoever can write a file could have a program compute for hours. `key` has `size` bytes; PEM ends with a zero
// that counts.
bool StatesTooManyIterations(const unsigned char* key, std::size_t size);

// For a key that could not be read: true when `pem` (`size` bytes, the last one zero) is a protected private
// key, traditional or PKCS#8, and what this pass phrase deciphers does not begin as a private key.
//
// The library itself guesses from two bytes (or from the padding), so that one wrong pass phrase in a few
// hundred would pass for a damaged key.
bool IsOpenedByAnother(const unsigned char* pem, std::size_t size, const unsigned char* password,
                       std::size_t password_length);

}  // namespace kestrune::crypto

#endif
