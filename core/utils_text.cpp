// Searching, light XML, lists, mail addresses, file suffixes, the attachment of a MIME text.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "core/light_xml.h"
#include "core/limits.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/string_helpers.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "kestrune_settings.h"

using namespace kestrune;

namespace {

constexpr std::size_t kAddressLimit = 256;  // characters of a mail address or domain, terminator counted
constexpr std::size_t kSuffixCharacters = 3;
constexpr std::size_t kKeyFileNameLeast = 4;
constexpr unsigned long long kMostOccurrences = 1000;
constexpr int kCaseDistance = 32;

constexpr char kAttachmentHeader[] = "Content-Disposition: attachment";
constexpr char kBlankLine[] = "\n\n";
constexpr char kClosingDashes[] = " --";

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

// The whole of the case folding: characters 32 apart are the same one, in either direction.
bool IsSameWithoutCase(unsigned char a, char b) {
  const int distance = a - static_cast<unsigned char>(b);
  return distance == 0 || distance == kCaseDistance || distance == -kCaseDistance;
}

int CopyAddressPart(const char* address, char* out, bool domain) {
  if (address == nullptr) return argument::kNoInput;
  if (out == nullptr) return argument::kNoOutput;
  if (!IsShorterThan(address, kAddressLimit)) return utils::kAddressTooLong;
  const std::size_t prefix = std::strcspn(address, "@");
  if (domain) {
    std::strcpy(out, address + prefix + (address[prefix] == 0 ? 0 : 1));
  } else {
    std::memcpy(out, address, prefix);
    out[prefix] = 0;
  }
  return kOk;
}

}  // namespace

int TypV2Utils::ExtractFileSuffix(const char* name, char* out) {
  if (!IsShorterThan(name, limits::kKeyFileName + 1)) return utils::kBadFileName;
  const std::size_t length = std::strlen(name);
  if (length < kKeyFileNameLeast) return utils::kBadFileName;
  if (out == nullptr) return argument::kNoOutput;
  std::memcpy(out, name + length - kSuffixCharacters, kSuffixCharacters + 1);
  const bool is_year = out[0] == '2' && IsDigit(out[1]) && IsDigit(out[2]);
  return is_year ? kOk : utils::kNoYearSuffix;
}

int TypV2Utils::FreeElementsListContent(char** elements, long long count) {
  if (elements == nullptr) return argument::kNoInput;
  for (long long i = 0; i < count; ++i) {
    std::free(elements[i]);
    elements[i] = nullptr;
  }
  return kOk;
}

int TypV2Utils::GetElementsFromList(const char* text, char separator, char** elements, long long* count) {
  if (elements == nullptr) return argument::kNoOutput;
  if (count == nullptr) return argument::kNoLengthOutput;
  if (text == nullptr) return argument::kNoInput;
  const long long capacity = *count;
  *count = 0;
  const char* const end = text + std::strlen(text);
  const char* begin = text;
  while (begin != end) {
    if (*count >= capacity) return utils::kListFull;
    const auto left = static_cast<std::size_t>(end - begin);
    const auto* stop = static_cast<const char*>(std::memchr(begin, separator, left));
    // Kept so: a separator in last place belongs to the last element.
    const bool is_last = stop == nullptr || stop + 1 == end;
    const std::size_t length = is_last ? left : static_cast<std::size_t>(stop - begin);
    CBuffer element;
    if (!element.Allocate(length + 1)) return kNoObject;
    std::memcpy(element.data(), begin, length);
    elements[(*count)++] = element.release_text();
    begin = is_last ? end : stop + 1;
  }
  return *count > 0 && *count >= capacity ? utils::kListFull : kOk;
}

long long TypV2Utils::possubstring(const char* text, const char* sub) {
  if (text == nullptr || sub == nullptr) return -1;
  const char* found = std::strstr(text, sub);
  return found == nullptr ? -1 : found - text;
}

long long TypV2Utils::possubstringsimplenocase(const unsigned char* buffer, unsigned long long length,
                                               unsigned long long start, const char* sub) {
  if (buffer == nullptr || sub == nullptr) return -1;
  const std::string_view wanted(sub);
  if (wanted.size() > length || start > length - wanted.size()) return -1;
  const std::span<const unsigned char> text(buffer + start, length - start);
  const auto found = std::search(text.begin(), text.end(), wanted.begin(), wanted.end(), IsSameWithoutCase);
  if (found == text.end() && !wanted.empty()) return -1;
  return static_cast<long long>(start) + (found - text.begin());
}

