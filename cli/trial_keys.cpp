#include "cli/trial_keys.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "base/system_random.h"
#include "cli/failure.h"
#include "cli/key_choice.h"
#include "cli/text.h"
#include "core/instance_creator.h"
#include "core/key_header.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "keys/key_header_file.h"
#include "sign/key_utils.h"

namespace kestrune::cli {
namespace {

constexpr unsigned kModulusBits = 2048;
constexpr std::size_t kMasterPadAt = 4608;
constexpr int kFirstYear = 1900, kFirstPadYear = 1800;

void OrThrow(int rc) {
  if (rc == 0) return;
  if (rc == ERR_NO_MEMORY || rc == ERR_AES_NO_MEMORY) throw std::bad_alloc();
  throw Failure(Status::kCouldNot, Fill(_("No key could be made. (code {1})"), {std::to_string(rc)}),
                _("Try again."));
}

void Draw(unsigned char* bytes, std::size_t count) {
  if (!DrawFromSystem(bytes, count)) throw SystemFailure(errno, _("the system's random generator"));
}

Secret Room(std::size_t bytes) {
  Secret room;
  if (!room.Allocate(bytes)) throw std::bad_alloc();
  return room;
}

// ---- The certificate: X.509 (RFC 5280), signed by its own key ---------------------------------------

constexpr char kSequence = 0x30, kSet = 0x31, kInteger = 0x02, kBitString = 0x03, kUtf8 = 0x0c,
               kUtcTime = 0x17, kGeneralizedTime = 0x18, kExplicit0 = static_cast<char>(0xa0);
// Sequences of an identifier and NULL, and the identifier of a common name.
constexpr std::string_view kRsaEncryption{"\x30\x0d\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01\x05\x00", 15};
constexpr std::string_view kSha512WithRsa{"\x30\x0d\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0d\x05\x00", 15};
constexpr std::string_view kCommonName{"\x06\x03\x55\x04\x03", 5};
// What stands before a SHA-512 in a signature.
constexpr std::string_view kDigestInfo{
    "\x30\x51\x30\x0d\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x03\x05\x00\x04\x40", 19};

std::string Element(char tag, std::string_view content) {
  constexpr std::size_t kShort = 0x80;
  std::string element(1, tag);
  if (content.size() >= kShort) {
    element += static_cast<char>(0x82);
    element += static_cast<char>(content.size() >> 8);
  }
  return element.append(1, static_cast<char>(content.size())).append(content);
}

std::string Time(std::time_t time) {
  constexpr int kGeneralizedFrom = 150;  // 2050
  std::tm date{};
  (void)::gmtime_r(&time, &date);
  const bool is_long = date.tm_year >= kGeneralizedFrom;
  char text[32];
  const std::size_t count =
      std::strftime(text, sizeof text, is_long ? "%Y%m%d%H%M%SZ" : "%y%m%d%H%M%SZ", &date);
  return Element(is_long ? kGeneralizedTime : kUtcTime, {text, count});
}

std::string BitString(std::string_view bytes) {
  return Element(kBitString, std::string(1, 0).append(bytes));
}

std::string SignatureOf(rsa_context& key, std::string_view bytes) {
  std::array<unsigned char, kDigestInfo.size() + kSha512Bytes> signed_bytes{};
  std::copy(kDigestInfo.begin(), kDigestInfo.end(), signed_bytes.begin());
  sha4(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
       signed_bytes.data() + kDigestInfo.size(), 0);
  std::string signature(key.len(), 0);
  OrThrow(rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW, signed_bytes.size(), signed_bytes.data(),
                         reinterpret_cast<unsigned char*>(signature.data())));
  return signature;
}

Secret CertificateOf(rsa_context& key, const std::string& name) {
  constexpr std::time_t kYear = 365L * 24 * 3600;
  constexpr std::size_t kSerialBytes = 8, kMostPublicBytes = 2048, kLine = 64;
  std::array<unsigned char, kMostPublicBytes> public_key{};
  std::size_t length = public_key.size();
  OrThrow(rsa_write_pubkey(&key, public_key.data(), &length));
  std::string serial(kSerialBytes, 0);
  Draw(reinterpret_cast<unsigned char*>(serial.data()), serial.size());
  serial[0] = static_cast<char>((serial[0] & 0x3f) | 0x40);  // above 0, and not shorter
  const std::time_t now = std::time(nullptr);
  const std::string who =
      Element(kSequence, Element(kSet, Element(kSequence, std::string(kCommonName) + Element(kUtf8, name))));
  const std::string subject_key =
      Element(kSequence, std::string(kRsaEncryption) +
                             BitString({reinterpret_cast<const char*>(public_key.data()), length}));
  const std::string to_be_signed =
      Element(kSequence, Element(kExplicit0, Element(kInteger, "\x02")) + Element(kInteger, serial) +
                             std::string(kSha512WithRsa) + who +
                             Element(kSequence, Time(now) + Time(now + kYear)) + who + subject_key);
  const std::string certificate = Element(
      kSequence, to_be_signed + std::string(kSha512WithRsa) + BitString(SignatureOf(key, to_be_signed)));

  Secret base64 = Room(2 * certificate.size() + kLine);
  std::size_t characters = base64.size();
  OrThrow(base64_encode(base64.data(), &characters,
                        reinterpret_cast<const unsigned char*>(certificate.data()), certificate.size()));
  std::string pem = "-----BEGIN CERTIFICATE-----\n";
  for (std::size_t i = 0; i < characters; i += kLine) {
    pem.append(base64.text() + i, std::min(kLine, characters - i)).append("\n");
  }
  pem += "-----END CERTIFICATE-----\n";
  Secret text = Room(pem.size() + 1);
  std::memcpy(text.data(), pem.data(), pem.size());
  return text;
}

// ---- The pads (docs/key_files.md) --------------------------------------------------------------------

class PadFiles {
 public:
  PadFiles() : utils_(creator_.newTypV2Utils()), key_utils_(creator_.newTypKeyUtils()) {
    if (utils_.Init() != kOk || key_utils_.Init(&creator_) != kOk) throw std::bad_alloc();
  }

