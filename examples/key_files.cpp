#include "key_files.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace kestrune::examples {
namespace {

constexpr std::size_t kIvBytes = 16;
constexpr std::size_t kDigestedHeader = 112;
constexpr std::size_t kDigestedIvs = 16384;
constexpr std::size_t kNumber = 8;
constexpr int kPersonalKeyYears = 100;  // the year in their names is this much more than in the others'
constexpr std::array<unsigned char, kIvBytes> kZeroIv{};

using Key = std::array<unsigned char, 32>;
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

int YearsSince1900() {
  const std::time_t now = std::time(nullptr);
  return std::localtime(&now)->tm_year;
}

void OrStop(bool fine) {
  if (!fine) std::abort();
}

// One pass of a cipher that neither pads nor changes the length.
void Run(const EVP_CIPHER* type, bool encipher, const unsigned char* key, const unsigned char* iv,
         unsigned char* data, std::size_t bytes) {
  const Cipher cipher(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  OrStop(EVP_CipherInit_ex(cipher.get(), type, nullptr, key, iv, encipher ? 1 : 0) == 1);
  EVP_CIPHER_CTX_set_padding(cipher.get(), 0);
  constexpr std::size_t kPiece = 1 << 30;
  for (std::size_t done = 0; done < bytes; done += kPiece) {
    const int count = static_cast<int>(std::min(kPiece, bytes - done));
    int written = 0;
    OrStop(EVP_CipherUpdate(cipher.get(), data + done, &written, data + done, count) == 1 &&
           written == count);
  }
}

Key KeyOf(const std::string& hex) {
  Key key{};
  for (std::size_t i = 0; i < key.size() && 2 * i + 1 < hex.size(); ++i) {
    key[i] = static_cast<unsigned char>(std::strtoul(hex.substr(2 * i, 2).c_str(), nullptr, 16));
  }
  return key;
}

Bytes PatternedHeader() {
  Bytes header(kKeyHeaderBytes);
  for (std::size_t i = 0; i < header.size(); ++i) header[i] = static_cast<unsigned char>(i * 37 + 11);
  for (std::size_t at : {kFirstOffsetAt, kSecondOffsetAt, kCyclesAt, kUsesAt, kUsedBytesAt}) {
    SetNumberAt(header, at, 0);
  }
  return header;
}

void Append(Bytes& to, const Bytes& what) {
  to.insert(to.end(), what.begin(), what.end());
}

// The digested part of a header as a little-endian machine holds it.
std::array<unsigned char, kDigestedHeader> InHostOrder(const Bytes& file) {
  std::array<unsigned char, kDigestedHeader> header;
  std::copy_n(file.begin(), kDigestedHeader, header.begin());
  for (std::size_t at : {0U, 4U, 8U, 44U}) std::reverse(&header[at], &header[at] + 4);
  for (std::size_t at : {88U, 96U, 104U}) std::reverse(&header[at], &header[at] + kNumber);
  return header;
}

}  // namespace

void AesCbc(bool encipher, const unsigned char* key, const unsigned char* iv, unsigned char* data,
            std::size_t bytes) {
  Run(EVP_aes_256_cbc(), encipher, key, iv, data, bytes);
}

std::string CertificateYear() {
  return std::to_string(YearsSince1900());
}

std::string PersonalKeyYear() {
  return std::to_string(YearsSince1900() + kPersonalKeyYears);
}

std::string HexPassword(std::string_view pass_phrase) {
  std::string text(pass_phrase.substr(0, 32));
  for (char& c : text) {
    if (std::string_view("#$&*-=@").find(c) != std::string_view::npos) c = '_';
  }
  std::array<unsigned char, SHA512_DIGEST_LENGTH> digest;
  SHA512(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  std::string hex;
  for (std::size_t i = 0; i < std::tuple_size_v<Key>; ++i) {
    hex.push_back("0123456789ABCDEF"[digest[i] >> 4]);
    hex.push_back("0123456789ABCDEF"[digest[i] & 15]);
  }
  return hex;
}

Bytes PadOf(std::size_t bytes, std::uint64_t seed) {
  Key key{};
  for (std::size_t i = 0; i < kNumber; ++i) key[i] = static_cast<unsigned char>(seed >> (8 * i));
  Bytes pad(bytes);
  Run(EVP_aes_256_ctr(), true, key.data(), kZeroIv.data(), pad.data(), pad.size());
  return pad;
}

Bytes FreshPad(std::size_t bytes) {
  Bytes pad(bytes);
  for (std::size_t done = 0; done < bytes;) {
    const std::size_t count = std::min<std::size_t>(bytes - done, INT_MAX);
    OrStop(RAND_bytes(pad.data() + done, static_cast<int>(count)) == 1);
    done += count;
  }
  return pad;
}

std::uint64_t NumberAt(const Bytes& bytes, std::size_t at) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < kNumber; ++i) value = value << 8 | bytes.at(at + i);
  return value;
}

