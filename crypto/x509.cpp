// Private-key and certificate files behind the classic names.
#include <fcntl.h>
#include <mbedtls/pk.h>
#include <mbedtls/x509_crt.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <utility>

#include "base/buffer.h"
#include "base/regular_file.h"
#include "crypto/classic.h"
#include "crypto/errors.h"
#include "crypto/protected_key.h"
#include "crypto/rsa_impl.h"

using kestrune::crypto::IsOpenedByAnother;
using kestrune::crypto::NoMemoryOr;
using kestrune::crypto::StatesTooManyIterations;

namespace {

// No key or certificate comes near this; a larger file is something else.
constexpr off_t kMostFileBytes = 1 << 20;

// A whole small file with a zero behind it (the PEM reader counts that zero).
class KeyText {
 public:
  explicit KeyText(const char* path) {
    struct stat status;
    const kestrune::FileDescriptor file = kestrune::OpenRegularFile(path, O_RDONLY, &status);
    if (!file.valid() || status.st_size <= 0 || status.st_size > kMostFileBytes) return;
    lacks_memory_ = !bytes_.Allocate(static_cast<std::size_t>(status.st_size) + 1);
    if (lacks_memory_) return;
    std::size_t got = 0;
    while (got + 1 < bytes_.size()) {
      const ssize_t count = ::read(file.get(), bytes_.data() + got, bytes_.size() - 1 - got);
      if (count <= 0) return;
      got += static_cast<std::size_t>(count);
    }
    complete_ = true;
  }

  bool complete() const { return complete_; }
  bool lacks_memory() const { return lacks_memory_; }
  const unsigned char* data() const { return bytes_.data(); }
  // PEM is handed over with its final zero, DER without it.
  std::size_t size() const { return IsPem() ? bytes_.size() : bytes_.size() - 1; }

 private:
  bool IsPem() const { return std::strstr(bytes_.text(), "-----BEGIN ") != nullptr; }

  kestrune::SecretCBuffer bytes_;
  bool complete_ = false;
  bool lacks_memory_ = false;
};

struct ParsedKey {
  mbedtls_pk_context pk;
  ParsedKey() { mbedtls_pk_init(&pk); }
  ~ParsedKey() { mbedtls_pk_free(&pk); }
  ParsedKey(const ParsedKey&) = delete;
  ParsedKey& operator=(const ParsedKey&) = delete;

  int Parse(const KeyText& text, const unsigned char* phrase, std::size_t phrase_length) {
    const auto parse = [&] {
      return mbedtls_pk_parse_key(&pk, text.data(), text.size(), phrase, phrase_length);
    };
    const int rc = parse();
    if (rc != MBEDTLS_ERR_PK_KEY_INVALID_FORMAT) return rc;
    // The library forgets on the way up what made a format invalid, also when it was lack of memory. At a second
    // attempt that is over, or shows at once.
    mbedtls_pk_free(&pk);
    return parse();
  }
};

struct ParsedCertificate {
  mbedtls_x509_crt crt;
  ParsedCertificate() { mbedtls_x509_crt_init(&crt); }
  ~ParsedCertificate() { mbedtls_x509_crt_free(&crt); }
  ParsedCertificate(const ParsedCertificate&) = delete;
  ParsedCertificate& operator=(const ParsedCertificate&) = delete;
};

// An elliptic-curve key parses as well as any: it has to be asked for its kind. `unusable` is the code for what
// is no RSA key of our sizes.
int CopyRsaKey(mbedtls_pk_context* parsed, rsa_context* key, int unusable) {
  if (mbedtls_pk_get_type(parsed) != MBEDTLS_PK_RSA) return unusable;
  const std::size_t modulus = mbedtls_rsa_get_len(mbedtls_pk_rsa(*parsed));
  if (modulus < kRsaLeastBytes || modulus > kRsaMostBytes) return unusable;
  std::unique_ptr<rsa_context::Impl> copy(new (std::nothrow) rsa_context::Impl);
  if (copy == nullptr) return ERR_NO_MEMORY;
  if (const int rc = mbedtls_rsa_copy(&copy->key, mbedtls_pk_rsa(*parsed)); rc != 0) {
    return NoMemoryOr(unusable, rc);
  }
  key->impl = std::move(copy);
  return 0;
}

}  // namespace

x509_cert::x509_cert() noexcept = default;
x509_cert::~x509_cert() = default;

int x509parse_keyfile(rsa_context* key, const char* path, const char* password) {
  rsa_free(key);
  const KeyText text(path);
  if (text.lacks_memory()) return ERR_NO_MEMORY;
  if (!text.complete() || StatesTooManyIterations(text.data(), text.size())) return ERR_X509_KEY_INVALID;
  const auto* phrase = reinterpret_cast<const unsigned char*>(password);
  const std::size_t phrase_length = password == nullptr ? 0 : std::strlen(password);
  ParsedKey parsed;
  const int rc = parsed.Parse(text, phrase, phrase_length);
  if (rc == 0) return CopyRsaKey(&parsed.pk, key, ERR_X509_KEY_INVALID);
  if (NoMemoryOr(0, rc) != 0) return ERR_NO_MEMORY;
  const bool wrong_phrase = rc == MBEDTLS_ERR_PK_PASSWORD_MISMATCH ||
                            rc == MBEDTLS_ERR_PK_PASSWORD_REQUIRED ||
                            IsOpenedByAnother(text.data(), text.size(), phrase, phrase_length);
  return wrong_phrase ? ERR_X509_KEY_PASSWORD_MISMATCH : ERR_X509_KEY_INVALID;
}

int x509parse_crtfile(x509_cert* certificate, const char* path) {
  x509_free(certificate);
  const KeyText text(path);
  if (text.lacks_memory()) return ERR_NO_MEMORY;
  if (!text.complete()) return ERR_X509_CERT_INVALID;
  ParsedCertificate parsed;
  const int unread = mbedtls_x509_crt_parse(&parsed.crt, text.data(), text.size());
  if (unread < 0) return NoMemoryOr(ERR_X509_CERT_INVALID, unread);
  const int rc = CopyRsaKey(&parsed.crt.pk, &certificate->rsa, ERR_X509_CERT_INVALID);
  return rc == 0 ? unread : rc;
}

void x509_free(x509_cert* certificate) {
  rsa_free(&certificate->rsa);
}
