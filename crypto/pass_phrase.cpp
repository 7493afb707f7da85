#include "crypto/pass_phrase.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "crypto/classic.h"
#include "crypto/library.h"

namespace kestrune::crypto {
namespace {

constexpr std::size_t kRc4KeyBytes = 16;
constexpr int kMostIterations = 10'000'000;

// The salt and the number of iterations, with which the parameters of each way begin.
struct Salted {
  der::Bytes salt;
  int iterations = 0;
  bool is_too_long = false;  // a number of iterations above the limit, or beyond an int

  bool Take(der::Reader* parameters) {
    if (!parameters->Take(der::kOctetString, &salt)) return false;
    const bool is_number = parameters->NextIs(der::kInteger);
    const bool is_small = parameters->TakeInteger(&iterations) && iterations <= kMostIterations;
    is_too_long = is_number && !is_small;
    return is_small;
  }
  int rounds() const { return std::max(iterations, 1); }
};

// ---- PBES2 -----------------------------------------------------------------------------------------

constexpr std::string_view kPbes2 = "\x2a\x86\x48\x86\xf7\x0d\x01\x05\x0d";
constexpr std::string_view kPbkdf2 = "\x2a\x86\x48\x86\xf7\x0d\x01\x05\x0c";

struct NamedDigest {
  std::string_view identifier;  // of its HMAC
  Digest digest;
};
constexpr NamedDigest kDigests[] = {{"\x2a\x86\x48\x86\xf7\x0d\x02\x07", Digest::kSha1},
                                    {"\x2a\x86\x48\x86\xf7\x0d\x02\x08", Digest::kSha224},
                                    {"\x2a\x86\x48\x86\xf7\x0d\x02\x09", Digest::kSha256},
                                    {"\x2a\x86\x48\x86\xf7\x0d\x02\x0a", Digest::kSha384},
                                    {"\x2a\x86\x48\x86\xf7\x0d\x02\x0b", Digest::kSha512}};

struct NamedCipher {
  std::string_view identifier;
  Cipher cipher;
};
constexpr NamedCipher kCiphers[] = {{"\x2b\x0e\x03\x02\x07", Cipher::kDes},
                                    {"\x2a\x86\x48\x86\xf7\x0d\x03\x07", Cipher::kTripleDes},
                                    {"\x60\x86\x48\x01\x65\x03\x04\x01\x02", Cipher::kAes128},
                                    {"\x60\x86\x48\x01\x65\x03\x04\x01\x16", Cipher::kAes192},
                                    {"\x60\x86\x48\x01\x65\x03\x04\x01\x2a", Cipher::kAes256}};

bool IsDes(Cipher cipher) {
  return cipher == Cipher::kDes || cipher == Cipher::kDoubleDes || cipher == Cipher::kTripleDes;
}

struct Pbes2 {
  Salted salted;
  Digest digest = Digest::kSha1;
  Cipher cipher{};
  der::Bytes iv;

  bool Parse(const der::Reader::Algorithm& scheme) {
    if (scheme.tag != der::kSequence) return false;
    der::Reader parameters(scheme.parameters);
    der::Reader::Algorithm derivation, encryption;
    return parameters.TakeAlgorithm(&derivation) && ParseDerivation(derivation) &&
           parameters.TakeAlgorithm(&encryption) && ParseEncryption(encryption);
  }

 private:
  bool ParseDerivation(const der::Reader::Algorithm& derivation) {
    if (!der::Is(derivation.identifier, kPbkdf2) || derivation.tag != der::kSequence) return false;
    der::Reader parameters(derivation.parameters);
    if (!salted.Take(&parameters)) return false;
    int key_bytes = 0;  // the cipher tells it as well
    if (parameters.NextIs(der::kInteger) && !parameters.TakeInteger(&key_bytes)) return false;
    if (parameters.empty()) return true;
    der::Reader::Algorithm function;
    return parameters.TakeAlgorithm(&function) && parameters.empty() && ParseFunction(function);
  }
  bool ParseFunction(const der::Reader::Algorithm& function) {
    const auto* const known = std::find_if(
        std::begin(kDigests), std::end(kDigests),
        [&](const NamedDigest& named) { return der::Is(function.identifier, named.identifier); });
    if (known == std::end(kDigests)) return false;
    digest = known->digest;
    return function.has_no_parameters();
  }
  bool ParseEncryption(const der::Reader::Algorithm& encryption) {
    const auto* const known = std::find_if(
        std::begin(kCiphers), std::end(kCiphers),
        [&](const NamedCipher& named) { return der::Is(encryption.identifier, named.identifier); });
    if (known == std::end(kCiphers) || !(IsDes(known->cipher) || kReadsPbes2WithAes)) return false;
    cipher = known->cipher;
    iv = encryption.parameters;
    return encryption.tag == der::kOctetString && iv.size() == BlockBytes(cipher);
  }
};

// ---- PKCS#12 ---------------------------------------------------------------------------------------

constexpr std::string_view kPkcs12Rc4 = "\x2a\x86\x48\x86\xf7\x0d\x01\x0c\x01\x01";
constexpr std::string_view kPkcs12TripleDes = "\x2a\x86\x48\x86\xf7\x0d\x01\x0c\x01\x03";
constexpr std::string_view kPkcs12DoubleDes = "\x2a\x86\x48\x86\xf7\x0d\x01\x0c\x01\x04";
constexpr int kForKey = 1, kForIv = 2;
constexpr std::size_t kMostPkcs12Phrase = 128, kMostPkcs12Salt = 64;

struct Pkcs12 {
  Salted salted;
  bool is_rc4 = false;
  Cipher cipher{};

