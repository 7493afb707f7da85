// What the cryptographic library's own readers make of a key or certificate file, beside ours.
#ifndef KESTRUNE_FUZZ_WITNESS_H
#define KESTRUNE_FUZZ_WITNESS_H

#include <span>
#include <vector>

#include "crypto/classic.h"

namespace kestrune::testing {

using Bytes = std::vector<unsigned char>;

// Modulus, public exponent and, of a private key, private exponent and primes, without zeros before them. None: no RSA
// key was read.
using Numbers = std::vector<Bytes>;

Numbers NumbersOf(const rsa_context& key);

// libcrypto's readers of PEM go by lines; beside them, DER alone is compared.
extern const bool kLibraryReadsPem;
// mbed TLS 2.28 takes and refuses what we do, whichever library is there. 3.6 refuses some more of what is damaged (bytes
// behind a key, say). libcrypto does, too, and takes BER, and names, dates and extensions that are none.
extern const bool kLibraryTakesAllOfOurs;
extern const bool kLibraryTakesNoOthers;

// `text` has a zero behind the file's bytes.
Numbers LibraryReadsKey(std::span<const unsigned char> text, const char* phrase);

// *unread becomes the number of certificates that could not be read beside the one that was.
Numbers LibraryReadsCertificate(std::span<const unsigned char> text, int* unread);

}  // namespace kestrune::testing

#endif
