#include "mail/mail_text.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/result.h"
#include "kestrune_settings.h"

namespace kestrune::testing {
namespace {

std::string QuotedPrintable(std::string_view text) {
  char* out = nullptr;
  unsigned long long length = 0;
  EXPECT_EQ(api2encodeQuotedPrintable(text.data(), text.size(), &out, &length), kOk);
  EXPECT_EQ(std::strlen(out), length);
  std::string encoded = out;
  std::free(out);
  return encoded;
}

// Runs an in-place function in a heap block that its result fills to the last byte.
std::string InPlace(void (*function)(char*), const std::string& text, std::size_t result_length) {
  std::vector<char> block(std::max(text.size(), result_length) + 1);
  std::strcpy(block.data(), text.c_str());
  function(block.data());
  return block.data();
}

using TextRow = std::pair<std::string, std::string>;  // what goes in, what comes out

TEST(QuotedPrintable, KeepsItsHabits) {
  const std::string line(76, 'x');
  for (const auto& [text, want] :
       std::vector<TextRow>{{"", ""},
                            {"a=b", "a=3Db"},
                            {"x \r\ny", "x=20\r\ny"},
                            {"x ", "x "},
                            {"x \r", "x =0D"},
                            {"x \n", "x =0A"},
                            {"\r\r\n\n", "=0D\r\n=0A"},
                            {"\xC3\xA9", "=C3=A9"},
                            {std::string("\0a", 2), "=00a"},
                            {line + "yzzz", line + "y=\r\nzzz"},
                            {line + "y", line + "y=\r\n"},
                            {line + "  y", line + "  y=\r\n"},  // blanks break no line
                            {line + "\r\ny", line + "\r\ny"},   // a line end comes before the break
                            {line.substr(3) + "\n", line.substr(3) + "=0A"},
                            {line.substr(2) + "\n", line.substr(2) + "=\r\n=0A"}})
    EXPECT_EQ(QuotedPrintable(text), want) << text;
  for (std::size_t length : {1, 24, 25, 26, 50, 51})
    EXPECT_EQ(QuotedPrintable(std::string(length, '=')).size(), 3 * length + 3 * ((length - 1) / 25));
}

TEST(MailText, InPlaceForms) {
  const std::string x77(77, 'x'), x78 = x77 + "x";
  for (const auto& [function, text, want] :
       std::vector<std::tuple<void (*)(char*), std::string, std::string>>{
           {limite78simple, x78 + x78 + "x", x78 + "\r\n" + x78 + "\r\nx"},
           {limite78, x78 + "y", x78 + "\r\n y"},
           {limite78, x78 + "\r\n", x78 + "\r\n \r\n"},
           {limite78, "", ""},
           {limiteemails, "a@x,b@y", "a@x,\r\n b@y"},
           {limiteemails, "a@x, b@y", "a@x,\r\n b@y"},
           {limiteemails, ",,", ",\r\n ,\r\n "},
           {enleverlf, "\ra\r\n\nb\n", "ab"},
           {convertlftocrlf, "\na\r\nb\n", "\r\na\r\r\nb\r\n"}})
    EXPECT_EQ(InPlace(function, text, want.size()), want) << text;
}

TEST(MailText, AddressesOfTheServiceGoThroughTheGateway) {
  const std::string gateway = settings::kGatewayDomain;
  const std::string own = std::string("@") + settings::kServiceDomain1;
  const std::string longest(2047, 'a');
  for (const auto& [text, want] : std::vector<TextRow>{
           {"", ""},
           {"a" + own, "a" + gateway},
           {"a" + own + "@evil.org", "a" + gateway},
           {"dupont", "dupont" + gateway},
           {" a b@c.org ,d@e.org", "ab@c.org, d@e.org"},
           {"a@b.org,c@d.org ", "a@b.org"},
           {"a@b.org,,c@d.org", "a@b.org, , c@d.org"},
           {longest + "bc,d@e.org", longest + gateway + ", d@e.org"},
           {"a,b,c", "a" + gateway + ", b" + gateway + ", c" + gateway}}) {  // the last one grows most
    std::vector<char> block(text.size() + (2 + gateway.size()) * 3 + 1);
    std::strcpy(block.data(), text.c_str());
    EXPECT_EQ(convertaddressestomss(block.data(), block.data()), kOk);
    EXPECT_EQ(std::string(block.data()), want);
  }
}

// In a process of its own: what it took at most is told of a whole process.
TEST(MailText, ListsOfCommasTakeNoRoom) {
  for (const char* comma : {",", " ,"}) {
    std::string list;
    while (list.size() < 10'000'000) list += comma;
    std::vector<char> out(4 * list.size());
    const pid_t child = ::fork();
    if (child == 0) {
      rusage before{}, after{};
      ::getrusage(RUSAGE_SELF, &before);
      const bool is_empty = convertaddressestomss(list.c_str(), out.data()) == kOk && out[0] == 0;
      ::getrusage(RUSAGE_SELF, &after);
      ::_exit(is_empty && after.ru_maxrss - before.ru_maxrss < 1000 ? 0 : 1);  // KiB
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << comma;
  }
}

TEST(MailText, Dates) {
  for (const auto& [date, result, want] : std::vector<std::tuple<const char*, Result, const char*>>{
           {"2024-05-15 09:05:00", kOk, "Wed, 15 Mai 2024 09:05:00 +002"},
           {"2024-12-01 23:59:59 +100", kOk, "Sun, 1 Dec 2024 23:59:59 +100"},
           {"1950-01-02 03:04:05", kOk, ", 2 Jan 1950 03:04:05 +002"},
           {"2024-02-xx 09:05:00", kOk, ", 0 Feb 2024 00:00:00 +002"},
           {"...................", kOk, ", 0  0 00:00:00 +002"},
           {"99999999999999999999-1-2", kOk, ", 2 Jan 2147483647 00:00:00 +000"},
           {"-9999999999999999-12-1 9", kOk, ", 1 Dec -2147483648 09:00:00 +000"},
           {"", mail::kBadDate, ""},
           {"2024-05-15 09:05:00 +1000", mail::kBadDate, ""}}) {
    char out[200] = "untouched";
    EXPECT_EQ(convertkestrunesqldatetoemldate(date, out), result);
    EXPECT_STREQ(out, want);
  }
}

TEST(MailText, SmallEntryPoints) {
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
