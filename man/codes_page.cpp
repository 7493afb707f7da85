// Prints the page kestrune-codes(7) from the table of codes: codes_page en|fr. The build's target codes_pages writes
// man/en/kestrune-codes.7 and man/fr/kestrune-codes.7 anew; a test tells when they are not what this prints.
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

namespace {

// The words of the page that are not the table's.
struct Language {
  const char* head;
  const char* crypto;
  const char* see_also;
};

constexpr Language kEnglish = {
    R"(.Dd November 22, 2026
.Dt KESTRUNE-CODES 7
.Os
.Sh NAME
.Nm kestrune-codes
.Nd result codes of the kestrune library
.Sh DESCRIPTION
Every operation of the library returns 0 or one of these negative codes;
.Xr kestrunesign 1
ends with their low 8 bits.
Numbers repeat between subsystems, names do not.
Behind each code stand its name in
.In kestrune/core/result.h ,
its cause and the remedy, and in parentheses the functions of
.In kestrune/kestrune.h
that return it with just this meaning.
Where it has a narrower or another one, that follows behind their names.
.Fn kestrune_code_text
tells a program the same.
)",
    R"(Other codes of
.In kestrune/crypto/classic.h
do not leave the library.
)",
    R"(.Sh SEE ALSO
.Xr kestrunesign 1 ,
.Xr kestrune 3 ,
.Xr kestrune 5
)"};

constexpr Language kFrench = {
    R"(.Dd 22 novembre 2026
.Dt KESTRUNE-CODES 7
.Os
.Sh NOM
.Nm kestrune-codes
.Nd codes de résultat de la bibliothèque kestrune
.Sh DESCRIPTION
Toute opération de la bibliothèque rend 0 ou un de ces codes négatifs ;
.Xr kestrunesign 1
se termine avec leurs 8 bits de poids faible.
Les nombres se répètent d'un sous-système à l'autre, les noms jamais.
Chaque code est suivi de son nom dans
.In kestrune/core/result.h ,
de sa cause et du remède, et, entre parenthèses, des fonctions de
.In kestrune/kestrune.h
qui le rendent exactement dans ce sens.
Un sens plus étroit, ou autre, suit derrière le nom des fonctions concernées.
.Fn kestrune_code_text
dit la même chose à un programme.
)",
    R"(Les autres codes de
.In kestrune/crypto/classic.h
ne sortent pas de la bibliothèque.
)",
    R"(.Sh VOIR AUSSI
.Xr kestrunesign 1 ,
.Xr kestrune 3 ,
.Xr kestrune 5
)"};

class Page {
 public:
  explicit Page(bool is_french) : is_french_(is_french), language_(is_french ? kFrench : kEnglish) {
    Print(language_.head);
  }

  void Section(const char* title, const char* title_fr) {
    EndList();
    Print(std::string(".Ss ") + (is_french_ ? title_fr : title) + '\n');
  }

  void OnCryptography() const { Print(language_.crypto); }

  void Code(const char* name, long number, const char* from, const char* cause, const char* remedy,
            const char* cause_fr, const char* remedy_fr) {
    if (!in_list_) Print(".Bl -tag -width Ds\n");
    in_list_ = true;
    Print(".It Sy " + std::string(number < 0 ? "\\" : "") + std::to_string(number) + " Pq " + name + '\n');
    PrintSentences(is_french_ ? cause_fr : cause);
    PrintSentences(is_french_ ? remedy_fr : remedy);
    if (const std::string names = Names(from, "\n"); !names.empty()) Print(".Po\n" + names + ".Pc\n");
  }

  void From(const char* from, const char* cause, const char* remedy, const char* cause_fr,
            const char* remedy_fr) const {
    const std::string names = Names(from, is_french_ ? "\n: " : " :\n");
    if (names.empty()) return;
    Print(".Pp\n" + std::string(is_french_ ? "De\n" : "From\n") + names);
    PrintSentences(is_french_ ? cause_fr : cause);
    PrintSentences(is_french_ ? remedy_fr : remedy);
  }

  void End() {
    EndList();
    Print(language_.see_also);
  }

 private:
  static void Print(const std::string& text) { std::fputs(text.c_str(), stdout); }

  // A line each.
  static void PrintSentences(std::string text) {
    for (std::size_t at = text.find(". "); at != text.npos; at = text.find(". ", at)) text[at + 1] = '\n';
    Print(text + '\n');
  }

  // A macro for each name, `end` behind the last. Classes are left out: they are not of the C interface.
  static std::string Names(const char* from, const char* end) {
    std::istringstream words(from);
    std::string names;
    for (std::string word; words >> word;) {
      if (word.compare(0, 3, "Typ") == 0) continue;
      if (!names.empty()) names += " ,\n";
      if (word == "kestrunesign") {
        names += ".Xr " + word + " 1";
      } else {
        names += (word.find("::") == word.npos ? ".Fn " : ".Va ") + word;
      }
    }
    return names.empty() ? names : names + end;
  }

  void EndList() {
    if (in_list_) Print(".El\n");
    in_list_ = false;
  }

  const bool is_french_;
  const Language& language_;
  bool in_list_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  Page page(argc == 2 && std::strcmp(argv[1], "fr") == 0);
#define KESTRUNE_CODE_SUBSYSTEM(title, title_fr) page.Section(title, title_fr);
#define KESTRUNE_CODE(subsystem, name, number, ...) page.Code(#subsystem "::" #name, number, __VA_ARGS__);
#define KESTRUNE_CODE_FROM(...) page.From(__VA_ARGS__);
#define KESTRUNE_CODE_OF_ALL(name, number, ...) page.Code(#name, number, "", __VA_ARGS__);
#define KESTRUNE_CODE_OF_CRYPTO(name, number, ...) \
  page.OnCryptography();                           \
  page.Code(#name, number, __VA_ARGS__);
#include "core/result_codes.inc"
  page.End();
  return 0;
}
