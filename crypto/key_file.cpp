// Private keys: PKCS#1 (RFC 8017, A.1.2) and PKCS#8 (RFC 5958), each protected or not.
//
// Read here and not by the cryptographic libraries, so that all of them take and refuse the same; and the decoders of
// some try one form after the other, which takes as long as a signature.
#include <string_view>

#include "crypto/classic.h"
#include "crypto/der.h"
#include "crypto/key_protection.h"
#include "crypto/key_text.h"
#include "crypto/library.h"
#include "crypto/pass_phrase.h"
#include "crypto/pem.h"

namespace kestrune::crypto {
namespace {

constexpr std::string_view kTraditional = "RSA PRIVATE KEY", kElliptic = "EC PRIVATE KEY",
                           kPlain = "PRIVATE KEY", kEnciphered = "ENCRYPTED PRIVATE KEY";

// Without the zeros before it; false for 0 as well.
bool TakeNumber(der::Reader* reader, der::Bytes* number) {
  if (!reader->Take(der::kInteger, number)) return false;
  while (!number->empty() && number->front() == 0) *number = number->subspan(1);
  return !number->empty();
}

// Whatever else a key ends in, it is unreadable.
int OrUnreadable(int rc) {
  return rc == 0 || rc == ERR_NO_MEMORY ? rc : ERR_X509_KEY_INVALID;
}

// RSAPrivateKey, of two primes.
int ParsePkcs1(der::Bytes bytes, rsa_context* key) {
  der::Reader outer(bytes), inner;
  int version = -1;
  if (!outer.Take(der::kSequence, &inner) || !inner.TakeInteger(&version) || version != 0)
    return ERR_X509_KEY_INVALID;
  RsaNumbers numbers;
  for (der::Bytes* number :
       {&numbers.modulus, &numbers.public_exponent, &numbers.private_exponent, &numbers.prime[0],
        &numbers.prime[1], &numbers.exponent[0], &numbers.exponent[1], &numbers.coefficient}) {
    if (!TakeNumber(&inner, number)) return ERR_X509_KEY_INVALID;
  }
  return OrUnreadable(inner.empty() ? MakeRsaKey(numbers, key) : ERR_X509_KEY_INVALID);
}

// PrivateKeyInfo; attributes behind the key are not looked at.
int ParsePkcs8(der::Bytes bytes, rsa_context* key) {
  der::Reader outer(bytes), inner;
  der::Reader::Algorithm algorithm;
  der::Bytes content;
  int version = -1;
  const bool is_rsa = outer.Take(der::kSequence, &inner) && inner.TakeInteger(&version) && version == 0 &&
                      inner.TakeAlgorithm(&algorithm) && der::Is(algorithm.identifier, der::kRsaEncryption) &&
                      algorithm.has_no_parameters() && inner.Take(der::kOctetString, &content);
  return is_rsa ? ParsePkcs1(content, key) : ERR_X509_KEY_INVALID;
}

int ParseTraditional(const PemPart& part, rsa_context* key) {
  if (part.was_protected && !BeginsAsKey(part.der.span(), 0)) return ERR_X509_KEY_PASSWORD_MISMATCH;
  return ParsePkcs1(part.der.span(), key);
}

int ParseElliptic(const PemPart& part) {
  const bool is_opened = !part.was_protected || BeginsAsKey(part.der.span(), 1);
  return is_opened ? ERR_X509_KEY_INVALID : ERR_X509_KEY_PASSWORD_MISMATCH;
}

int ParseEnciphered(der::Bytes der, const PassPhrase& phrase, rsa_context* key) {
  SecretCBuffer plain;
  switch (OpenPkcs8(der, phrase, &plain)) {
    case Opened::kMismatch:
      return ERR_X509_KEY_PASSWORD_MISMATCH;
    case Opened::kDone:
      return ParsePkcs8(plain.span(), key);
    case Opened::kNoMemory:
      return ERR_NO_MEMORY;
    case Opened::kUnreadable:
      break;
  }
  return ERR_X509_KEY_INVALID;
}

int ParseDer(der::Bytes der, const PassPhrase& phrase, rsa_context* key) {
  int rc = phrase.length > 0 ? ParseEnciphered(der, phrase, key) : ERR_X509_KEY_INVALID;
  if (rc == ERR_X509_KEY_INVALID) rc = ParsePkcs8(der, key);
  if (rc == ERR_X509_KEY_INVALID) rc = ParsePkcs1(der, key);
  return rc;
}

// The first kind of part that is there is read; where there is none, it is DER.
int ParseFile(const KeyText& file, const PassPhrase& phrase, rsa_context* key) {
  for (const std::string_view label : {kTraditional, kElliptic, kPlain, kEnciphered}) {
    const bool is_traditional = label == kTraditional || label == kElliptic;
    PemPart part;
    const PemRead read = part.Read(file.text(), label, is_traditional ? phrase : PassPhrase{});
    if (read == PemRead::kAbsent) continue;
    // PKCS#8 has protection of its own.
    if (read == PemRead::kPassPhrase && is_traditional) return ERR_X509_KEY_PASSWORD_MISMATCH;
    if (read == PemRead::kNoMemory) return ERR_NO_MEMORY;
    if (read != PemRead::kDone) return ERR_X509_KEY_INVALID;
    if (label == kTraditional) return ParseTraditional(part, key);
    if (label == kElliptic) return ParseElliptic(part);
    if (label == kPlain) return ParsePkcs8(part.der.span(), key);
    return ParseEnciphered(part.der.span(), phrase, key);
  }
  return ParseDer(file.bytes(), phrase, key);
}

// ---- Its protection ----------------------------------------------------------------------------------

KeyProtection ProtectionOfDer(der::Bytes der) {
  if (!IsEnciphered(der)) return KeyProtection::kNone;
  return ReadsWay(der) ? KeyProtection::kPassPhrase : KeyProtection::kUnread;
}

KeyProtection ProtectionOfFile(const KeyText& file) {
  for (const std::string_view label : {kTraditional, kElliptic, kPlain, kEnciphered}) {
    PemPart part;
    const PemRead read = part.Read(file.text(), label, PassPhrase{});
    if (read == PemRead::kAbsent) continue;
    if (read == PemRead::kNoMemory) return KeyProtection::kNoMemory;
    if (read == PemRead::kPassPhrase && label == kTraditional) return KeyProtection::kPassPhrase;
    if (part.was_protected) return KeyProtection::kUnread;
    if (label != kEnciphered) return KeyProtection::kNone;
    return read == PemRead::kDone && ReadsWay(part.der.span()) ? KeyProtection::kPassPhrase
                                                               : KeyProtection::kUnread;
  }
  return ProtectionOfDer(file.bytes());
}

}  // namespace

KeyProtection ProtectionOf(const char* path) {
  const KeyText file(path);
  if (file.lacks_memory()) return KeyProtection::kNoMemory;
  if (!file.complete()) return KeyProtection::kNone;
  return ProtectionOfFile(file);
}

}  // namespace kestrune::crypto

int x509parse_keyfile(rsa_context* key, const char* path, const char* password) {
  using namespace kestrune::crypto;
  rsa_free(key);
  const KeyText file(path);
  if (file.lacks_memory()) return ERR_NO_MEMORY;
  if (!file.complete()) return ERR_X509_KEY_INVALID;
  PassPhrase phrase;
  if (password != nullptr) {
    phrase = {reinterpret_cast<const unsigned char*>(password), std::string_view(password).size()};
  }
  return ParseFile(file, phrase, key);
}
