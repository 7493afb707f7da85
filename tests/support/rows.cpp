#include "tests/support/rows.h"

#include <fstream>
#include <string_view>

#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

char Unescaped(std::string_view* rest) {
  const char letter = rest->at(0);
  rest->remove_prefix(1);
  if (letter == 'n') return '\n';
  if (letter == 'r') return '\r';
  if (letter != 'x') return letter;
  const int value = std::stoi(std::string(rest->substr(0, 2)), nullptr, 16);
  rest->remove_prefix(2);
  return static_cast<char>(value);
}

// The text up to one of these ends, which is taken, too.
std::string TakeText(std::string_view* rest, std::string_view ends) {
  std::string text;
  while (!rest->empty()) {
    const char letter = rest->front();
    rest->remove_prefix(1);
    if (ends.find(letter) != std::string_view::npos) return text;
    if (letter == '{') {
      const int times = std::stoi(TakeText(rest, "*"));
      const std::string piece = TakeText(rest, "}");
      for (int i = 0; i < times; ++i) text += piece;
    } else {
      text += letter == '\\' ? Unescaped(rest) : letter;
    }
  }
  if (ends.front() != ' ') throw std::runtime_error("a row without its " + std::string(ends));
  return text;
}

std::vector<std::string> WordsOf(std::string_view line) {
  std::vector<std::string> words;
  while (!line.empty()) {
    if (line.front() == ' ') {
      line.remove_prefix(1);
    } else if (line.front() == '"') {
      line.remove_prefix(1);
      words.push_back(TakeText(&line, "\""));
    } else {
      words.push_back(TakeText(&line, " "));
    }
  }
  return words;
}

}  // namespace

std::vector<std::vector<std::string>> ReadRows(const std::string& file, const std::string& table) {
  std::ifstream lines(DataPath("rows/" + file));
  std::vector<std::vector<std::string>> rows;
  bool is_inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('[')) {
      is_inside = line == "[" + table + "]";
    } else if (is_inside && !line.empty() && !line.starts_with('#')) {
      rows.push_back(WordsOf(line));
    }
  }
  if (rows.empty()) throw std::runtime_error("no rows of " + table + " in " + file);
  return rows;
}

}  // namespace kestrune::testing
