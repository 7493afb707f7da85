// A file in the key folder that is no key and no certificate, or a damaged one. What is read has a usable size; and
// the cryptographic library's own readers, which are not used, take and refuse the same (fuzz/witness.h says where not).
// A key that was read is written, protected, and read again.
//
// Nobody finds what deciphers to a key, so an input that begins with a zero byte is put under a pass phrase here.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/classic.h"
#include "crypto/der.h"
#include "crypto/key_protection.h"
#include "crypto/pem.h"
#include "fuzz/expect.h"
#include "fuzz/protected_key.h"
#include "fuzz/witness.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

constexpr char kPassPhrase[] = "a_b_c_d";

// A regular file that never leaves memory.
class File {
 public:
  File() : fd_(::memfd_create("file", 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {}
  const char* Holding(const void* data, std::size_t size) const {
    if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    return path_.c_str();
  }

 private:
  const int fd_;
  const std::string path_;
};

void Require(bool is_read, const rsa_context& key) {
  const bool is_usable = key.len() >= kRsaLeastBytes && key.len() <= kRsaMostBytes;
  if (is_read ? !is_usable : key.len() != 0) std::abort();
}

std::string_view AsText(std::span<const unsigned char> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// True when it holds for the file read as DER, or for a part with this label.
template <class Predicate>
bool HoldsForAny(const Bytes& text, std::string_view label, Predicate&& holds) {
  if (holds(text)) return true;
  for (std::string_view rest(reinterpret_cast<const char*>(text.data())); !rest.empty();) {
    crypto::PemPart part;
    const crypto::PemRead read = part.Read(rest, label, {});
    if (read == crypto::PemRead::kAbsent) break;
    if (read == crypto::PemRead::kDone && holds(part.der.span())) return true;
    rest.remove_prefix(part.end);
  }
  return false;
}

// Above the limit the library would go on for hours, below it for longer than a search has.
bool StatesManyIterations(std::span<const unsigned char> der) {
  constexpr int kMany = 20'000;
  crypto::der::Reader outer(der), inner;
  crypto::der::Reader::Algorithm scheme, derivation;
  if (!outer.Take(crypto::der::kSequence, &inner) || !inner.TakeAlgorithm(&scheme)) return false;
  crypto::der::Reader parameters(scheme.parameters);
  if (parameters.TakeAlgorithm(&derivation)) parameters = crypto::der::Reader(derivation.parameters);
  std::span<const unsigned char> salt;
  int iterations = 0;
  return parameters.Take(crypto::der::kOctetString, &salt) &&
         (!parameters.TakeInteger(&iterations) || iterations > kMany);
}

// Curves and points are not looked into, so of several certificates the library may choose a later one than we do.
bool NamesElliptic(std::span<const unsigned char> der) {
  return AsText(der).find(crypto::der::kEcPublicKey) != std::string_view::npos ||
         AsText(der).find(crypto::der::kEcDiffieHellman) != std::string_view::npos;
}

void RequireSame(const char* what, const Numbers& own, const Numbers& librarys) {
  if (own == librarys || (librarys.empty() && !kLibraryTakesAllOfOurs) ||
      (own.empty() && !kLibraryTakesNoOthers)) {
    return;
  }
  std::fprintf(stderr, "%s: %s\n", what,
               own.empty()        ? "refused here, taken by the library"
               : librarys.empty() ? "taken here, refused by the library"
                                  : "read differently");
  std::abort();
}

void WriteAgain(const rsa_context& key) {
  static const File file;
  std::vector<char> pem(8 * key.len() + 1000);
  std::size_t length = pem.size();
  Expect(rsa_write_key(&key, kPassPhrase, pem.data(), &length) == 0);
  const char* const path = file.Holding(pem.data(), length);
  Expect(crypto::ProtectionOf(path) == crypto::KeyProtection::kPassPhrase);
  rsa_context again;
  Expect(x509parse_keyfile(&again, path, nullptr) == ERR_X509_KEY_PASSWORD_MISMATCH);
  Expect(x509parse_keyfile(&again, path, kPassPhrase) == 0 && NumbersOf(again) == NumbersOf(key));
}

void Key(const char* path, const Bytes& text, bool compare) {
  if (HoldsForAny(text, "ENCRYPTED PRIVATE KEY", StatesManyIterations)) return;
  rsa_context key;
  const bool is_open = x509parse_keyfile(&key, path, nullptr) == 0;
  Require(is_open, key);
  const auto protection = crypto::ProtectionOf(path);
  Expect(!is_open || protection == crypto::KeyProtection::kNone);
  const bool is_read = x509parse_keyfile(&key, path, kPassPhrase) == 0;
  Require(is_read, key);
  Expect(is_read ? protection != crypto::KeyProtection::kUnread : !is_open);
  if (is_read) WriteAgain(key);
  if (compare) RequireSame("key", NumbersOf(key), LibraryReadsKey(text, kPassPhrase));
}

void Certificate(const char* path, const Bytes& text, bool compare) {
  x509_cert certificate;
  const int unread = x509parse_crtfile(&certificate, path);
  Require(unread >= 0, certificate.rsa);
  if (!compare || HoldsForAny(text, "CERTIFICATE", NamesElliptic)) return;
  int librarys_unread = 0;
  const Numbers librarys = LibraryReadsCertificate(text, &librarys_unread);
  // Of several certificates it may have chosen another one.
  if (unread != librarys_unread && unread >= 0 && librarys_unread >= 0 && !kLibraryTakesAllOfOurs) return;
  RequireSame("certificate", NumbersOf(certificate.rsa), librarys);
  if (unread >= 0 && unread != librarys_unread && kLibraryTakesAllOfOurs) std::abort();
}

// With a zero behind it. What is to be protected has a byte that says how before it.
Bytes TextOf(const std::uint8_t* data, std::size_t size) {
  std::string text(data, data + size);
  if (data[0] == 0 && size > 1) {
    const std::string_view der = std::string_view(text).substr(2);
    switch (data[1] % 5) {
      case 0:
      case 1:
        text = TraditionalPem("RSA PRIVATE KEY", der, kPassPhrase, data[1] % 5 == 1);
        break;
      case 2:
        text = TraditionalPem("EC PRIVATE KEY", der, kPassPhrase, true);
        break;
      case 3:
        text = Pem("ENCRYPTED PRIVATE KEY", "", EncipheredPkcs8(der, kPassPhrase));
        break;
      default:
        text = EncipheredPkcs8(der, kPassPhrase);
    }
  }
  Bytes bytes(text.begin(), text.end());
  bytes.push_back(0);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const File file;
  const Bytes text = TextOf(data, size);
  const char* const path = file.Holding(text.data(), text.size() - 1);
  const bool is_pem = AsText(text).find("-----BEGIN ") != std::string_view::npos;
  Key(path, text, kLibraryReadsPem || !is_pem);
  Certificate(path, text, kLibraryReadsPem || !is_pem);
  return 0;
}
