// X.509 certificates (RFC 5280), of which the system uses the RSA key alone. The rest is walked through so that what is
// none, or asks for something that nobody here knows, is refused.
//
// Read here and not by the cryptographic libraries, so that all of them take and refuse the same; and some read the
// key in a certificate through decoders that take many times as long as verifying a signature.
#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <string_view>

#include "crypto/classic.h"
#include "crypto/der.h"
#include "crypto/key_text.h"
#include "crypto/library.h"
#include "crypto/pem.h"

namespace kestrune::crypto {
namespace {

using der::Reader;

constexpr std::string_view kCertificate = "CERTIFICATE";
constexpr int kVersion2 = 1, kVersion3 = 2;  // as they are written

constexpr std::string_view kSignatureAlgorithms[] = {
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x02",  // RSA with MD2
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x03",  // MD4
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x04",  // MD5
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x05",  // SHA-1
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0e",  // SHA-224
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0b",  // SHA-256
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0c",  // SHA-384
    "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0d",  // SHA-512
    "\x2b\x0e\x03\x02\x1d",                  // SHA-1, by its older name
    "\x2a\x86\x48\xce\x3d\x04\x01",          // ECDSA with SHA-1
    "\x2a\x86\x48\xce\x3d\x04\x03\x01",      // SHA-224
    "\x2a\x86\x48\xce\x3d\x04\x03\x02",      // SHA-256
    "\x2a\x86\x48\xce\x3d\x04\x03\x03",      // SHA-384
    "\x2a\x86\x48\xce\x3d\x04\x03\x04",      // SHA-512
};
constexpr std::string_view kPss = "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0a";

bool IsKnownSignature(const Reader::Algorithm& algorithm) {
  if (der::Is(algorithm.identifier, kPss)) return algorithm.tag == der::kSequence;
  for (const std::string_view known : kSignatureAlgorithms) {
    if (der::Is(algorithm.identifier, known)) return algorithm.has_no_parameters();
  }
  return false;
}

bool AreEqual(Bytes a, Bytes b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// ---- Names and dates -------------------------------------------------------------------------------

bool IsNameString(unsigned char tag) {
  constexpr unsigned char kUtf8 = 0x0C, kPrintable = 0x13, kT61 = 0x14, kIa5 = 0x16, kUniversal = 0x1C,
                          kBmp = 0x1E;
  return tag == kUtf8 || tag == kPrintable || tag == kT61 || tag == kIa5 || tag == kUniversal ||
         tag == kBmp || tag == der::kBitString;
}

// One or more sets of one or more attributes.
bool CheckName(Reader name) {
  do {
    Reader set;
    if (!name.Take(der::kSet, &set)) return false;
    do {
      Reader attribute;
      Bytes content;
      if (!set.Take(der::kSequence, &attribute) || !attribute.Take(der::kObjectIdentifier, &content) ||
          !IsNameString(attribute.tag()) || !attribute.TakeAny(&content) || !attribute.empty()) {
        return false;
      }
    } while (!set.empty());
  } while (!name.empty());
  return true;
}

bool TakeDigits(Bytes* text, std::size_t count, int* number) {
  if (text->size() < count) return false;
  *number = 0;
  for (const unsigned char digit : text->first(count)) {
    if (digit < '0' || digit > '9') return false;
    *number = *number * 10 + (digit - '0');
  }
  *text = text->subspan(count);
  return true;
}

bool IsDate(int year, int month, int day) {
  constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1) return false;
  const bool is_leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[static_cast<std::size_t>(month) - 1] + (month == 2 && is_leap ? 1 : 0);
}

// Which date it is does not matter to the system.
bool TakeTime(Reader* reader) {
  constexpr unsigned char kUtcTime = 0x17, kGeneralizedTime = 0x18;
  const bool is_short = reader->NextIs(kUtcTime);
  Bytes text;
  if ((!is_short && !reader->NextIs(kGeneralizedTime)) || !reader->TakeAny(&text)) return false;
  int year, month, day, hour, minute, second;
  if (!TakeDigits(&text, is_short ? 2 : 4, &year) || !TakeDigits(&text, 2, &month) ||
      !TakeDigits(&text, 2, &day) || !TakeDigits(&text, 2, &hour) || !TakeDigits(&text, 2, &minute) ||
      !TakeDigits(&text, 2, &second)) {
    return false;
  }
  constexpr int kShortYears = 50;  // from here on in the last century
  if (is_short) year += year < kShortYears ? 2000 : 1900;
  const bool at_end = text.empty() || (text.size() == 1 && text[0] == 'Z');
  return at_end && IsDate(year, month, day) && hour < 24 && minute < 60 && second < 60;
}

// ---- Extensions ------------------------------------------------------------------------------------

bool CheckBitString(Reader value, std::size_t least, std::size_t most) {
  Bytes bits;
  constexpr unsigned char kMostUnused = 7;
  return value.Take(der::kBitString, &bits) && value.empty() && !bits.empty() && bits[0] <= kMostUnused &&
         bits.size() - 1 >= least && bits.size() - 1 <= most;
}

// Kept so: what stands behind the sequence counts as if it stood in it.
bool CheckBasicConstraints(Reader value) {
  Bytes content;
  int number = 0;
  if (!value.Enter(der::kSequence)) return false;
  if (value.empty()) return true;
  if (value.NextIs(der::kBoolean)) {
    if (!value.Take(der::kBoolean, &content) || content.size() != 1) return false;
  } else if (!value.TakeInteger(&number)) {
    return false;
  }
  if (!value.empty() && (!value.TakeInteger(&number) || number == std::numeric_limits<int>::max()))
    return false;
  return value.empty();
}

bool CheckKeyUsage(Reader value) {
  return CheckBitString(value, 1, std::numeric_limits<std::size_t>::max());
}

bool CheckNetscapeType(Reader value) {
  return CheckBitString(value, 1, 1);
}

bool CheckExtendedKeyUsage(Reader value) {
  Reader inner;
  Bytes content;
  if (!value.Take(der::kSequence, &inner) || !value.empty() || inner.empty()) return false;
  while (!inner.empty()) {
    if (!inner.Take(der::kObjectIdentifier, &content)) return false;
  }
  return true;
}

// The only other name that is looked into is a hardware module's (RFC 4108).
bool CheckOtherName(Bytes bytes) {
  constexpr std::string_view kHardwareModule = "\x2b\x06\x01\x05\x05\x07\x08\x04";
  Reader name(bytes), tagged, inner;
  Bytes content;
  if (!name.Take(der::kObjectIdentifier, &content)) return false;
  if (!der::Is(content, kHardwareModule)) return true;
  return name.Take(der::kConstructedContext, &tagged) && name.empty() &&
         tagged.Take(der::kSequence, &inner) && tagged.empty() &&
         inner.Take(der::kObjectIdentifier, &content) && inner.Take(der::kOctetString, &content) &&
         inner.empty();
}

bool CheckSubjectNames(Reader value) {
  constexpr unsigned char kClass = 0xC0, kNumber = 0x1F;
  Reader names;
  if (!value.Take(der::kSequence, &names) || !value.empty()) return false;
  while (!names.empty()) {
    const unsigned char tag = names.tag();
    Bytes content;
    if ((tag & kClass) != der::kContext || !names.TakeAny(&content)) return false;
    if ((tag & kNumber) == 0 && !CheckOtherName(content)) return false;
  }
  return true;
}

// Sets *is_known to whether each policy is "any", the only one whose meaning is clear.
bool CheckPolicies(Reader value, bool* is_known) {
  constexpr std::string_view kAnyPolicy("\x55\x1d\x20\x00", 4);  // it ends with a zero
  Reader policies;
  if (!value.Take(der::kSequence, &policies) || !value.empty() || policies.empty()) return false;
  *is_known = true;
  while (!policies.empty()) {
    Reader policy;
    Bytes content;
    if (!policies.Take(der::kSequence, &policy) || !policy.Take(der::kObjectIdentifier, &content))
      return false;
    *is_known = *is_known && der::Is(content, kAnyPolicy);
    if (!policy.empty() && (!policy.Take(der::kSequence, &content) || !policy.empty())) return false;
  }
  return true;
}

constexpr std::string_view kCertificatePolicies = "\x55\x1d\x20";
struct KnownExtension {
  std::string_view identifier;
  bool (*check)(Reader);
};
constexpr KnownExtension kExtensions[] = {{"\x55\x1d\x13", CheckBasicConstraints},
                                          {"\x55\x1d\x0f", CheckKeyUsage},
                                          {"\x55\x1d\x25", CheckExtendedKeyUsage},
                                          {"\x55\x1d\x11", CheckSubjectNames},
                                          {"\x60\x86\x48\x01\x86\xf8\x42\x01\x01", CheckNetscapeType},
                                          {kCertificatePolicies, nullptr}};
constexpr std::size_t kExtensionCount = std::size(kExtensions);

bool CheckKnown(const KnownExtension& known, Bytes content, bool is_critical) {
  if (known.check != nullptr) return known.check(Reader(content));
  bool is_known = false;
  return CheckPolicies(Reader(content), &is_known) && (is_known || !is_critical);
}

// A critical one that is not known is refused, and so is one that comes twice.
bool CheckExtension(Reader extension, std::array<bool, kExtensionCount>* seen) {
  Bytes identifier, critical, content;
  if (!extension.Take(der::kObjectIdentifier, &identifier)) return false;
  if (extension.NextIs(der::kBoolean) && (!extension.Take(der::kBoolean, &critical) || critical.size() != 1))
    return false;
  const bool is_critical = !critical.empty() && critical[0] != 0;
  if (!extension.Take(der::kOctetString, &content) || !extension.empty()) return false;
  for (std::size_t i = 0; i < kExtensionCount; ++i) {
    if (!der::Is(identifier, kExtensions[i].identifier)) continue;
    if ((*seen)[i]) return false;
    (*seen)[i] = true;
    return CheckKnown(kExtensions[i], content, is_critical);
  }
  return !is_critical;
}

bool CheckExtensions(Reader tagged) {
  Reader extensions;
  std::array<bool, kExtensionCount> seen{};
  if (!tagged.Take(der::kSequence, &extensions) || !tagged.empty()) return false;
  while (!extensions.empty()) {
    Reader extension;
    if (!extensions.Take(der::kSequence, &extension) || !CheckExtension(extension, &seen)) return false;
  }
  return true;
}

// ---- The certificate -------------------------------------------------------------------------------

// The key that was found, and whether memory was wanting for it.
struct Found {
  rsa_context* key;
  bool lacks_memory = false;

