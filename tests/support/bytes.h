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
Bytes FromHex(
    std::string_view hex);  // white space and what follows a '#' up to the end of its line is skipped
std::string ToHex(const unsigned char* bytes, std::size_t count);
std::string ToHex(std::string_view bytes);
std::string ToBase64(std::string_view bytes);  // on one line
std::string Sha512(std::string_view bytes);
std::string Replaced(std::string text, std::string_view from, std::string_view to);  // everywhere

Bytes ReadFile(const std::string& path);  // fails the test when it cannot
void WriteFile(const std::string& path, const Bytes& content);
void WriteFile(const std::string& path, std::string_view content);
bool FileExists(const std::string& path);

// The path of a file of tests/data.
std::string DataPath(const std::string& name);

}  // namespace kestrune::testing

#endif