  Secret Master(std::size_t pad_bytes) {
    TypV2KeyHeader header{};
    header.TailleOTPChiffrement = pad_bytes;
    Secret file = Room(kMasterPadAt + pad_bytes);
    Draw(file.data() + kMasterPadAt, pad_bytes);
    WriteHeader(header, file);
    return file;
  }

  // Enciphered pads of random bytes are random bytes: nobody ever knew what they decipher to. So are the initial
  // vectors, of which the header tells a digest once they are deciphered.
  Secret Personal(std::size_t first_bytes, std::size_t second_bytes, const Secret& phrase) {
    TypV2KeyHeader header{};
    header.TailleOTPChiffrement = first_bytes;
    header.TailleOTPassword = second_bytes;
    const auto iv_bytes = static_cast<std::size_t>(key_utils_->GetTailleIV(first_bytes, second_bytes));
    Secret file = Room(sizeof header + iv_bytes + first_bytes + second_bytes);
    Draw(file.data() + sizeof header, file.size() - sizeof header);
    SetCheckDigest(&header, file.data() + sizeof header, iv_bytes, phrase);
    WriteHeader(header, file);
    return file;
  }

 private:
  void WriteHeader(TypV2KeyHeader header, Secret& file) {
    utils_->SwapHeader(&header);
    std::memcpy(file.data(), &header, sizeof header);
  }

  void SetCheckDigest(TypV2KeyHeader* header, const unsigned char* ivs, std::size_t iv_bytes,
                      const Secret& phrase) {
    constexpr std::size_t kDigestedHeader = 112, kMostDigestedIvs = 16384, kHexBytes = 65;
    const std::size_t count = std::min(iv_bytes, kMostDigestedIvs);
    Secret hex = Room(kHexBytes), key = Room(kHexBytes), clear = Room(count);
    OrThrow(utils_->BuildHexPassword(phrase.data(), hex.data()));
    unsigned long long key_bytes = 0;
    utils_->DeHexadecimalise(hex.text(), key.data(), &key_bytes);
    aes_context aes;
    std::array<unsigned char, kAesBlockBytes> chain{};
    OrThrow(aes_setkey_dec(&aes, key.data(), kAes256KeyBits));
    OrThrow(aes_crypt_cbc(&aes, AES_DECRYPT, count, chain.data(), ivs, clear.data()));
    const TypV2KeyHeader digested = ForCheckDigest(*header);
    sha4_context digest;
    std::array<unsigned char, kSha512Bytes> sha512{};
    sha4_starts(&digest, 0);
    sha4_update(&digest, reinterpret_cast<const unsigned char*>(&digested), kDigestedHeader);
    sha4_update(&digest, clear.data(), count);
    sha4_finish(&digest, sha512.data());
    sha1(sha512.data(), sha512.size(), header->CheckDigest);
  }

  TypV2InstanceCreatorUnix creator_;
  Owned<TypV2Utils> utils_;
  Owned<TypKeyUtils> key_utils_;
};

}  // namespace

TrialKeys MakeTrialKeys(const std::string& name, const Secret& phrase, std::size_t pad_bytes) {
  constexpr std::size_t kMostPemBytes = 8192;
  const int year = ThisYear();
  const std::string stem = name + ".z." + std::to_string(year - kFirstYear);
  const std::string pad_year = "." + std::to_string(year - kFirstPadYear);
  TrialKeys keys;
  keys.signing_file = stem + ".key";
  keys.certificate_file = stem + ".pem";
  keys.personal_file = name + pad_year;
  keys.master_file = "Master" + pad_year;

  rsa_context rsa;
  OrThrow(rsa_gen_key(&rsa, kModulusBits));
  keys.signing_key = Room(kMostPemBytes);
  std::size_t length = keys.signing_key.size();
  Secret in_keys = CopyOf(phrase);
  AsInKeys(in_keys);
  OrThrow(rsa_write_key(&rsa, in_keys.text(), keys.signing_key.text(), &length));
  keys.certificate = CertificateOf(rsa, name);
  PadFiles pads;
  keys.personal_key = pads.Personal(pad_bytes, TrialKeys::kSecondPadBytes, phrase);
  keys.master_key = pads.Master(pad_bytes);
  return keys;
}

}  // namespace kestrune::cli
