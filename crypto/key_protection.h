// What stands between a private key's file and the key.
//
// For the library's own use; neither installed nor exported.
#ifndef KESTRUNE_CRYPTO_KEY_PROTECTION_H
#define KESTRUNE_CRYPTO_KEY_PROTECTION_H

namespace kestrune::crypto {

enum class KeyProtection {
  kNone,        // x509parse_keyfile tells without a pass phrase whether it is a key
  kPassPhrase,  // it would try one
  kUnread,      // whatever the pass phrase: a way that is not read, damaged, or no RSA key
  kNoMemory,
};

// Of the file at `path`. Asks for no pass phrase and derives nothing from one.
KeyProtection ProtectionOf(const char* path);

}  // namespace kestrune::crypto

#endif
