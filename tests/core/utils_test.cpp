#include "core/utils.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/key_header.h"
#include "core/string_helpers.h"
#include "kestrune_settings.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"

namespace kestrune::testing {
namespace {

using Count = unsigned long long;
constexpr char kRows[] = "core.txt";

const unsigned char* BytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

TEST(Utils, ReadsLightXml) {
  for (const auto& [xml, tag, n, start, most, code, value] : Rows<7>(kRows, "light xml")) {
    char out[32] = "?";
    EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(xml.c_str(), tag.c_str(), Number<Count>(n), out,
                                                         Number<Count>(start), Number<Count>(most)),
              Number(code));
    EXPECT_EQ(out, value) << xml.substr(0, 50) << " n=" << n;
  }
}

TEST(Utils, FindsWithoutCase) {
  for (const auto& [text, start, sub, position] : Rows<4>(kRows, "without case")) {
    EXPECT_EQ(
        TypV2Utils().possubstringsimplenocase(BytesOf(text), text.size(), Number<Count>(start), sub.c_str()),
        Number(position))
        << text << " / " << sub;
  }
}

TEST(Utils, CutsLists) {
  char* elements[9] = {};
  for (const auto& row : ReadRows(kRows, "lists")) {
    auto count = Number<long long>(row[1]);
    EXPECT_EQ(TypV2Utils().GetElementsFromList(row[0].c_str(), ',', elements, &count), Number(row[2]));
    EXPECT_EQ(std::vector<std::string>(elements, elements + count),
              std::vector<std::string>(row.begin() + 3, row.end()))
        << row[0];
    EXPECT_EQ(TypV2Utils().FreeElementsListContent(elements, 9), 0);
  }
}

TEST(Utils, ConcatenatesWithinTheCapacity) {
  for (const auto& [count, before, capacity, code, text, behind] : Rows<6>(kRows, "concatenation")) {
    char buffer[11] = "0123456789";
    auto position = Number<long long>(before);
    EXPECT_EQ(TypV2Utils().Concatenate(buffer, "abcde", Number<long long>(count), &position,
                                       Number<long long>(capacity)),
              Number(code));
    EXPECT_EQ(buffer, text);
    EXPECT_EQ(position, Number<long long>(behind));
  }
}

TEST(Utils, WritesAndReadsHexadecimal) {
  char text[9] = "????????";
  TypV2Utils().Hexadecimalise(nullptr, 0, text);
  EXPECT_STREQ(text, "??");  // kept so
  TypV2Utils().Hexadecimalise(BytesOf("\x02\x9A\xFF"), 3, text);
  EXPECT_STREQ(text, "029AFF");
  for (const auto& [digits, value] : Rows<2>(kRows, "hexadecimal")) {
    unsigned char out[8];
    Count count = 99;
    TypV2Utils().DeHexadecimalise(digits.c_str(), out, &count);
    EXPECT_EQ(ToHex(out, count), value);
  }
}

TEST(Utils, TurnsExactlyTheNumbersOfAHeader) {
  std::array<unsigned char, 512> file;
  for (std::size_t i = 0; i < file.size(); ++i) file[i] = static_cast<unsigned char>(i * 7 + i / 256);
  TypV2KeyHeader header;
  std::memcpy(&header, file.data(), sizeof header);
  if constexpr (std::endian::native == std::endian::little) {
    for (const int at : {0, 4, 8, 44}) std::reverse(file.begin() + at, file.begin() + at + 4);
    for (std::size_t at = 88; at <= 152; at += 8) std::reverse(file.data() + at, file.data() + at + 8);
  }
  TypV2Utils().SwapHeader(&header);
  EXPECT_EQ(std::memcmp(&header, file.data(), sizeof header), 0);
}

TEST(Utils, DumpsBytesForPeople) {
  std::string bytes, want;
  for (int i = 0; i < 33; ++i) bytes.push_back(static_cast<char>(i * 4 + 2));
  for (const auto& [line] : Rows<1>(kRows, "dump")) want += line + "\n";
  ::testing::internal::CaptureStdout();
  TypV2Utils().hexdump2(BytesOf(bytes), bytes.size(), 1);
  TypV2Utils().hexdump(nullptr, 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), want);
}

