#include "tests/support/bytes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <cctype>
#include <cstdlib>
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
  std::string digits;
  for (std::size_t i = 0; i < hex.size(); ++i) {
    if (hex[i] == '#') {
      while (i < hex.size() && hex[i] != '\n') ++i;
    } else if (std::isspace(static_cast<unsigned char>(hex[i])) == 0) {
      digits.push_back(hex[i]);
    }
  }
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
  }
  return bytes;
}

std::string ToHex(const unsigned char* bytes, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (std::size_t i = 0; i < count; ++i) {
    hex.push_back(kDigits[bytes[i] >> 4]);
    hex.push_back(kDigits[bytes[i] & 15]);
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

std::string Sha512(std::string_view bytes) {
  std::string digest(SHA512_DIGEST_LENGTH, '\0');
  SHA512(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
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

}  // namespace kestrune::testing
