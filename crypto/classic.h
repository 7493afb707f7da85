// The door to the cryptographic library: everything the system needs from it, under the classic names.
//
// mbed TLS or libcrypto stands behind it, as was chosen when configuring; which one does not show. Only the folder
// of each below this one includes headers of it; whoever includes this header needs none. The context types own what
// they hold and wipe it when they are cleared or destroyed; they cannot be copied. Hashes keep the library's state in
// the object itself and allocate nothing. An RSA key is allocated. AES allocates with libcrypto alone.
//
// Results are 0 or one of the negative numbers below. No argument may be null unless it says so.
#ifndef KESTRUNE_CRYPTO_CLASSIC_H
#define KESTRUNE_CRYPTO_CLASSIC_H

#include <array>
#include <cstddef>
#include <memory>

#include "base/export.h"
#include "base/wipe.h"

// ---- Constants -------------------------------------------------------------------------------------

inline constexpr int RSA_PUBLIC = 0;   // operation with the public exponent
inline constexpr int RSA_PRIVATE = 1;  // operation with the private exponent, always blinded
inline constexpr int SIG_RSA_RAW = 0;  // the bytes themselves are signed, without a DigestInfo prefix

inline constexpr int AES_DECRYPT = 0;
inline constexpr int AES_ENCRYPT = 1;

inline constexpr std::size_t kSha1Bytes = 20;
inline constexpr std::size_t kSha512Bytes = 64;
inline constexpr std::size_t kAesBlockBytes = 16;
inline constexpr std::size_t kAes256KeyBytes = 32;
inline constexpr unsigned kAes256KeyBits = 256;
inline constexpr std::size_t kPkcs1PaddingBytes = 11;  // least room that PKCS#1 v1.5 padding takes
inline constexpr std::size_t kRsaLeastBytes = 16;      // moduli outside these bounds are refused
inline constexpr std::size_t kRsaMostBytes = 1024;

inline constexpr int ERR_BASE64_BUFFER_TOO_SMALL = -16;
inline constexpr int ERR_BASE64_INVALID_CHARACTER = -18;
inline constexpr int ERR_X509_KEY_PASSWORD_MISMATCH = -736;  // wrong, or none where one is needed
inline constexpr int ERR_X509_KEY_INVALID = -672;            // unreadable, or no RSA key
inline constexpr int ERR_X509_CERT_INVALID = -64;            // unreadable, or no RSA key in it
inline constexpr int ERR_RSA_BAD_INPUT_DATA = -1024;
inline constexpr int ERR_RSA_INVALID_PADDING = -1040;
inline constexpr int ERR_RSA_KEY_CHECK_FAILED = -1072;
inline constexpr int ERR_RSA_PUBLIC_FAILED = -1088;
inline constexpr int ERR_RSA_PRIVATE_FAILED = -1104;
inline constexpr int ERR_RSA_VERIFY_FAILED = -1120;  // also: DigestInfo prefix mismatch
inline constexpr int ERR_RSA_OUTPUT_TOO_LARGE = -1136;
inline constexpr int ERR_RSA_RNG_FAILED = -1152;
inline constexpr int ERR_NO_MEMORY = -1168;    // of any operation that needs some, but AES
inline constexpr int ERR_AES_NO_MEMORY = -96;  // the system's own number, which whoever uses AES hands on
inline constexpr int ERR_AES_INVALID_KEY_LENGTH = -2048;
inline constexpr int ERR_AES_INVALID_INPUT_LENGTH = -2064;

// ---- Comparing -------------------------------------------------------------------------------------

// True when the first `count` bytes are equal; the time taken does not tell where they differ.
KESTRUNE_API bool equal_in_constant_time(const void* a, const void* b, std::size_t count);

// ---- Hashes (FIPS 180-4) ---------------------------------------------------------------------------

// Room for the state of a cryptographic library, which only the sources of this folder look into; wiped when it
// goes. Large enough for the plain structures of the usual libraries (crypto/state.h compares); a library that
// keeps its state elsewhere keeps the pointer here.
template <std::size_t kBytes>
struct classic_state {
  classic_state() noexcept = default;
  classic_state(const classic_state&) = delete;
  classic_state& operator=(const classic_state&) = delete;
  ~classic_state() { wipe(bytes.data(), bytes.size()); }

  alignas(std::max_align_t) std::array<unsigned char, kBytes> bytes{};
};

// One running SHA-512 (or SHA-384).
class KESTRUNE_API sha4_context {
 public:
  sha4_context() noexcept;
  ~sha4_context();

  classic_state<256> state;
};

// One running SHA-1.
class KESTRUNE_API sha1_context {
 public:
  sha1_context() noexcept;
  ~sha1_context();

