#include "crypto/pem.h"

#include <algorithm>
#include <optional>

#include "crypto/classic.h"

namespace kestrune::crypto {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ", kEnd = "-----END ", kDashes = "-----";
constexpr std::string_view kProtected = "Proc-Type: 4,ENCRYPTED", kCipher = "DEK-Info: ";

struct NamedCipher {
  std::string_view name;
  Cipher cipher;
};
constexpr NamedCipher kCiphers[] = {{"DES-EDE3-CBC,", Cipher::kTripleDes},
                                    {"DES-CBC,", Cipher::kDes},
                                    {"AES-128-CBC,", Cipher::kAes128},
                                    {"AES-192-CBC,", Cipher::kAes192},
                                    {"AES-256-CBC,", Cipher::kAes256}};

bool Skip(std::string_view* text, std::string_view what) {
  if (!text->starts_with(what)) return false;
  text->remove_prefix(what.size());
  return true;
}

bool SkipLineEnd(std::string_view* text) {
  Skip(text, "\r");
  return Skip(text, "\n");
}

// Where "-----BEGIN label-----" or the like stands.
std::size_t Find(std::string_view text, std::string_view begin, std::string_view label) {
  std::size_t at = text.find(begin);
  while (at != std::string_view::npos) {
    std::string_view rest = text.substr(at + begin.size());
    if (Skip(&rest, label) && rest.starts_with(kDashes)) return at;
    at = text.find(begin, at + 1);
  }
  return at;
}

std::optional<unsigned char> Digit(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<unsigned char>(digit - '0');
  if (digit >= 'A' && digit <= 'F') return static_cast<unsigned char>(digit - 'A' + 10);
  if (digit >= 'a' && digit <= 'f') return static_cast<unsigned char>(digit - 'a' + 10);
  return std::nullopt;
}

bool TakeIv(std::string_view* text, std::size_t bytes, unsigned char* iv) {
  if (text->size() < 2 * bytes) return false;
  for (std::size_t i = 0; i < bytes; ++i) {
    const auto high = Digit((*text)[2 * i]), low = Digit((*text)[2 * i + 1]);
    if (!high || !low) return false;
    iv[i] = static_cast<unsigned char>(*high << 4 | *low);
  }
  text->remove_prefix(2 * bytes);
  return true;
}

// The two header lines of a protected part.
bool TakeProtection(std::string_view* body, Cipher* cipher, unsigned char* iv) {
  if (!SkipLineEnd(body) || !Skip(body, kCipher)) return false;
  for (const NamedCipher& known : kCiphers) {
    if (!Skip(body, known.name)) continue;
    *cipher = known.cipher;
    return TakeIv(body, BlockBytes(known.cipher), iv) && SkipLineEnd(body);
  }
  return false;
}

PemRead Decode(std::string_view body, SecretCBuffer* der) {
  const auto* const characters = reinterpret_cast<const unsigned char*>(body.data());
  SecretCBuffer decoded;
  std::size_t size = body.size() / 4 * 3 + 3;
  if (!decoded.Allocate(size)) return PemRead::kNoMemory;
  if (base64_decode(decoded.data(), &size, characters, body.size()) != 0) return PemRead::kFaulty;
  if (!der->Allocate(size)) return PemRead::kNoMemory;
  std::copy_n(decoded.data(), size, der->data());
  return PemRead::kDone;
}

}  // namespace

PemRead PemPart::Read(std::string_view text, std::string_view label, const PassPhrase& phrase) {
  const std::size_t begin = Find(text, kBegin, label), finish = Find(text, kEnd, label);
  if (begin == std::string_view::npos || finish == std::string_view::npos || finish <= begin) {
    return PemRead::kAbsent;
  }
  std::string_view body = text.substr(begin + kBegin.size() + label.size() + kDashes.size());
  Skip(&body, " ");
  if (!SkipLineEnd(&body)) return PemRead::kAbsent;
  std::string_view rest = text.substr(finish + kEnd.size() + label.size() + kDashes.size());
  Skip(&rest, " ");
  SkipLineEnd(&rest);
  end = text.size() - rest.size();
  const auto body_begin = static_cast<std::size_t>(body.data() - text.data());
  if (body_begin >= finish) return PemRead::kFaulty;
  body = body.substr(0, finish - body_begin);

  Cipher cipher{};
  SecretArray<kMostBlockBytes> iv;
  was_protected = Skip(&body, kProtected);
  if (was_protected && !TakeProtection(&body, &cipher, iv.data())) return PemRead::kFaulty;
  if (body.empty()) return PemRead::kFaulty;
  if (const PemRead decoded = Decode(body, &der); decoded != PemRead::kDone || !was_protected) return decoded;
  if (phrase.text == nullptr) return PemRead::kPassPhrase;
  if (der.size() % BlockBytes(cipher) != 0) return PemRead::kFaulty;
  return OpenTraditional(cipher, iv.data(), phrase, der.span()) ? PemRead::kDone : PemRead::kNoMemory;
}

}  // namespace kestrune::crypto