  bool Make(const RsaNumbers& numbers) {
    const int rc = MakeRsaKey(numbers, key);
    lacks_memory = rc == ERR_NO_MEMORY;
    return rc == 0;
  }
};

bool ParsePublicKey(Bytes bytes, Found* key) {
  Reader outer(bytes), inner;
  RsaNumbers numbers;
  return outer.Take(der::kSequence, &inner) && outer.empty() && inner.Take(der::kInteger, &numbers.modulus) &&
         inner.Take(der::kInteger, &numbers.public_exponent) && inner.empty() && key->Make(numbers);
}

// SubjectPublicKeyInfo. With a key of the elliptic kind *key stays empty.
bool TakePublicKey(Reader* reader, Found* key) {
  Reader inner;
  Reader::Algorithm algorithm;
  Bytes bits;
  if (!reader->Take(der::kSequence, &inner) || !inner.TakeAlgorithm(&algorithm) ||
      !inner.Take(der::kBitString, &bits) || !inner.empty() || bits.empty() || bits[0] != 0) {
    return false;
  }
  if (der::Is(algorithm.identifier, der::kRsaEncryption)) {
    return algorithm.has_no_parameters() && ParsePublicKey(bits.subspan(1), key);
  }
  return der::Is(algorithm.identifier, der::kEcPublicKey) ||
         der::Is(algorithm.identifier, der::kEcDiffieHellman);
}

bool TakeVersion(Reader* reader, int* version) {
  Reader tagged;
  if (!reader->NextIs(der::kConstructedContext)) return true;
  return reader->Take(der::kConstructedContext, &tagged) && tagged.TakeInteger(version) && tagged.empty() &&
         *version <= kVersion3;
}

bool TakeSerialNumber(Reader* reader) {
  constexpr unsigned char kOlderTag = der::kContext + 2;
  Bytes content;
  return (reader->NextIs(der::kInteger) || reader->NextIs(kOlderTag)) && reader->TakeAny(&content);
}

bool TakeDates(Reader* reader) {
  Reader dates;
  return reader->Take(der::kSequence, &dates) && TakeTime(&dates) && TakeTime(&dates) && dates.empty();
}

bool TakeOptional(Reader* reader, unsigned number, Reader* inner) {
  const auto tag = static_cast<unsigned char>(der::kConstructedContext + number);
  return !reader->NextIs(tag) || reader->Take(tag, inner);
}

// What is signed. Gives its signature algorithm, which stands a second time outside.
bool ParseSigned(Reader content, Reader::Algorithm* signature, Found* key) {
  int version = 0;
  Reader issuer, subject, unused, extensions;
  if (!TakeVersion(&content, &version) || !TakeSerialNumber(&content) || !content.TakeAlgorithm(signature) ||
      !IsKnownSignature(*signature) || !content.Take(der::kSequence, &issuer) || !CheckName(issuer) ||
      !TakeDates(&content) || !content.Take(der::kSequence, &subject) ||
      (!subject.empty() && !CheckName(subject)) || !TakePublicKey(&content, key)) {
    return false;
  }
  if (version >= kVersion2 && (!TakeOptional(&content, 1, &unused) || !TakeOptional(&content, 2, &unused)))
    return false;
  if (version == kVersion3 && !content.empty()) {
    if (!content.Take(der::kConstructedContext + 3, &extensions) || !CheckExtensions(extensions))
      return false;
  }
  return content.empty();
}

bool ParseCertificate(Bytes der, Found* key) {
  Reader outer(der), certificate, content;
  Reader::Algorithm inside, outside;
  Bytes bits;
  return outer.Take(der::kSequence, &certificate) && certificate.Take(der::kSequence, &content) &&
         ParseSigned(content, &inside, key) && certificate.TakeAlgorithm(&outside) &&
         AreEqual(inside.identifier, outside.identifier) && inside.tag == outside.tag &&
         AreEqual(inside.parameters, outside.parameters) && certificate.Take(der::kBitString, &bits) &&
         certificate.empty() && !bits.empty() && bits[0] == 0;
}

// The first that can be read is it. Gives how many cannot, or ERR_NO_MEMORY.
int ParseAll(std::string_view text, rsa_context* key) {
  int unread = 0;
  bool has_read = false;
  while (!text.empty()) {
    PemPart part;
    const PemRead read = part.Read(text, kCertificate, PassPhrase{});
    if (read == PemRead::kAbsent) break;
    text.remove_prefix(part.end);
    rsa_context another;
    Found target{has_read ? &another : key};
    if (read == PemRead::kDone && ParseCertificate(part.der.span(), &target)) {
      has_read = true;
    } else {
      rsa_free(target.key);
      ++unread;
    }
    if (read == PemRead::kNoMemory || target.lacks_memory) return ERR_NO_MEMORY;
  }
  return unread;
}

}  // namespace
}  // namespace kestrune::crypto

x509_cert::x509_cert() noexcept = default;
x509_cert::~x509_cert() = default;

int x509parse_crtfile(x509_cert* certificate, const char* path) {
  using namespace kestrune::crypto;
  x509_free(certificate);
  const KeyText file(path);
  if (file.lacks_memory()) return ERR_NO_MEMORY;
  if (!file.complete()) return ERR_X509_CERT_INVALID;
  const bool is_pem = file.text().find("-----BEGIN CERTIFICATE-----") != std::string_view::npos;
  int unread = 0;
  if (is_pem) {
    unread = ParseAll(file.text(), &certificate->rsa);
  } else if (Found found{&certificate->rsa}; !ParseCertificate(file.bytes(), &found)) {
    unread = found.lacks_memory ? ERR_NO_MEMORY : ERR_X509_CERT_INVALID;
  }
  if (unread >= 0 && certificate->rsa.len() == 0) unread = ERR_X509_CERT_INVALID;
  if (unread < 0) x509_free(certificate);
  return unread;
}

void x509_free(x509_cert* certificate) {
  rsa_free(&certificate->rsa);
}
