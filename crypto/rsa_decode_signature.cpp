// Taking the signed bytes back out of a PKCS#1 v1.5 signature (RFC 8017, 8.2.2 and 9.2).
#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

#include "base/buffer.h"
#include "crypto/classic.h"

namespace {

using BytesView = std::span<const unsigned char>;

// Layout: 00 | 01 | FF ... FF (at least 8) | 00 | signed bytes
constexpr unsigned char kBlockType = 0x01;
constexpr unsigned char kPaddingByte = 0xFF;
constexpr std::size_t kPaddingBegin = 2;
constexpr std::size_t kLeastPaddingRun = 8;

// A hash as DigestInfo names it: its object identifier's content, and the length of its digests.
struct KnownHash {
  std::string_view oid;
  std::size_t digest_bytes;
};
constexpr KnownHash kKnownHashes[] = {
    {"\x2a\x86\x48\x86\xf7\x0d\x02\x02", 16},      // MD2
    {"\x2a\x86\x48\x86\xf7\x0d\x02\x04", 16},      // MD4
    {"\x2a\x86\x48\x86\xf7\x0d\x02\x05", 16},      // MD5
    {"\x2b\x24\x03\x02\x01", 20},                  // RIPEMD-160
    {"\x2b\x0e\x03\x02\x1a", 20},                  // SHA-1
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x04", 28},  // SHA-224
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x01", 32},  // SHA-256
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x02", 48},  // SHA-384
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x03", 64},  // SHA-512
};

// DER tags of DigestInfo: SEQUENCE { SEQUENCE { OID, NULL }, OCTET STRING digest }
constexpr char kSequence = 0x30;
constexpr char kObjectIdentifier = 0x06;
constexpr char kNull = 0x05;
constexpr char kOctetString = 0x04;

// The bytes behind the padding; ERR_RSA_INVALID_PADDING for any fault in it.
int StripPadding(BytesView block, BytesView* signed_bytes) {
  if (block[0] != 0 || block[1] != kBlockType) return ERR_RSA_INVALID_PADDING;
  const auto run = block.begin() + kPaddingBegin;
  const auto separator = std::find_if(run, block.end(), [](unsigned char b) { return b != kPaddingByte; });
  if (separator == block.end() || *separator != 0) return ERR_RSA_INVALID_PADDING;
  if (static_cast<std::size_t>(separator - run) < kLeastPaddingRun) return ERR_RSA_INVALID_PADDING;
  *signed_bytes = BytesView(separator + 1, block.end());
  return 0;
}

// True where an encoder with whatever habits (other lengths, no NULL) would have named this hash.
bool NamesHash(std::string_view bytes, const KnownHash& hash) {
  constexpr std::size_t kInnerSequence = 2;
  constexpr std::size_t kOidTag = 4;
  constexpr std::size_t kOid = 6;
  return bytes.size() >= kOid && bytes[0] == kSequence && bytes[kInnerSequence] == kSequence &&
         bytes[kOidTag] == kObjectIdentifier && bytes.substr(kOid).starts_with(hash.oid);
}

bool IsDigestInfo(std::string_view bytes, const KnownHash& hash) {
  const auto oid_bytes = static_cast<char>(hash.oid.size());
  const auto digest_bytes = static_cast<char>(hash.digest_bytes);
  const auto algorithm_bytes = static_cast<char>(oid_bytes + 4);  // with the OID's head and NULL
  const auto all_bytes = static_cast<char>(algorithm_bytes + digest_bytes + 4);  // with two more heads
  const char head[] = {kSequence, all_bytes, kSequence, algorithm_bytes, kObjectIdentifier, oid_bytes};
  const char tail[] = {kNull, 0, kOctetString, digest_bytes};
  std::size_t position = 0;
  for (const std::string_view piece :
       {std::string_view(head, sizeof head), hash.oid, std::string_view(tail, sizeof tail)}) {
    if (!bytes.substr(position).starts_with(piece)) return false;
    position += piece.size();
  }
  return bytes.size() == position + hash.digest_bytes;
}

// Bytes that name a known hash where a DigestInfo does must be its DigestInfo to the last byte: what is
// nearly one, or has bytes behind the digest, is a forgery. Anything else is plain text.
int CheckDigestInfo(BytesView view) {
  const std::string_view bytes(reinterpret_cast<const char*>(view.data()), view.size());
  for (const KnownHash& hash : kKnownHashes) {
    if (NamesHash(bytes, hash)) return IsDigestInfo(bytes, hash) ? 0 : ERR_RSA_VERIFY_FAILED;
  }
  return 0;
}

}  // namespace

int rsa_pkcs1_decodesignature(rsa_context* key, int mode, std::size_t* output_length, unsigned char* output,
                              std::size_t output_max, const unsigned char* signature,
                              std::size_t signature_length) {
  *output_length = 0;
  if (mode != RSA_PUBLIC && mode != RSA_PRIVATE) return ERR_RSA_BAD_INPUT_DATA;
  if (key->len() == 0 || signature_length != key->len()) return ERR_RSA_BAD_INPUT_DATA;
  kestrune::SecretArray<kRsaMostBytes> block;  // with the private operation it may be clear text
  int rc = mode == RSA_PUBLIC ? rsa_public(key, signature, block.data())
                              : rsa_private(key, signature, block.data());
  if (rc != 0) return rc;
  BytesView signed_bytes;
  if (rc = StripPadding(BytesView(block.data(), key->len()), &signed_bytes); rc != 0) return rc;
  if (rc = CheckDigestInfo(signed_bytes); rc != 0) return rc;
  if (signed_bytes.size() > output_max) return ERR_RSA_OUTPUT_TOO_LARGE;
  std::copy(signed_bytes.begin(), signed_bytes.end(), output);
  *output_length = signed_bytes.size();
  return 0;
}