  classic_state<128> state;
};

// Digest of `length` bytes in one go. `digest` has 64 bytes; with is384 set the first 48 are the result.
KESTRUNE_API void sha4(const unsigned char* input, std::size_t length, unsigned char* digest, int is384);

// The same in steps: starts, any number of updates, finish (64 bytes; 48 count with is384).
KESTRUNE_API void sha4_starts(sha4_context* context, int is384);
KESTRUNE_API void sha4_update(sha4_context* context, const unsigned char* input, std::size_t length);
KESTRUNE_API void sha4_finish(sha4_context* context, unsigned char* digest);
// Makes `copy` go on from where `context` is: two texts with the same beginning need one pass over it.
KESTRUNE_API void sha4_clone(sha4_context* copy, const sha4_context* context);

// SHA-1, 20 bytes.
KESTRUNE_API void sha1(const unsigned char* input, std::size_t length, unsigned char* digest);
KESTRUNE_API void sha1_starts(sha1_context* context);
KESTRUNE_API void sha1_update(sha1_context* context, const unsigned char* input, std::size_t length);
KESTRUNE_API void sha1_finish(sha1_context* context, unsigned char* digest);

// ---- AES (FIPS 197), CBC mode (SP 800-38A) ---------------------------------------------------------

// One key schedule, for one direction. Wiped when it is replaced and when the object ends.
class KESTRUNE_API aes_context {
 public:
  aes_context() noexcept;
  ~aes_context();

  classic_state<512> state;
  bool has_schedule = false;
};

// Builds the schedule for one direction from a key of 128, 192 or 256 bits; any other size: -2048. -96:
// no memory.
KESTRUNE_API int aes_setkey_enc(aes_context* context, const unsigned char* key, unsigned bits);
KESTRUNE_API int aes_setkey_dec(aes_context* context, const unsigned char* key, unsigned bits);

// CBC over `length` bytes without padding; mode is AES_ENCRYPT or AES_DECRYPT and must match the schedule.
// `iv` (16 bytes) is left holding the last ciphertext block. `input` and `output` may be the same buffer.
// -2064, and nothing written, when length is not a multiple of 16. -2048 without a schedule.
KESTRUNE_API int aes_crypt_cbc(aes_context* context, int mode, std::size_t length, unsigned char* iv,
                               const unsigned char* input, unsigned char* output);

// ---- RSA (PKCS#1 v1.5, RFC 8017) -------------------------------------------------------------------

// One RSA key, public or with its private half.
class KESTRUNE_API rsa_context {
 public:
  rsa_context() noexcept;
  rsa_context(const rsa_context&) = delete;
  rsa_context& operator=(const rsa_context&) = delete;
  ~rsa_context();

  // Length of the modulus in bytes, 0 while no key is held.
  std::size_t len() const;
  // True when the public exponent is `least` or more.
  bool public_exponent_at_least(unsigned least) const;

  struct Impl;
  std::unique_ptr<Impl> impl;  // for the sources of this folder alone
};

// Consistency of the public half, and of the whole private key. -1072 when it fails or no key is held.
KESTRUNE_API int rsa_check_pubkey(const rsa_context* key);
KESTRUNE_API int rsa_check_privkey(const rsa_context* key);

// The bare operations; input and output have key->len() bytes. -1088 / -1104 when refused (a value not
// below the modulus, no key).
KESTRUNE_API int rsa_public(rsa_context* key, const unsigned char* input, unsigned char* output);
KESTRUNE_API int rsa_private(rsa_context* key, const unsigned char* input, unsigned char* output);

// Type 1 padding and the private operation (mode RSA_PRIVATE, the only one; hash_id SIG_RSA_RAW). At most
// len() - 11 bytes are signed; `signature` has len() bytes, written on success only.
KESTRUNE_API int rsa_pkcs1_sign(rsa_context* key, int mode, int hash_id, std::size_t length,
                                const unsigned char* bytes, unsigned char* signature);

// Checks `signature` (len() bytes, read whole) against the one right encoding of `bytes`
// (mode RSA_PUBLIC, the only one; hash_id SIG_RSA_RAW). 0 only when it is that one.
KESTRUNE_API int rsa_pkcs1_verify(rsa_context* key, int mode, int hash_id, std::size_t length,
                                  const unsigned char* bytes, const unsigned char* signature);

