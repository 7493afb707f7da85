#include "cli/text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <filesystem>

namespace kestrune::cli {
namespace {

namespace fs = std::filesystem;

constexpr char kDomain[] = "kestrune";

// The catalogues lie where the program does, so that an installed tree can be moved.
fs::path CatalogueFolder() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path();
  const fs::path built = program / "locale";
  return fs::is_directory(built, error) ? built : program / "../share/locale";
}

// Bytes of the UTF-8 character at the beginning of a text; 0: none that is well formed, or a control of 0x80 to 0x9f.
std::size_t CharacterBytes(std::string_view text) {
  const auto at = [text](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const unsigned first = at(0);
  if (first < 0x80) return 1;
  const std::size_t bytes = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  unsigned long point = first & (0x7fU >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((at(i) & 0xc0U) != 0x80) return 0;
    point = point << 6 | (at(i) & 0x3fU);
  }
  constexpr unsigned long kLeast[] = {0, 0, 0xa0, 0x800, 0x10000};
  const bool is_direction = (point >= 0x202a && point <= 0x202e) || (point >= 0x2066 && point <= 0x2069);
  const bool is_surrogate = point >= 0xd800 && point <= 0xdfff;
  return point < kLeast[bytes] || point > 0x10ffff || is_surrogate || is_direction ? 0 : bytes;
}

}  // namespace

void ChooseLanguage() {
  (void)std::setlocale(LC_MESSAGES, "");
  (void)std::setlocale(LC_CTYPE, "");
  bindtextdomain(kDomain, CatalogueFolder().c_str());
}

const char* Language() {
  // TRANSLATORS: the two letters of the language that this catalogue is in.
  return _("en");
}

std::string Fill(std::string_view pattern, std::initializer_list<std::string_view> values) {
  std::string filled;
  while (!pattern.empty()) {
    const std::size_t number =
        pattern.size() < 3 ? 0 : static_cast<unsigned char>(pattern[1]) - std::size_t{'0'};
    if (pattern[0] == '{' && pattern.size() >= 3 && pattern[2] == '}' && number - 1 < values.size()) {
      filled += values.begin()[number - 1];
      pattern.remove_prefix(3);
    } else {
      filled += pattern[0];
      pattern.remove_prefix(1);
    }
  }
  return filled;
}

std::size_t TakePrintable(std::string_view* text, bool lines, char* out) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto first = static_cast<unsigned char>(text->front());
  const std::size_t bytes = CharacterBytes(*text);
  const bool is_control = first < 0x20 || first == 0x7f;
  if (bytes == 0 || (is_control && !(lines && (first == '\n' || first == '\t')))) {
    const char shown[kPrintableBytes] = {'\\', 'x', kDigits[first >> 4], kDigits[first & 15]};
    std::copy_n(shown, kPrintableBytes, out);
    text->remove_prefix(1);
    return kPrintableBytes;
  }
  text->copy(out, bytes);
  text->remove_prefix(bytes);
  return bytes;
}

std::string Printable(std::string_view text, bool lines) {
  std::string shown;
  std::array<char, kPrintableBytes> piece;
  while (!text.empty()) shown.append(piece.data(), TakePrintable(&text, lines, piece.data()));
  return shown;
}

bool IsPrintable(std::string_view text) {
  std::array<char, kPrintableBytes> piece;
  while (!text.empty()) {
    const std::size_t before = text.size();
    if (TakePrintable(&text, true, piece.data()) != before - text.size()) return false;
  }
  return true;
}

}  // namespace kestrune::cli