TEST(Utils, KnowsTheServicesDomains) {
  const std::pair<const char*, const char*> settings[] = {
      {"<1>", settings::kServiceDomain1}, {"<2>", settings::kServiceDomain2},
      {"<3>", settings::kServiceDomain3}, {"<4>", settings::kServiceDomain4},
      {"<A>", settings::kDomainSuffix1},  {"<B>", settings::kDomainSuffix2}};
  for (auto [domain, length, is_ours] : Rows<3>(kRows, "domains")) {
    for (const auto& [mark, setting] : settings) domain = Replaced(domain, mark, setting);
    domain.resize(std::max(domain.size(), Number<std::size_t>(length)), 'x');
    EXPECT_EQ(TypV2Utils().isKestruneDomain(domain.c_str()), Number(is_ours)) << domain;
  }
  EXPECT_EQ(TypV2Utils().isKestruneDomain(nullptr), 1);
}

TEST(Utils, TakesNamesAndAddressesApart) {
  for (const auto& [name, code, suffix] : Rows<3>(kRows, "suffixes")) {
    char out[4] = "?";
    EXPECT_EQ(TypV2Utils().ExtractFileSuffix(name.c_str(), out), Number(code)) << name;
    EXPECT_EQ(out, suffix);
  }
  for (const auto& [address, code, before, domain_code, behind] : Rows<5>(kRows, "addresses")) {
    char prefix[256] = "?", domain[256] = "?";
    EXPECT_EQ(TypV2Utils().extractprefixemail(address.c_str(), prefix), Number(code));
    EXPECT_EQ(TypV2Utils().extractdomainemail(address.c_str(), domain), Number(domain_code));
    EXPECT_EQ(prefix, before);
    EXPECT_EQ(domain, behind);
  }
}

TEST(Utils, TakesTheFirstAttachmentOutOfAMimeText) {
  for (const auto& [text, code, content] : Rows<3>(kRows, "first attachment")) {
    // Without a terminator, so that a read past the end is seen.
    Bytes mime = ToBytes(Replaced(text, "H", "x\nCONTENT-disposition: attachment; filename=x\n\n"));
    unsigned char* out = nullptr;
    Count length = 77;
    EXPECT_EQ(TypV2Utils().ExtractFirstPJFromMime(mime.data(), mime.size(), &out, &length), Number(code));
    EXPECT_EQ(out == nullptr ? "none" : std::string(out, out + length), content) << text;
    EXPECT_EQ(length, out == nullptr ? 0 : content.size());
    std::free(out);
  }
}

TEST(Utils, BuildsThePasswordsKey) {
  unsigned char out[65];
  for (const auto& [typed, digested] : Rows<2>(kRows, "passwords")) {
    const Bytes digest = ToBytes(Sha512(digested));
    std::string in_place = typed + std::string(65, '\0');
    auto* const both = reinterpret_cast<unsigned char*>(in_place.data());
    EXPECT_EQ(::BuildHexPassword(BytesOf(typed), out), 0);
    EXPECT_EQ(::BuildHexPassword(both, both), 0);
    EXPECT_STRCASEEQ(reinterpret_cast<char*>(out), ToHex(digest.data(), 32).c_str());
    EXPECT_STREQ(in_place.c_str(), reinterpret_cast<char*>(out));
  }
  EXPECT_EQ(::BuildHexPassword(BytesOf(""), nullptr), -61);
  EXPECT_EQ(::BuildHexPassword(BytesOf("x"), nullptr), -102);
}

TEST(StringHelpers, PushWhatLeavesTwoBytesFreeAndSplitAtTheFirstComma) {
  char buffer[9] = "xxxxxxxx";
  Count position = 1;
  for (const auto& [count, behind, text] : Rows<3>(kRows, "pushes")) {
    ApiV2Mystrpush(buffer, 8, &position, "abcdef", Number<Count>(count));
    EXPECT_EQ(position, Number<Count>(behind));
    EXPECT_EQ(std::string(buffer, 8), text);
  }
  for (const auto& [source, head, tail] : Rows<3>(kRows, "first comma")) {
    char first[8] = "old", second[8] = "old";
    splitvirgule(source.c_str(), first, second);
    EXPECT_EQ(first, head) << source;
    EXPECT_EQ(second, tail) << source;
  }
}

// A function of the C library's name in a shared library would replace it in every program that loads it.
TEST(SharedLibrary, ExportsNothingThatCollidesWithTheCLibrary) {
  std::istringstream names(RunProgram({"nm", "-D", "--defined-only", KESTRUNE_LIBRARY}).out);
  void* const c_library = ::dlopen("libc.so.6", RTLD_NOW);
  int plain = 0;
  for (std::string address, kind, name; names >> address >> kind >> name;) {
    if (name.starts_with("_Z")) continue;
    EXPECT_EQ(::dlsym(c_library, name.c_str()), nullptr) << name;
    ++plain;
  }
  EXPECT_TRUE(c_library != nullptr && plain > 0);
}

}  // namespace
}  // namespace kestrune::testing
