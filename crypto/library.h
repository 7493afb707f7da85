// What the folder of each cryptographic library gives besides the bare operations of crypto/classic.h (hashes,
// AES, rsa_public, rsa_private, the checks of a key). For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_LIBRARY_H
#define KESTRUNE_CRYPTO_LIBRARY_H

#include <cstddef>
#include <span>

#include "crypto/classic.h"

namespace kestrune::crypto {

using Bytes = std::span<const unsigned char>;

// The numbers of an RSA key, big-endian. All that are there are above 0.
struct RsaNumbers {
  Bytes modulus, public_exponent;
  // The private half, or none of it. `coefficient` is the inverse of the second prime by the first.
  Bytes private_exponent, prime[2], exponent[2], coefficient;

  bool is_private() const { return !private_exponent.empty(); }
};

// Makes the key, or leaves it empty: ERR_NO_MEMORY, or ERR_RSA_KEY_CHECK_FAILED when nothing can be computed with such
// numbers: a modulus or prime that is even, a modulus outside 128 bits to 1024 bytes, a public exponent that is even, 1
// or not below the modulus. Whether the private half fits the public one is for rsa_check_privkey.
int MakeRsaKey(const RsaNumbers& numbers, rsa_context* key);

inline constexpr unsigned kUsualExponent = 65537;
inline constexpr int kRsaNumbers =
    8;  // of a private key, in the order of RSAPrivateKey; the first two are public

// As rsa_gen_key(), which has looked at `bits`, and emptied the key.
int GenerateRsaKey(rsa_context* key, unsigned bits);

// Writes one of them, big-endian without zeros before it, into kRsaMostBytes; 0 where the key has none.
std::size_t WriteRsaNumber(const rsa_context& key, int number, unsigned char* output);

// ---- What opens a protected key --------------------------------------------------------------------

inline constexpr std::size_t kDesBlockBytes = 8;
inline constexpr std::size_t kMd5Bytes = 16;

// DES in CBC mode with a key of 8, 16 or 24 bytes (the last two: EDE), over whole blocks in place; false without
// memory.
bool DecipherDes(Bytes key, const unsigned char* iv, std::span<unsigned char> bytes);

// False where the library has no RC4.
bool DecipherRc4(Bytes key, std::span<unsigned char> bytes);

// MD5 over three pieces.
bool Md5(Bytes first, Bytes second, Bytes third, unsigned char* digest);

enum class Digest { kSha1, kSha224, kSha256, kSha384, kSha512 };

// PBKDF2 (RFC 8018), and the derivation of PKCS#12 with SHA-1 (RFC 7292, B.2) for a purpose (its "ID"); false
// without memory.
bool DerivePbkdf2(Digest digest, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key);
bool DerivePkcs12(int purpose, Bytes phrase, Bytes salt, int iterations, std::span<unsigned char> key);

// Whether PKCS#8 under PBES2 with AES is read.
extern const bool kReadsPbes2WithAes;

}  // namespace kestrune::crypto

#endif