// Takes the signed bytes back out of a signature: the public operation (mode RSA_PUBLIC) or the private one
// (mode RSA_PRIVATE), then type 1 padding with at least 8 bytes of 0xFF. `signature` has `signature_length`
// bytes. At most `output_max` bytes are written, and none on failure; *output_length is their count, 0 on
// failure. At most len() - 11 bytes come out; they may hold zeros, and no terminator is added.
//
// Whoever accepts recovered bytes as proof must refuse keys with a small public exponent: what follows the
// padding can be forged for them.
//
// -1024: another mode, a modulus outside 16..1024 bytes or even, a signature not of len() bytes. -1088 /
// -1104: the operation failed (a value not below the modulus, no private key). -1040: a fault in the
// padding. -1120: the bytes begin like the DigestInfo of a known hash (MD2 to SHA-512), but are none. -1136:
// more than `output_max` bytes.
KESTRUNE_API int rsa_pkcs1_decodesignature(rsa_context* key, int mode, std::size_t* output_length,
                                           unsigned char* output, std::size_t output_max,
                                           const unsigned char* signature, std::size_t signature_length);

// Type 2 padding and the public operation (mode RSA_PUBLIC, the only one): `output` has len() bytes.
KESTRUNE_API int rsa_pkcs1_encrypt(rsa_context* key, int mode, std::size_t length, const unsigned char* input,
                                   unsigned char* output);

// The reverse (mode RSA_PRIVATE, the only one): `input` has len() bytes; at most `output_max` are written.
KESTRUNE_API int rsa_pkcs1_decrypt(rsa_context* key, int mode, std::size_t* output_length,
                                   const unsigned char* input, unsigned char* output, std::size_t output_max);

// Fills `key` with a fresh one of `bits` (1024 to 4096, a multiple of 16) and the public exponent 65537, from the
// system's random generator. It takes a second or so. -1024: other bits. -1152: no random numbers; -1072: no key could be
// made. A failure leaves it empty.
KESTRUNE_API int rsa_gen_key(rsa_context* key, unsigned bits);

// The key in PEM (RSAPrivateKey, RFC 8017, A.1.2), with a `password` (null or empty: none) protected by AES-256-CBC in the
// traditional way; and its public half in DER (RSAPublicKey). *length holds the capacity on entry and the bytes written
// on return; the PEM text is terminated besides. -16 when the capacity is too small: 8 times len() and 1000 always do.
// -1072: no private key is held.
KESTRUNE_API int rsa_write_key(const rsa_context* key, const char* password, char* pem, std::size_t* length);
KESTRUNE_API int rsa_write_pubkey(const rsa_context* key, unsigned char* der, std::size_t* length);

// Wipes and releases the key; the context can be filled again.
KESTRUNE_API void rsa_free(rsa_context* key);

// ---- Key and certificate files (PEM or DER; RFC 8017, RFC 5280) -------------------------------------

// One X.509 certificate, of which the system uses the RSA public key.
class KESTRUNE_API x509_cert {
 public:
  x509_cert() noexcept;
  x509_cert(const x509_cert&) = delete;
  x509_cert& operator=(const x509_cert&) = delete;
  ~x509_cert();

  rsa_context rsa;  // empty until x509parse_crtfile gave 0 or more
};

// Reads an RSA private key from the regular file at `path`, opened with `password` (null or empty: none)
// when it is protected: traditional PEM with DES-CBC, DES-EDE3-CBC or AES-CBC; PKCS#8 by PKCS#12's ways with DES (and,
// with mbed TLS 2.28 and libcrypto, RC4), or under PBES2 with DES (and, with mbed TLS 3.6 and libcrypto, AES).
// -736: the pass phrase is wrong or missing. -672: no file, no regular file (of at most 1 MiB), unreadable, no
// RSA key of 16 to 1024 bytes, or protected with more than 10,000,000 iterations (it would be opened for hours).
KESTRUNE_API int x509parse_keyfile(rsa_context* key, const char* path, const char* password);

// Reads the certificate from the regular file at `path` (the first readable one, where there are several).
// Above 0: it was read, and this many others in the file could not be. -64: no file, no regular file, none
// readable, or the certificate's key is no RSA key.
KESTRUNE_API int x509parse_crtfile(x509_cert* certificate, const char* path);
KESTRUNE_API void x509_free(x509_cert* certificate);

// ---- Base64 (RFC 4648, standard alphabet, "=" padding) ----------------------------------------------

// Encodes `length` bytes, with a terminating zero. *output_length holds the capacity on entry and the
// characters written (terminator not counted) on return. -16 when characters + 1 exceed the capacity;
// *output_length is then the capacity needed. `output` may be null when only that is asked.
KESTRUNE_API int base64_encode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                               std::size_t length);

// Decodes `length` characters; line ends (LF, CR LF) are skipped. -18 for anything else that is not
// Base64; -16 when the capacity is too small (*output_length is then the capacity needed).
KESTRUNE_API int base64_decode(unsigned char* output, std::size_t* output_length, const unsigned char* input,
                               std::size_t length);

#endif