void SetNumberAt(Bytes& bytes, std::size_t at, std::uint64_t value) {
  for (std::size_t i = 0; i < kNumber; ++i) {
    bytes.at(at + i) = static_cast<unsigned char>(value >> (8 * (kNumber - 1 - i)));
  }
}

std::uint64_t IvAreaBytes(std::uint64_t first_pad, std::uint64_t second_pad) {
  return ((first_pad + second_pad) / kPadChunk * kIvBytes + kPadChunk) / kPadChunk * kPadChunk;
}

void Reseal(Bytes& file, const std::string& hex_password) {
  if (file.size() < kKeyHeaderBytes) return;
  const std::uint64_t area = IvAreaBytes(NumberAt(file, kFirstPadBytesAt), NumberAt(file, kSecondPadBytesAt));
  const auto digested = static_cast<std::size_t>(std::min<std::uint64_t>(area, kDigestedIvs));
  if (file.size() - kKeyHeaderBytes < digested) return;
  const auto ivs_at = file.begin() + kKeyHeaderBytes;
  Bytes ivs(ivs_at, ivs_at + static_cast<std::ptrdiff_t>(digested));
  AesCbc(false, KeyOf(hex_password).data(), kZeroIv.data(), ivs.data(), ivs.size());

  const auto header = InHostOrder(file);
  Bytes content(header.begin(), header.end());
  Append(content, ivs);
  std::array<unsigned char, SHA512_DIGEST_LENGTH> sha512;
  SHA512(content.data(), content.size(), sha512.data());
  SHA1(sha512.data(), sha512.size(), file.data() + kCheckDigestAt);
}

Bytes PersonalKey::File() const {
  const Key key = KeyOf(hex_password);
  const auto iv_area = static_cast<std::size_t>(IvAreaBytes(first_pad.size(), second_pad.size()));
  Bytes ivs = seed == 0 ? FreshPad(iv_area) : PadOf(iv_area, seed);
  Bytes pads = first_pad;
  Append(pads, second_pad);
  for (std::size_t chunk = 0; (chunk + 1) * kPadChunk <= pads.size(); ++chunk) {
    AesCbc(true, key.data(), ivs.data() + chunk * kIvBytes, pads.data() + chunk * kPadChunk, kPadChunk);
  }
  AesCbc(true, key.data(), kZeroIv.data(), ivs.data(), ivs.size());

  Bytes file = PatternedHeader();
  SetNumberAt(file, kFirstPadBytesAt, first_pad.size());
  SetNumberAt(file, kSecondPadBytesAt, second_pad.size());
  SetNumberAt(file, kFirstOffsetAt, first_offset);
  SetNumberAt(file, kSecondOffsetAt, second_offset);
  Append(file, ivs);
  Append(file, pads);
  Reseal(file, hex_password);
  return file;
}

Bytes MasterKey::File() const {
  Bytes file = PatternedHeader();
  SetNumberAt(file, kFirstPadBytesAt, pad.size());
  SetNumberAt(file, kFirstOffsetAt, offset);
  file.resize(kMasterPadAt, 0x5a);
  Append(file, pad);
  return file;
}

}  // namespace kestrune::examples
