// The program's words: English in the sources, other languages in po/.
#ifndef KESTRUNE_CLI_TEXT_H
#define KESTRUNE_CLI_TEXT_H

#include <libintl.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace kestrune::cli {

// Takes the user's language from the locale: English where the machine does not have that locale.
void ChooseLanguage();

// "en", "fr": what the texts of this run are in, as kestrune_code_find() wants it.
const char* Language();

// The text in the user's language.
inline const char* _(const char* text) {
  return dgettext("kestrune", text);
}
inline const char* _(const char* one, const char* many, unsigned long count) {
  return dngettext("kestrune", one, many, count);
}

// The pattern with {1}, {2} ... replaced; what is put in is not searched again.
std::string Fill(std::string_view pattern, std::initializer_list<std::string_view> values);

// A text of somebody else's as one that a terminal only shows: controls and broken UTF-8 become \xNN. With `lines`
// line feeds and tabulators stay.
std::string Printable(std::string_view text, bool lines = false);

// The same piece by piece, for a text that must not be left in memory: takes one character, or a byte that is none, off a
// text that is not empty and gives the number of bytes that are shown for it.
inline constexpr std::size_t kPrintableBytes = 4;  // at most
std::size_t TakePrintable(std::string_view* text, bool lines, char* out);

// Whether a text, with its line feeds and tabulators, is shown as it is.
bool IsPrintable(std::string_view text);

}  // namespace kestrune::cli

#endif
