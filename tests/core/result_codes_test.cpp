// The table of result codes: what it answers, and that it and the headers say the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>

namespace kestrune::testing {
namespace {

const std::string kRoot = KESTRUNE_TEST_DATA "/../../";

using Codes = std::set<long>;
using CodesOf = std::map<std::string, Codes>;

// The first group of each match.
std::vector<std::string> Matches(const std::string& text, const char* pattern) {
  const std::regex regex(pattern);
  return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1), std::sregex_token_iterator()};
}

std::string Read(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// The codes that a comment tells; -96 is everybody's.
Codes NumbersIn(const std::string& comment) {
  Codes codes;
  for (const auto& digits : Matches(comment, "[ (/]-([0-9]+)(?=[ :,.;)\n])"))
    codes.insert(-std::stol(digits));
  codes.erase(-96);
  return codes;
}

// What kestrune.h tells of each function, and of the members of its structures that hold a code: in its own comment, and through those of others that it names.
struct Header {
  CodesOf own, inherited;
  Codes common;       // to all message functions
  std::string owner;  // the structure whose members come

  Header() {
    const std::string text = Read(kRoot + "include/kestrune/kestrune.h");
    for (std::size_t at = text.find("/*"); at != text.npos; at = text.find("/*", at + 1)) {
      const std::size_t end = text.find("*/", at);
      const std::string comment = std::regex_replace(text.substr(at, end - at), std::regex("\n \\*"), "");
      if (comment.find("Common to") != comment.npos) common = NumbersIn(comment);
      const std::string declarations = text.substr(end, text.find("/*", end) - end);
      for (const auto& structure : Matches(declarations, R"(\ntypedef struct (\w+) \{)")) owner = structure;
      for (const auto& function : Matches(declarations, R"(\nKESTRUNE_API [^;(]*?(\w+)\()")) {
        own[function] = NumbersIn(comment + ' ');
        for (const auto& other : Matches(comment, "(?:[Cc]odes(?: of|,[^.:;]* as)|those of) +(\\w+)")) {
          inherited[function].insert(own[other].begin(), own[other].end());
        }
      }
      for (const auto& member : Matches(declarations, R"(\n  long (\w+);)")) {
        own[owner + "::" + member] = NumbersIn(comment + ' ');
      }
    }
  }
};

// What the headers tell of the classes that they declare.
CodesOf CodesOfClasses() {
  CodesOf codes;
  for (const char* floor : {"core", "sign", "keys", "blocks", "envelope"}) {
    for (const auto& file : std::filesystem::directory_iterator(kRoot + floor)) {
      if (file.path().extension() != ".h") continue;
      const std::string text = Read(file.path());
      Codes told;
      for (const auto& comment : Matches(text, "(//.*)")) told.merge(NumbersIn(comment + ' '));
      for (const auto& name : Matches(text, "class KESTRUNE_API (\\w+) : public kestrune::LibraryObject"))
        codes[name] = told;
    }
  }
  codes["TypV2Utils"].erase(-1);  // no position
  return codes;
}

// Who returns what, by the table.
CodesOf CodesOfTable() {
  static const struct {
    long code;
    const char* from;
  } kRows[] = {
#define KESTRUNE_CODE(subsystem, name, number, from, ...) {number, from},
#define KESTRUNE_CODE_FROM(from, ...) {0, from},
#define KESTRUNE_CODE_OF_ALL(name, number, ...) {number, ""},
#define KESTRUNE_CODE_OF_CRYPTO(name, number, from, ...) {number, from},
#include "core/result_codes.inc"
  };
  CodesOf table;
  long code = 0;
  for (const auto& row : kRows) {
    if (row.code != 0) code = row.code;
    std::istringstream words(row.from);
    for (std::string word; words >> word;) {
      EXPECT_TRUE(table[word].insert(code).second) << word << " has two meanings for " << code;
    }
  }
  return table;
}

bool HasMeaning(const std::string& entry_point, long code) {
  return kestrune_code_find(entry_point.c_str(), code, nullptr) != nullptr;
}

// A null argument, or a file that could not be closed, is the other function's own affair.
bool IsOfOneFunction(long code) {
  return (code <= -59 && code >= -62) || code == -1;
}

TEST(ResultCodes, TheTableHasWhatTheHeadersTell) {
  const Header header;
  for (const auto& [function, codes] : header.own) {
    for (const long code : codes) EXPECT_TRUE(HasMeaning(function, code)) << function << ' ' << code;
  }
  for (const auto& [function, codes] : header.inherited) {
    for (const long code : codes) {
      EXPECT_TRUE(IsOfOneFunction(code) || HasMeaning(function, code)) << function << ' ' << code;
    }
  }
  const CodesOf table = CodesOfTable();
  for (const auto& [name, codes] : CodesOfClasses()) {
    for (const long code : codes) {
      const bool is_told = std::any_of(table.begin(), table.end(), [&, &wanted = name](const auto& row) {
        return row.first.substr(0, row.first.find(':')) == wanted && row.second.count(code) != 0;
      });
      EXPECT_TRUE(is_told) << name << ' ' << code;
    }
  }
}

TEST(ResultCodes, TheHeadersTellWhatTheTableHas) {
  Header header;
  CodesOf classes = CodesOfClasses();
  for (const auto& [name, codes] : CodesOfTable()) {
    const std::string owner = name.substr(0, name.find(':'));
    if (name == "kestrunesign") continue;
    Codes told = classes.count(owner) != 0 ? classes[owner] : header.common;
    told.merge(header.own[name]);
    told.merge(header.inherited[name]);
    told.insert(-96);
    for (const long code : codes) EXPECT_EQ(told.count(code), 1) << name << ' ' << code;
  }
}

TEST(ResultCodes, WhatIsAnswered) {
  const struct {
    const char* entry_point;
    long code;
    const char* language;
    const char* name;  // null: none
    const char* cause;
  } kCases[] = {
      {"Api2AesFile", -88, nullptr, "hybrid::kNoPassword", "The password is missing."},
      {"Api2AesFile", -88, "fr_FR.UTF-8", "hybrid::kNoPassword", "Le mot de passe manque."},
      {"Api2AesFile", -88, "fry", "hybrid::kNoPassword", "The password is missing."},
      {"TypV2FileRef::OpenDF", -1, "de", "file::kUnknownMode", "An open mode other than 0, 1 and 2."},
      {"TypV2FileRef::Exists", -43, "", "file::kMissing",
       "There is no such regular file, or it cannot be read."},
      {"BuildHexPassword", -96, "", "kNoObject", "An object could not be made, or there is no memory."},
      {"Api2DeAesPriv", -61, "fr", "argument::kEmptyInput",
       "Le nom du certificat dans la forme, N, compte moins de 4 caractères."},
      {nullptr, -201, "fr", "utils::kEmptyAttachment", "La pièce jointe est vide."},
      {"BuildHexPassword", -88, "", nullptr, nullptr},
      {"Api2Ae", -88, "", nullptr, nullptr},
      {"", -88, "", nullptr, nullptr},
      {nullptr, -4711, "", nullptr, nullptr},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.entry_point == nullptr ? "any" : c.entry_point) + ' ' +
                 std::to_string(c.code));
    const kestrune_code_meaning* meaning = kestrune_code_find(c.entry_point, c.code, c.language);
    const std::string text = kestrune_code_text(c.entry_point, c.code, c.language);
    ASSERT_EQ(meaning == nullptr, c.name == nullptr);
    if (meaning == nullptr) {
      EXPECT_EQ(text, "Unknown code.");
      continue;
    }
    EXPECT_EQ(meaning->code, c.code);
    EXPECT_STREQ(meaning->name, c.name);
    EXPECT_STREQ(meaning->cause, c.cause);
    EXPECT_EQ(text, std::string(c.cause) + ' ' + meaning->remedy);
  }
  std::string names;
  for (unsigned long n = 0; const auto* meaning = kestrune_code_list(-88, n, "fr"); ++n) {
    names += std::string(meaning->subsystem) + '/' + meaning->name + ' ';
  }
  EXPECT_EQ(
      names,
      "Signature/signer::kPassword Chiffre des messages/cipher::kPassword Textes courts/hybrid::kNoPassword "
      "Enveloppe/envelope::kPassword Fonctions de messagerie/message::kPasswordTooLong ");
}

}  // namespace
}  // namespace kestrune::testing
