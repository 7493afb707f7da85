// Taking the signed bytes back out of a PKCS#1 v1.5 signature (RFC 8017, 8.2.2 and 9.2).
#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "crypto/classic.h"
#include "crypto/rsa_impl.h"

namespace {

using BytesView = std::span<const unsigned char>;

// Layout: 00 | 01 | FF ... FF (at least 8) | 00 | signed bytes
constexpr unsigned char kBlockType = 0x01;
constexpr unsigned char kPaddingByte = 0xFF;
constexpr std::size_t kPaddingBegin = 2;
constexpr std::size_t kLeastPaddingRun = 8;

// DigestInfo of a hash, DER: 30 LL | 30 LL | 06 LL OID | 05 00 | 04 LL | digest. What stands before the
// digest is the same for every digest of that hash.
struct KnownHash {
  std::size_t prefix_bytes;
  std::size_t digest_bytes;
  std::array<unsigned char, 19> prefix;
};
constexpr KnownHash kKnownHashes[] = {
    // MD2, MD4, MD5
    {18,
     16,
     {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x02, 0x02, 0x05, 0x00, 0x04,
      0x10}},
    {18,
     16,
     {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x02, 0x04, 0x05, 0x00, 0x04,
      0x10}},
    {18,
     16,
     {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04,
      0x10}},
    // SHA-1
    {15, 20, {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e, 0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14}},
    // SHA-224, SHA-256, SHA-384, SHA-512
    {19,
     28,
     {0x30, 0x2d, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x04, 0x05, 0x00,
      0x04, 0x1c}},
    {19,
     32,
     {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00,
      0x04, 0x20}},
    {19,
     48,
     {0x30, 0x41, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02, 0x05, 0x00,
      0x04, 0x30}},
    {19,
     64,
     {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03, 0x05, 0x00,
      0x04, 0x40}},
};
constexpr std::size_t kOidBegin = 4;  // tag, length, bytes
constexpr std::size_t kOidTail = 4;   // what stands between the OID and the digest: 05 00 04 LL

// The encoded block, wiped when it goes: with the private operation it may be clear text.
class EncodedBlock {
 public:
  explicit EncodedBlock(std::size_t size) : size_(size) {}
  ~EncodedBlock() { wipe(bytes_.data(), size_); }
  EncodedBlock(const EncodedBlock&) = delete;
  EncodedBlock& operator=(const EncodedBlock&) = delete;

  unsigned char* data() { return bytes_.data(); }
  BytesView view() const { return BytesView(bytes_).first(size_); }

 private:
  std::size_t size_;
  std::array<unsigned char, kRsaMostBytes> bytes_;
};

bool IsUsableKey(const rsa_context& key) {
  const std::size_t bytes = key.len();
  return bytes >= kRsaLeastBytes && bytes <= kRsaMostBytes && mbedtls_mpi_get_bit(&key.impl->key.N, 0) == 1;
}

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

bool HasBytesAt(BytesView bytes, std::size_t position, BytesView wanted) {
  if (bytes.size() < position || bytes.size() - position < wanted.size()) return false;
  return std::equal(wanted.begin(), wanted.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
}

// Bytes that name a known hash where a DigestInfo does must be that hash's DigestInfo to the last byte:
// other lengths, absent parameters or bytes behind the digest make it a forgery. Anything else is plain text.
int CheckDigestInfo(BytesView bytes) {
  for (const KnownHash& hash : kKnownHashes) {
    const BytesView prefix = BytesView(hash.prefix).first(hash.prefix_bytes);
    const BytesView oid = prefix.subspan(kOidBegin, prefix.size() - kOidBegin - kOidTail);
    const bool names_hash = HasBytesAt(bytes, 0, prefix.first(1)) &&
                            HasBytesAt(bytes, 2, prefix.subspan(2, 1)) && HasBytesAt(bytes, kOidBegin, oid);
    if (!names_hash) continue;
    const bool exact = bytes.size() == hash.prefix_bytes + hash.digest_bytes && HasBytesAt(bytes, 0, prefix);
    return exact ? 0 : ERR_RSA_VERIFY_FAILED;
  }
  return 0;
}

}  // namespace

int rsa_pkcs1_decodesignature(rsa_context* key, int mode, std::size_t* output_length, unsigned char* output,
                              std::size_t output_max, const unsigned char* signature,
                              std::size_t signature_length) {
  *output_length = 0;
  if (mode != RSA_PUBLIC && mode != RSA_PRIVATE) return ERR_RSA_BAD_INPUT_DATA;
  if (!IsUsableKey(*key) || signature_length != key->len()) return ERR_RSA_BAD_INPUT_DATA;
  EncodedBlock block(key->len());
  int rc = mode == RSA_PUBLIC ? rsa_public(key, signature, block.data())
                              : rsa_private(key, signature, block.data());
  if (rc != 0) return rc;
  BytesView signed_bytes;
  if (rc = StripPadding(block.view(), &signed_bytes); rc != 0) return rc;
  if (rc = CheckDigestInfo(signed_bytes); rc != 0) return rc;
  if (signed_bytes.size() > output_max) return ERR_RSA_OUTPUT_TOO_LARGE;
  std::copy(signed_bytes.begin(), signed_bytes.end(), output);
  *output_length = signed_bytes.size();
  return 0;
}
