// Comes first: it says that the numbers of a key are wanted.
#include "crypto/mbedtls/version.h"

#include <mbedtls/pk.h>
#include <mbedtls/x509_crt.h>

#include <cstring>

#include "base/system_random.h"
#include "crypto/mbedtls/rsa_impl.h"
#include "fuzz/witness.h"

namespace kestrune::testing {
namespace {

Bytes BytesOf(const mbedtls_mpi& number) {
  Bytes bytes(mbedtls_mpi_size(&number));
  mbedtls_mpi_write_binary(&number, bytes.data(), bytes.size());
  return bytes;
}

Numbers NumbersOf(const mbedtls_rsa_context& key) {
  Numbers numbers = {BytesOf(key.N), BytesOf(key.E)};
  if (mbedtls_mpi_size(&key.D) > 0) {
    for (const mbedtls_mpi* number : {&key.D, &key.P, &key.Q}) numbers.push_back(BytesOf(*number));
  }
  return numbers;
}

Numbers NumbersOf(const mbedtls_pk_context& key) {
  if (mbedtls_pk_get_type(&key) != MBEDTLS_PK_RSA) return {};
  const mbedtls_rsa_context& rsa = *mbedtls_pk_rsa(key);
  const std::size_t bytes = mbedtls_rsa_get_len(&rsa);
  return bytes >= kRsaLeastBytes && bytes <= kRsaMostBytes ? NumbersOf(rsa) : Numbers{};
}

// PEM is handed over with the zero behind it, DER without.
std::size_t SizeToRead(std::span<const unsigned char> text) {
  const bool is_pem = std::strstr(reinterpret_cast<const char*>(text.data()), "-----BEGIN ") != nullptr;
  return is_pem ? text.size() : text.size() - 1;
}

int Parse(mbedtls_pk_context* key, std::span<const unsigned char> text, const char* phrase) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(phrase);
#if MBEDTLS_VERSION_MAJOR == 2
  return mbedtls_pk_parse_key(key, text.data(), SizeToRead(text), bytes, std::strlen(phrase));
#else
  const auto draw = [](void*, unsigned char* output, std::size_t count) {
    return DrawFromSystem(output, count) ? 0 : -1;
  };
  return mbedtls_pk_parse_key(key, text.data(), SizeToRead(text), bytes, std::strlen(phrase), draw, nullptr);
#endif
}

}  // namespace

const bool kLibraryReadsPem = true;
const bool kLibraryTakesAllOfOurs = crypto::mbedtls::kIsOlder;
const bool kLibraryTakesNoOthers = true;

Numbers NumbersOf(const rsa_context& key) {
  return key.impl == nullptr ? Numbers{} : NumbersOf(key.impl->key);
}

Numbers LibraryReadsKey(std::span<const unsigned char> text, const char* phrase) {
  mbedtls_pk_context key;
  mbedtls_pk_init(&key);
  Numbers numbers;
  if (Parse(&key, text, phrase) == 0) numbers = NumbersOf(key);
  mbedtls_pk_free(&key);
  return numbers;
}

Numbers LibraryReadsCertificate(std::span<const unsigned char> text, int* unread) {
  mbedtls_x509_crt certificate;
  mbedtls_x509_crt_init(&certificate);
  *unread = mbedtls_x509_crt_parse(&certificate, text.data(), SizeToRead(text));
  Numbers numbers;
  if (*unread >= 0) numbers = NumbersOf(certificate.pk);
  mbedtls_x509_crt_free(&certificate);
  return numbers;
}

}  // namespace kestrune::testing