int TypV2Utils::ExtractSmallValueFromXMLLight(const char* xml, const char* tag, unsigned long long n,
                                              char* out, unsigned long long start, unsigned long long max) {
  if (xml == nullptr || tag == nullptr) return argument::kNoInput;
  if (out == nullptr) return argument::kNoOutput;
  const std::string_view text(xml);
  if (start >= text.size()) return utils::kTagMissing;
  std::size_t from = start;
  for (unsigned long long occurrence = 1; occurrence <= kMostOccurrences; ++occurrence) {
    const auto element = FindElement(text, tag, from);
    if (!element) return utils::kTagMissing;
    from = element->end;
    if (occurrence != n) continue;
    const std::string_view value = element->value;
    if (max != 0 && value.size() > max) return utils::kValueTooLong;
    std::memmove(out, value.data(),
                 value.size());  // a caller may read a value out of the text that it replaces
    out[value.size()] = 0;
    return kOk;
  }
  return utils::kTagMissing;
}

int TypV2Utils::ExtractFirstPJFromMime(unsigned char* text, unsigned long long length, unsigned char** out,
                                       unsigned long long* out_length) {
  if (out == nullptr || out_length == nullptr) return utils::kNoMimeOutput;
  *out = nullptr;
  *out_length = 0;
  const long long header = possubstringsimplenocase(text, length, 0, kAttachmentHeader);
  if (header < 0) return utils::kNoAttachment;
  const long long blank =
      possubstringsimplenocase(text, length, static_cast<unsigned long long>(header), kBlankLine);
  if (blank < 0) return utils::kNoAttachment;
  const unsigned long long begin = static_cast<unsigned long long>(blank) + std::strlen(kBlankLine);
  const long long end = possubstringsimplenocase(text, length, begin, kClosingDashes);
  if (end < 0) return utils::kNoAttachment;
  const std::size_t encoded = static_cast<std::size_t>(end) - static_cast<std::size_t>(begin);
  if (encoded < 1) return utils::kEmptyAttachment;

  SecretCBuffer decoded;
  if (!decoded.Allocate(encoded)) return kNoObject;
  std::size_t decoded_length = decoded.size();
  // Kept so: an attachment that is not Base64 is no attachment, and no failure either.
  if (base64_decode(decoded.data(), &decoded_length, text + begin, encoded) != 0) return kOk;
  *out = decoded.release();
  *out_length = decoded_length;
  return kOk;
}

int TypV2Utils::extractprefixemail(const char* address, char* out) {
  return CopyAddressPart(address, out, false);
}

int TypV2Utils::extractdomainemail(const char* address, char* out) {
  return CopyAddressPart(address, out, true);
}

int TypV2Utils::endwith(const char* text, const char* suffix) {
  if (text == nullptr || suffix == nullptr) return 0;
  const std::size_t text_length = std::strlen(text);
  const std::size_t suffix_length = std::strlen(suffix);
  if (suffix_length > text_length) return 0;
  return std::strcmp(text + text_length - suffix_length, suffix) == 0 ? 1 : 0;
}

int TypV2Utils::isnumericsstring(const char* text) {
  if (text == nullptr || *text == 0) return 0;
  for (; *text != 0; ++text) {
    if (!IsDigit(*text)) return 0;
  }
  return 1;
}

int TypV2Utils::isKestruneDomain(const char* domain) {
  if (domain == nullptr) return 1;
  if (!IsShorterThan(domain, kAddressLimit)) return 0;
  if (*domain == 0) return 1;
  std::array<char, kAddressLimit> folded;
  CopyText(folded, domain);
  lowercasecharstring(folded.data(), folded.size());
  const char* name = folded.data();
  for (const char* own : {settings::kServiceDomain1, settings::kServiceDomain2, settings::kServiceDomain4}) {
    if (possubstring(name, own) >= 0) return 1;
  }
  if (possubstring(name, settings::kServiceDomain3) == 0) return 1;
  const bool is_member =
      possubstring(name, "medical") == 0 &&
      (endwith(name, settings::kDomainSuffix1) == 1 || endwith(name, settings::kDomainSuffix2) == 1);
  return is_member ? 1 : 0;
}
