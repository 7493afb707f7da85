// Quoted-printable (RFC 2045, 6.7), with the system's own habits.
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "mail/text_rewriting.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kMostLineCharacters = 76;
constexpr std::string_view kSoftBreak = "=\r\n";

enum class Kind : unsigned char { kEncoded, kLiteral, kBlank, kCarriageReturn };

constexpr std::array<Kind, 256> MakeKinds() {
  std::array<Kind, 256> kinds{};
  for (std::size_t byte = '!'; byte <= '~'; ++byte) kinds[byte] = Kind::kLiteral;
  kinds['='] = Kind::kEncoded;
  kinds[' '] = kinds['\t'] = Kind::kBlank;
  kinds['\r'] = Kind::kCarriageReturn;
  return kinds;
}

constexpr std::array<Kind, 256> kKinds = MakeKinds();

// What the encoding is made of, only measured.
class Measure {
 public:
  void Byte(char) { ++size_; }
  void Code(char) { size_ += kQuotedCodeCharacters; }
  void Text(std::string_view text) { size_ += text.size(); }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_ = 0;
};

// What the encoding is made of, written.
class Writer {
 public:
  explicit Writer(char* to) : to_(to) {}
  void Byte(char byte) { *to_++ = byte; }
  void Code(char byte) {
    WriteQuotedCode(static_cast<unsigned char>(byte), to_);
    to_ += kQuotedCodeCharacters;
  }
  void Text(std::string_view text) {
    std::memcpy(to_, text.data(), text.size());
    to_ += text.size();
  }

 private:
  char* to_;
};

bool IsLineEnd(std::string_view text, std::size_t at) {
  return at + 1 < text.size() && text[at] == '\r' && text[at + 1] == '\n';
}

template <class Sink>
Sink Encode(std::string_view text, Sink sink) {
  std::size_t line = 0;
  const auto soft_break = [&] {
    sink.Text(kSoftBreak);
    line = 0;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i];
    switch (kKinds[static_cast<unsigned char>(byte)]) {
      case Kind::kLiteral:
        sink.Byte(byte);
        // Kept so: the test follows the copy, so a line of literals carries 77 characters.
        if (++line > kMostLineCharacters) soft_break();
        continue;
      case Kind::kBlank:
        if (IsLineEnd(text, i + 1)) break;
        // Kept so: blanks break no line, and one at the end of the text is not encoded.
        sink.Byte(byte);
        ++line;
        continue;
      case Kind::kCarriageReturn:
        if (!IsLineEnd(text, i)) break;
        sink.Text(kLineEnd);
        line = 0;
        ++i;
        continue;
      case Kind::kEncoded:
        break;
    }
    if (line + kQuotedCodeCharacters > kMostLineCharacters) soft_break();
    sink.Code(byte);
    line += kQuotedCodeCharacters;
  }
  return sink;
}

}  // namespace

std::size_t QuotedPrintableLength(std::string_view text) {
  return Encode(text, Measure()).size();
}

void WriteQuotedPrintable(std::string_view text, char* to) {
  Encode(text, Writer(to));
}

}  // namespace kestrune::mail
