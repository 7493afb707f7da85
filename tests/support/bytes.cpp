#include "tests/support/bytes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kestrune::testing {

Bytes ToBytes(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

std::string ToText(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

Bytes FromHex(std::string_view hex) {
  Bytes bytes;
  int high = -1;
  for (std::size_t i = 0; i < hex.size(); ++i) {
    if (hex[i] == '#' && (i = hex.find('\n', i)) == std::string_view::npos) break;
    const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(std::tolower(hex[i])));
    if (digit == std::string_view::npos) continue;
    if (high >= 0) bytes.push_back(static_cast<unsigned char>(high * 16 + static_cast<int>(digit)));
    high = high < 0 ? static_cast<int>(digit) : -1;
  }
  return bytes;
}

std::string ToHex(const unsigned char* bytes, std::size_t count) {
  std::string hex;
  for (std::size_t i = 0; i < 2 * count; ++i) {
    hex.push_back("0123456789abcdef"[i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 15]);
  }
  return hex;
}

std::string ToHex(std::string_view bytes) {
  return ToHex(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string ToBase64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  return text;
}

Bytes FromBase64(std::string text) {
  std::erase(text, '\n');
  Bytes bytes(text.size());
  const int count = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                    static_cast<int>(text.size()));
  bytes.resize(static_cast<std::size_t>(count - std::count(text.begin(), text.end(), '=')));
  return bytes;
}

std::string Sha512(std::string_view bytes) {
  std::string digest(SHA512_DIGEST_LENGTH, '\0');
  SHA512(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

std::string Record(std::string_view name, char flag, std::string_view xml, std::string_view body) {
  std::string record = {2, flag, static_cast<char>(name.size())};
  record.append(name).resize(8);
  for (const auto length : {xml.size(), body.size()}) {
    for (int shift = 56; shift >= 0; shift -= 8) record.push_back(static_cast<char>(length >> shift));
  }
  return record.append(xml).append(body);
}

std::string Sealed(const std::string& records) {
  return records + Sha512(records);
}

std::string ValueOf(const std::string& xml, const std::string& tag) {
  const std::size_t open = xml.find("<" + tag + ">");
  if (open == std::string::npos) return "";
  const std::size_t begin = open + tag.size() + 2;
  return xml.substr(begin, xml.find("</" + tag + ">", begin) - begin);
}

std::string Replaced(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const Bytes& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  EXPECT_TRUE(file.good()) << path;
}

void WriteFile(const std::string& path, std::string_view content) {
  WriteFile(path, ToBytes(content));
}

bool FileExists(const std::string& path) {
  return std::filesystem::exists(path);
}

std::string DataPath(const std::string& name) {
  return std::string(KESTRUNE_TEST_DATA) + "/" + name;
}

std::string Page(const std::string& name) {
  return ToText(ReadFile(DataPath("../../docs/" + name)));
}

Bytes HexExample(const std::string& page, int which) {
  std::size_t at = page.find("```hex\n");
  for (; which > 0; --which) at = page.find("```hex\n", at + 7);
  return FromHex(page.substr(at + 7, page.find("```", at + 7) - at - 7));
}

}  // namespace kestrune::testing
