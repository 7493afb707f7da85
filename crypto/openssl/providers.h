// The state of the cryptographic library that is this library's own. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_OPENSSL_PROVIDERS_H
#define KESTRUNE_CRYPTO_OPENSSL_PROVIDERS_H

#include <openssl/types.h>

namespace kestrune::crypto {

// What goes through the library's providers: made when it is first wanted (which takes longer than a signature),
// apart from the state that a program which uses the same library sets up, and never given back. No configuration
// file and no exit handler belongs to it: a program that wants them for itself initialises the library first. A
// process that forks while another of its threads is making it makes its own in the child.
struct Providers {
  OSSL_LIB_CTX* context;
  EVP_CIPHER* aes_cbc[3];  // 128, 192 and 256 bits
};

// Null without memory.
const Providers* OwnProviders();

}  // namespace kestrune::crypto

#endif
