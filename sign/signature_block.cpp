#include "sign/signature_block.h"

#include <array>
#include <cstring>

#include "crypto/classic.h"

namespace kestrune {
namespace {

// Kept so: the verifier could take longer ones, but signatures of more than 3069 bytes are refused.
constexpr std::size_t kBase64Bytes = 4096;
constexpr std::size_t kKeySuffixCharacters = 4;  // ".key"
constexpr std::size_t kLineCharacters = 60;
constexpr std::string_view kOpenSignature = "<S>";

char* Append(char* end, std::string_view piece) {
  std::memcpy(end, piece.data(), piece.size());
  return end + piece.size();
}

}  // namespace

Result WriteSignatureBlock(std::string_view key_file_name, const unsigned char* signature, std::size_t length,
                           char* out) {
  std::array<unsigned char, kBase64Bytes> base64;
  std::size_t characters = base64.size();
  if (base64_encode(base64.data(), &characters, signature, length) != 0) return signer::kBase64;
  std::string_view text(reinterpret_cast<const char*>(base64.data()), characters);
  // A name too short to have a suffix is written whole.
  if (key_file_name.size() > kKeySuffixCharacters) key_file_name.remove_suffix(kKeySuffixCharacters);

  out = Append(Append(Append(out, "<SIGN><N>"), key_file_name), "</N>\n");
  out = Append(out, kOpenSignature);
  // The tag counts as part of the first line.
  for (std::size_t line = kLineCharacters - kOpenSignature.size(); text.size() >= line;
       line = kLineCharacters) {
    out = Append(Append(out, text.substr(0, line)), "\n");
    text.remove_prefix(line);
  }
  out = Append(Append(out, text), "</S></SIGN>");
  *out = 0;
  return kOk;
}

}  // namespace kestrune
