// What a result code means, and from where.
#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

#include <kestrune/kestrune.h>
#include "crypto/classic.h"

namespace {

constexpr std::string_view kEverywhere = "*";

// One language: in its pieces and as one text, for what is handed out is static.
struct Meaning {
  kestrune_code_meaning pieces;
  const char* text;
};

struct Row {
  enum Kind { kSubsystem, kCode, kFrom } kind;
  std::string_view from;
  Meaning english;
  Meaning french;

  constexpr long code() const { return english.pieces.code; }
  const Meaning& in(bool is_french) const { return is_french ? french : english; }
};

#define KESTRUNE_CODE_SUBSYSTEM(title, title_fr) \
  Row{Row::kSubsystem, {}, {{0, "", title, "", ""}, ""}, {{0, "", title_fr, "", ""}, ""}},
#define KESTRUNE_CODE_ROW(kind, name, number, from, cause, remedy, cause_fr, remedy_fr) \
  Row{kind,                                                                             \
      from,                                                                             \
      {{number, name, "", cause, remedy}, cause " " remedy},                            \
      {{number, name, "", cause_fr, remedy_fr}, cause_fr " " remedy_fr}},
#define KESTRUNE_CODE(subsystem, name, number, from, ...) \
  KESTRUNE_CODE_ROW(Row::kCode, #subsystem "::" #name, number, from, __VA_ARGS__)
#define KESTRUNE_CODE_FROM(from, ...) KESTRUNE_CODE_ROW(Row::kFrom, "", 0, from, __VA_ARGS__)
#define KESTRUNE_CODE_OF_ALL(name, number, ...) \
  KESTRUNE_CODE_ROW(Row::kCode, #name, number, kEverywhere, __VA_ARGS__)
#define KESTRUNE_CODE_OF_CRYPTO(name, number, from, ...) \
  KESTRUNE_CODE_ROW(Row::kCode, #name, number, from, __VA_ARGS__)
constexpr Row kWritten[] = {
#include "core/result_codes.inc"
};

#define KESTRUNE_CODE_OF_CRYPTO(name, number, ...) static_assert(name == (number));
#include "core/result_codes.inc"

constexpr std::size_t CountMeanings() {
  std::size_t count = 0;
  for (const Row& row : kWritten) count += row.kind != Row::kSubsystem;
  return count;
}

constexpr void Complete(Meaning* meaning, const Meaning& title, const Meaning& code) {
  meaning->pieces.subsystem = title.pieces.subsystem;
  meaning->pieces.code = code.pieces.code;
  meaning->pieces.name = code.pieces.name;
}

// Each row with the title above it and, where it narrows one, the code above it.
constexpr auto kTable = [] {
  std::array<Row, CountMeanings()> table{};
  std::size_t count = 0;
  const Row* title = kWritten;
  const Row* code = kWritten;
  for (const Row& written : kWritten) {
    if (written.kind == Row::kSubsystem) {
      title = &written;
      continue;
    }
    if (written.kind == Row::kCode) code = &written;
    Row& row = table[count++];
    row = written;
    Complete(&row.english, title->english, code->english);
    Complete(&row.french, title->french, code->french);
  }
  return table;
}();

bool HasWord(std::string_view list, std::string_view word) {
  for (std::size_t at = list.find(word); at != list.npos; at = list.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    if ((at == 0 || list[at - 1] == ' ') && (end == list.size() || list[end] == ' ')) return true;
  }
  return false;
}

const Row* FindFrom(std::string_view entry_point, long code) {
  for (const Row& row : kTable) {
    if (row.code() == code && HasWord(row.from, entry_point)) return &row;
  }
  return nullptr;
}

// The n-th row in which a subsystem gives this code its meaning.
const Row* FindCode(long code, unsigned long n) {
  for (const Row& row : kTable) {
    if (row.kind == Row::kCode && row.code() == code && n-- == 0) return &row;
  }
  return nullptr;
}

const Row* Find(const char* entry_point, long code) {
  if (entry_point == nullptr) return FindCode(code, 0);
  const std::string_view name = entry_point;
  const std::string_view owner = name.substr(0, name.find("::"));
  for (const std::string_view from : {name, owner, kEverywhere}) {
    if (from.empty()) continue;
    if (const Row* row = FindFrom(from, code); row != nullptr) return row;
  }
  return nullptr;
}

// As locales are named: fr, fr_CA, fr_FR.UTF-8, fr:en; but fry is Frisian.
bool IsFrench(const char* language) {
  if (language == nullptr || std::strncmp(language, "fr", 2) != 0) return false;
  return language[2] == 0 || std::strchr("_-.@:", language[2]) != nullptr;
}

const kestrune_code_meaning* PiecesOf(const Row* row, const char* language) {
  return row == nullptr ? nullptr : &row->in(IsFrench(language)).pieces;
}

}  // namespace

const char* kestrune_code_text(const char* entry_point, long code, const char* language) {
  const bool is_french = IsFrench(language);
  if (const Row* row = Find(entry_point, code); row != nullptr) return row->in(is_french).text;
  return is_french ? "Code inconnu." : "Unknown code.";
}

const kestrune_code_meaning* kestrune_code_find(const char* entry_point, long code, const char* language) {
  return PiecesOf(Find(entry_point, code), language);
}

const kestrune_code_meaning* kestrune_code_list(long code, unsigned long n, const char* language) {
  return PiecesOf(FindCode(code, n), language);
}
