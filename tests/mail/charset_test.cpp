#include "mail/charset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <tuple>
#include <vector>

#include <kestrune/kestrune.h>
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

TEST(Charset, AgreesWithAnotherImplementation) {
  const std::set<long> left_alone = {130, 132, 149, 152, 170, 175, 180, 183, 184, 186};
  std::ifstream file(DataPath("windows_latin_mac_roman.txt"));
  int rows = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    long byte = 0, code_point = 0;
    std::string mac;
    words >> std::hex >> byte >> mac >> code_point;

    long want = mac == "-" || left_alone.contains(byte) ? byte : std::stol(mac, nullptr, 16);
    if (byte == 145 || byte == 146) want = '\'';
    if (byte == '\n') want = '\r';
    auto converted = static_cast<unsigned char>(byte);
    convertisolatinversmacroman(&converted, 1);
    EXPECT_EQ(converted, want) << byte;

    long unicode = byte;
    convertMacCharToUnicode(&unicode);
    EXPECT_EQ(unicode, code_point) << byte;
    ++rows;
  }
  EXPECT_EQ(rows, 256);
}

TEST(Charset, CopiesEndAtTheMaximum) {
  unsigned char mac[] = {'a', 0xDB, 'b', 0};
  long source[] = {'a', 0x20AC, 'b', 0};
  for (const long maximum : {9L, 2L, 0L, -1L}) {
    std::vector<long> want = {'a', 0x20AC, 'b'};
    want.resize(static_cast<std::size_t>(std::clamp(maximum, 0L, 3L)));
    want.push_back(0);
    std::vector<long> string(want.size(), 7), copy(want.size(), 7);  // a longer copy leaves the heap block
    EXPECT_EQ(convertMacStrToUnicodeLongStr(string.data(), mac, maximum), string.data());
    EXPECT_EQ(string, want);
    copyTextLong(copy.data(), source, maximum);
    EXPECT_EQ(copy, want);
  }
}

TEST(Charset, Utf8IsNarrowedToBytes) {
  for (const auto& [source, maximum, want] : std::vector<std::tuple<std::string, long, const char*>>{
           {"abc", 1, "a"},
           {"abc", -1, ""},
           {"\xE2\x82\xAC", 9, "\xAC"},
           {"\xF0\x9F\x98\x81.", 9, "\x01."},
           {"\x80", 9, ""},
           // cut inside a character, or malformed, after good text
           {"a\xC3", 9, ""},
           {"a\xE2\x82", 9, ""},
           {"a\xF0\x9F\x98", 9, ""},
           {"a\xC3\xC3", 9, ""},
           {"a\xF8\x88\x80\x80\x80", 9, ""}}) {
    std::vector<long> out(2 + source.size(), -1);
    const std::vector<char> text(source.c_str(), source.c_str() + source.size() + 1);  // ends its heap block
    copyTextUtf8ToLongStr(out.data(), text.data(), maximum);
    EXPECT_STREQ(reinterpret_cast<char*>(out.data()), want) << source;
  }
}

TEST(Charset, LongStringsBecomeUtf8InPlace) {
  long string[] = {0x41,   0x7F,   0x80,    0x7FF,    0x800,    0xE9, 0x20AC,
                   0xD800, 0xFFFF, 0x1F600, 0x1FFFFF, 0x200000, -5,   0};
  const char* text = convertLongStrToUtf8(string);
  EXPECT_EQ(static_cast<const void*>(text), string);
  EXPECT_EQ(ToText(FromHex("41 7F C280 DFBF E0A080 C3A9 E282AC EDA080 EFBFBF F09F9880 F7BFBFBF 01 01")),
            text);
}

}  // namespace
}  // namespace kestrune::testing
