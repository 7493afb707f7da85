// Tables of texts, read from tests/data/rows.
#ifndef KESTRUNE_TESTS_SUPPORT_ROWS_H
#define KESTRUNE_TESTS_SUPPORT_ROWS_H

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestrune::testing {

// The rows of one [table] of a file. A row is a line of words, of which those with blanks or without anything
// stand in quotes. \n, \r, \\, \" and \xHH (two digits) mean what they do in C, and {9*ab} is nine times "ab". A
// line that begins with '#' is a comment. An exception for a file or table that is not there or malformed.
std::vector<std::vector<std::string>> ReadRows(const std::string& file, const std::string& table);

// The same, where each row has so many words.
template <std::size_t kWords>
std::vector<std::array<std::string, kWords>> Rows(const std::string& file, const std::string& table) {
  std::vector<std::array<std::string, kWords>> rows;
  for (const auto& words : ReadRows(file, table)) {
    if (words.size() != kWords) throw std::runtime_error("another number of words: " + words[0]);
    std::copy_n(words.begin(), kWords, rows.emplace_back().begin());
  }
  return rows;
}

// A number of a row; negative ones count down from 2^64 where the wanted type is unsigned.
template <class Integer = int>
Integer Number(const std::string& word) {
  return static_cast<Integer>(std::stoll(word, nullptr, 0));
}

}  // namespace kestrune::testing

#endif
