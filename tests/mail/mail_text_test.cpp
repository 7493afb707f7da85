#include "mail/mail_text.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/result.h"
#include "kestrune_settings.h"
#include "mail/charset.h"
#include "tests/support/bytes.h"
#include "tests/support/child.h"
#include "tests/support/rows.h"

namespace kestrune::testing {
namespace {

constexpr char kRows[] = "mail.txt";

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
    std::vector<long> want(source, source + std::clamp(maximum, 0L, 3L));
    want.push_back(0);
    std::vector<long> string(want.size(), 7), copy(want.size(), 7);  // a longer copy leaves the heap block
    EXPECT_EQ(convertMacStrToUnicodeLongStr(string.data(), mac, maximum), string.data());
    EXPECT_EQ(string, want);
    copyTextLong(copy.data(), source, maximum);
    EXPECT_EQ(copy, want);
  }
}

TEST(Charset, Utf8IsNarrowedToBytesAndWrittenInPlace) {
  for (const auto& [source, most, want] : Rows<3>(kRows, "narrowed")) {
    std::vector<long> out(2 + source.size(), -1);
    const std::vector<char> text(source.c_str(), source.c_str() + source.size() + 1);  // ends its heap block
    copyTextUtf8ToLongStr(out.data(), text.data(), Number<long>(most));
    EXPECT_EQ(reinterpret_cast<char*>(out.data()), want) << source;
  }
  long string[] = {0x41,   0x7F,   0x80,    0x7FF,    0x800,    0xE9, 0x20AC,
                   0xD800, 0xFFFF, 0x1F600, 0x1FFFFF, 0x200000, -5,   0};
  const char* text = convertLongStrToUtf8(string);
  EXPECT_EQ(static_cast<const void*>(text), string);
  EXPECT_EQ(ToText(FromHex("41 7F C280 DFBF E0A080 C3A9 E282AC EDA080 EFBFBF F09F9880 F7BFBFBF 01 01")),
            text);
}

TEST(MailText, BecomesQuotedPrintable) {
  for (const auto& [text, want] : Rows<2>(kRows, "quoted-printable")) {
    char* out = nullptr;
    unsigned long long length = 0;
    EXPECT_EQ(api2encodeQuotedPrintable(text.data(), text.size(), &out, &length), kOk);
    EXPECT_EQ(out, want) << text;
    EXPECT_EQ(length, want.size());
    std::free(out);
  }
}

// In heap blocks that the result fills to the last byte.
TEST(MailText, IsChangedInPlace) {
  const std::map<std::string, void (*)(char*)> functions = {{"limite78simple", limite78simple},
                                                            {"limite78", limite78},
                                                            {"limiteemails", limiteemails},
                                                            {"enleverlf", enleverlf},
                                                            {"convertlftocrlf", convertlftocrlf}};
  for (const auto& [function, text, want] : Rows<3>(kRows, "in place")) {
    std::vector<char> block(std::max(text.size(), want.size()) + 1);
    text.copy(block.data(), text.size());
    functions.at(function)(block.data());
    EXPECT_EQ(block.data(), want) << function << text;
  }
  const std::string gateway = settings::kGatewayDomain;
  for (const auto& [list, converted] : Rows<2>(kRows, "addresses")) {
    const std::string text = Replaced(list, "@S", std::string("@") + settings::kServiceDomain1);
    std::vector<char> block(text.size() + (2 + gateway.size()) * 3 + 1);
    text.copy(block.data(), text.size());
    EXPECT_EQ(convertaddressestomss(block.data(), block.data()), kOk);
    EXPECT_EQ(block.data(), Replaced(converted, "@G", gateway));
  }
}

// In a process of its own: what it took at most is told of a whole process.
TEST(MailText, ListsOfCommasTakeNoRoom) {
  for (const char* comma : {",", " ,"}) {
    std::string list;
    while (list.size() < 10'000'000) list += comma;
    std::vector<char> out(4 * list.size());
    EXPECT_TRUE(HoldsInAChild([&] {
      rusage before{}, after{};
      ::getrusage(RUSAGE_SELF, &before);
      const bool is_empty = convertaddressestomss(list.c_str(), out.data()) == kOk && out[0] == 0;
      ::getrusage(RUSAGE_SELF, &after);
      return is_empty && after.ru_maxrss - before.ru_maxrss < 1000;  // KiB
    })) << comma;
  }
}

TEST(MailText, HasDatesAndSmallEntryPoints) {
  for (const auto& [date, code, want] : Rows<3>(kRows, "dates")) {
    char out[200] = "untouched";
    EXPECT_EQ(convertkestrunesqldatetoemldate(date.c_str(), out), Number(code)) << date;
    EXPECT_EQ(out, want);
  }
  char code[4], value[8], boundary[36], another[36];
  api2chartoquotedhex(0xAF, code);
  EXPECT_STREQ(code, "=AF");
  EXPECT_TRUE(GetMimeSeparator(boundary) == kOk && GetMimeSeparator(another) == kOk);
  EXPECT_EQ(std::strspn(boundary, "ABCDEFGHIJKLMNOPQRSTUVWXYZ"), 35u);
  EXPECT_STRNE(boundary, another);
  EXPECT_EQ(api2ExtractSmallValueFromXMLLight("<A>1</A><A>2</A><A>3</A>", "A", 2, value, 1, 7), kOk);
  EXPECT_STREQ(value, "3");
}

}  // namespace
}  // namespace kestrune::testing
