// Bytes, and files of them.
#ifndef KESTRUNE_TESTS_SUPPORT_BYTES_H
#define KESTRUNE_TESTS_SUPPORT_BYTES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune::examples {}  // namespace kestrune::examples

namespace kestrune::testing {

using namespace examples;
using Bytes = std::vector<unsigned char>;

Bytes ToBytes(std::string_view text);
std::string ToText(const Bytes& bytes);
Bytes FromHex(std::string_view hex);  // skips what is no digit, and what a line has behind a '#'
std::string ToHex(const unsigned char* bytes, std::size_t count);
std::string ToHex(std::string_view bytes);
std::string ToBase64(std::string_view bytes);  // on one line
Bytes FromBase64(std::string text);
std::string Sha512(std::string_view bytes);

// A record of a flat tree as another program would write it; `body` is its data fork or its sub-blocks.
std::string Record(std::string_view name, char flag = 0, std::string_view xml = "",
                   std::string_view body = "");
std::string Sealed(const std::string& records);  // with a trailer that another library made

std::string ValueOf(const std::string& xml, const std::string& tag);  // the first one's; empty without one
std::string Replaced(std::string text, std::string_view from, std::string_view to);  // everywhere

Bytes ReadFile(const std::string& path);  // fails the test when it cannot
void WriteFile(const std::string& path, const Bytes& content);
void WriteFile(const std::string& path, std::string_view content);
bool FileExists(const std::string& path);

// The path of a file of tests/data, the text of a page of docs/, and its examples in hexadecimal, from 0 on.
std::string DataPath(const std::string& name);
std::string Page(const std::string& name);
Bytes HexExample(const std::string& page, int which = 0);

}  // namespace kestrune::testing

#endif