  bool Parse(const der::Reader::Algorithm& scheme) {
    is_rc4 = der::Is(scheme.identifier, kPkcs12Rc4);
    const bool is_double = der::Is(scheme.identifier, kPkcs12DoubleDes);
    cipher = is_double ? Cipher::kDoubleDes : Cipher::kTripleDes;
    der::Reader parameters(scheme.parameters);
    return scheme.tag == der::kSequence && salted.Take(&parameters) && parameters.empty() &&
           salted.salt.size() <= kMostPkcs12Salt &&
           (is_rc4 || is_double || der::Is(scheme.identifier, kPkcs12TripleDes));
  }

  // The pass phrase counts as two bytes for each character, and two zeros behind it.
  bool Derive(const PassPhrase& phrase, int purpose, std::span<unsigned char> out) const {
    SecretArray<2 * kMostPkcs12Phrase + 2> wide;
    for (std::size_t i = 0; i < phrase.length; ++i) wide.data()[2 * i + 1] = phrase.text[i];
    return DerivePkcs12(purpose, {wide.data(), 2 * phrase.length + 2}, salted.salt, salted.rounds(), out);
  }
};

// ---- Deciphering -----------------------------------------------------------------------------------

bool DecipherCbc(Cipher cipher, const unsigned char* key, const unsigned char* iv,
                 std::span<unsigned char> bytes) {
  if (IsDes(cipher)) return DecipherDes({key, KeyBytes(cipher)}, iv, bytes);
  aes_context aes;
  unsigned char chain[kAesBlockBytes];
  std::memcpy(chain, iv, sizeof chain);
  return aes_setkey_dec(&aes, key, static_cast<unsigned>(8 * KeyBytes(cipher))) == 0 &&
         aes_crypt_cbc(&aes, AES_DECRYPT, bytes.size(), chain, bytes.data(), bytes.data()) == 0;
}

// 1 to a block's number of bytes, all with that number as value (RFC 8018, 6.1.1).
bool EndsWithPadding(der::Bytes bytes, std::size_t block) {
  if (bytes.empty()) return false;
  const std::size_t count = bytes.back();
  if (count == 0 || count > block || count > bytes.size()) return false;
  const der::Bytes padding = bytes.last(count);
  return std::all_of(padding.begin(), padding.end(), [&](unsigned char byte) { return byte == count; });
}

Opened Judge(bool has_padding, der::Bytes plain) {
  return has_padding && BeginsAsKey(plain, 0) ? Opened::kDone : Opened::kMismatch;
}

Opened DecipherPadded(Cipher cipher, const unsigned char* key, const unsigned char* iv,
                      std::span<unsigned char> bytes) {
  if (bytes.size() % BlockBytes(cipher) != 0) return Opened::kMismatch;
  if (!DecipherCbc(cipher, key, iv, bytes)) return Opened::kNoMemory;
  return Judge(EndsWithPadding(bytes, BlockBytes(cipher)), bytes);
}

Opened OpenPbes2(const Pbes2& way, const PassPhrase& phrase, std::span<unsigned char> bytes) {
  SecretArray<kMostCipherKeyBytes> key;
  if (!DerivePbkdf2(way.digest, phrase.bytes(), way.salted.salt, way.salted.rounds(),
                    {key.data(), KeyBytes(way.cipher)})) {
    return Opened::kNoMemory;
  }
  return DecipherPadded(way.cipher, key.data(), way.iv.data(), bytes);
}

Opened OpenPkcs12(const Pkcs12& way, const PassPhrase& phrase, std::span<unsigned char> bytes) {
  SecretArray<kMostCipherKeyBytes> key;
  SecretArray<kDesBlockBytes> iv;
  if (phrase.length > kMostPkcs12Phrase) return Opened::kUnreadable;
  const std::size_t key_bytes = way.is_rc4 ? kRc4KeyBytes : KeyBytes(way.cipher);
  if (!way.Derive(phrase, kForKey, {key.data(), key_bytes})) return Opened::kNoMemory;
  if (way.is_rc4) {
    if (!DecipherRc4({key.data(), key_bytes}, bytes)) return Opened::kUnreadable;
    return Judge(true, bytes);
  }
  if (!way.Derive(phrase, kForIv, {iv.data(), iv.size()})) return Opened::kNoMemory;
  return DecipherPadded(way.cipher, key.data(), iv.data(), bytes);
}

// Which pass phrase is missing or wrong does not matter where none would be tried.
template <class Way>
Opened Open(Way way, const der::Reader::Algorithm& scheme, const PassPhrase& phrase,
            std::span<unsigned char> bytes,
            Opened (*open)(const Way&, const PassPhrase&, std::span<unsigned char>)) {
  const bool is_known = way.Parse(scheme);
  if (way.salted.is_too_long) return Opened::kUnreadable;
  if (phrase.length == 0) return Opened::kMismatch;
  return is_known ? open(way, phrase, bytes) : Opened::kUnreadable;
}

bool ReadsPkcs12(const der::Reader::Algorithm& scheme) {
  Pkcs12 way;
  if (!way.Parse(scheme)) return false;  // too many iterations, too
  const unsigned char key[kRc4KeyBytes] = {};
  return !way.is_rc4 || DecipherRc4(key, {});  // not every library has it
}

// EncryptedPrivateKeyInfo.
bool Split(der::Bytes der, der::Reader::Algorithm* scheme, der::Bytes* enciphered) {
  der::Reader outer(der), inner;
  return outer.Take(der::kSequence, &inner) && inner.TakeAlgorithm(scheme) &&
         inner.Take(der::kOctetString, enciphered);
}

}  // namespace

std::size_t KeyBytes(Cipher cipher) {
  switch (cipher) {
    case Cipher::kDes:
      return 8;
    case Cipher::kDoubleDes:
    case Cipher::kAes128:
      return 16;
    case Cipher::kTripleDes:
    case Cipher::kAes192:
      return 24;
    case Cipher::kAes256:
      break;
  }
  return kMostCipherKeyBytes;
}

std::size_t BlockBytes(Cipher cipher) {
  return IsDes(cipher) ? kDesBlockBytes : kAesBlockBytes;
}

bool BeginsAsKey(der::Bytes bytes, int wanted_version) {
  der::Reader outer(bytes), inner;
  int version = -1;
  return outer.Take(der::kSequence, &inner) && inner.TakeInteger(&version) && version == wanted_version;
}

bool OpenTraditional(Cipher cipher, const unsigned char* iv, const PassPhrase& phrase,
                     std::span<unsigned char> bytes) {
  constexpr std::size_t kSaltBytes = 8;
  SecretArray<kMostCipherKeyBytes> key;
  der::Bytes before;
  for (std::size_t done = 0; done < KeyBytes(cipher); done += kMd5Bytes) {
    SecretArray<kMd5Bytes> digest;
    if (!Md5(before, phrase.bytes(), {iv, kSaltBytes}, digest.data())) return false;
    std::memcpy(key.data() + done, digest.data(), kMd5Bytes);
    before = {key.data() + done, kMd5Bytes};
  }
  return DecipherCbc(cipher, key.data(), iv, bytes);
}

bool IsEnciphered(der::Bytes der) {
  der::Reader::Algorithm scheme;
  der::Bytes enciphered;
  return Split(der, &scheme, &enciphered);
}

bool ReadsWay(der::Bytes der) {
  der::Reader::Algorithm scheme;
  der::Bytes enciphered;
  if (!Split(der, &scheme, &enciphered)) return false;
  if (!der::Is(scheme.identifier, kPbes2)) return ReadsPkcs12(scheme);
  return Pbes2().Parse(scheme);  // with few enough iterations
}

Opened OpenPkcs8(der::Bytes der, const PassPhrase& phrase, SecretCBuffer* plain) {
  der::Reader::Algorithm scheme;
  der::Bytes enciphered;
  if (!Split(der, &scheme, &enciphered)) return phrase.length == 0 ? Opened::kMismatch : Opened::kUnreadable;
  if (!plain->Allocate(enciphered.size())) return Opened::kNoMemory;
  std::copy(enciphered.begin(), enciphered.end(), plain->data());
  return der::Is(scheme.identifier, kPbes2) ? Open(Pbes2{}, scheme, phrase, plain->span(), OpenPbes2)
                                            : Open(Pkcs12{}, scheme, phrase, plain->span(), OpenPkcs12);
}

}  // namespace kestrune::crypto
