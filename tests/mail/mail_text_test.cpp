#include "mail/mail_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include "api/kestrune.h"
#include "core/result.h"
#include "kestrune_settings.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

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

std::string Repeat(std::string_view piece, std::size_t times) {
  std::string text;
  while (times-- > 0) text += piece;
  return text;
}

struct TextRow {
  std::string text;
  std::string want;
};

TEST(QuotedPrintable, KeepsItsHabits) {
  const std::string line(76, 'x');
  for (const TextRow& row : {
           TextRow{"", ""},
           TextRow{"a=b", "a=3Db"},
           TextRow{"x \r\ny", "x=20\r\ny"},
           TextRow{"x\t\r\ny", "x=09\r\ny"},
           TextRow{"x ", "x "},
           TextRow{"x \r", "x =0D"},
           TextRow{"x \n", "x =0A"},
           TextRow{"\r\r\n\n", "=0D\r\n=0A"},
           TextRow{"\xC3\xA9", "=C3=A9"},
           TextRow{"!~\x7F", "!~=7F"},
           TextRow{std::string("\0a", 2), "=00a"},
           TextRow{line + "yzzz", line + "y=\r\nzzz"},
           TextRow{line + "y", line + "y=\r\n"},
           TextRow{line + "  y", line + "  y=\r\n"},  // blanks break no line
           TextRow{line + "\r\ny", line + "\r\ny"},   // a line end comes before the break
           TextRow{line.substr(3) + "\n", line.substr(3) + "=0A"},
           TextRow{line.substr(2) + "\n", line.substr(2) + "=\r\n=0A"},
       })
    EXPECT_EQ(QuotedPrintable(row.text), row.want) << row.text;
  for (std::size_t length : {1, 24, 25, 26, 50, 51})
    EXPECT_EQ(QuotedPrintable(std::string(length, '=')).size(), 3 * length + 3 * ((length - 1) / 25));
}

TEST(QuotedPrintable, AnotherDecoderReadsIt) {
  const TempFolder folder;
  std::mt19937 random(20);
  std::string want, encoded;
  for (int sample = 0; sample < 200; ++sample) {
    // all bytes, or mostly those whose order matters
    const std::string_view alphabet = sample % 2 == 0 ? "" : " \t\r\n=ab";
    std::string text;
    for (auto length = random() % 1500; length > 0; --length)
      text += alphabet.empty() ? static_cast<char>(random()) : alphabet[random() % alphabet.size()];
    text += '.';
    want += text;
    encoded += QuotedPrintable(text) + "=\r\n";
  }
  WriteFile(folder.File("encoded"), encoded);
  const ProcessResult decoder =
      RunProgram({"/usr/bin/python3", "-c",
                  "import sys,quopri; quopri.decode(open(sys.argv[1],'rb'), sys.stdout.buffer)",
                  folder.File("encoded")});
  EXPECT_EQ(decoder.status, 0) << decoder.err;
  EXPECT_TRUE(decoder.out == want);
}

struct FormRow {
  void (*function)(char*);
  std::string text;
  std::string want;
};

TEST(MailText, InPlaceForms) {
  const std::string x77(77, 'x');
  for (const FormRow& row : {
           FormRow{limite78simple, Repeat("x", 200), x77 + "x\r\n" + x77 + "x\r\n" + Repeat("x", 44)},
           FormRow{limite78simple, x77 + "x", x77 + "x"},
           FormRow{limite78, x77 + "xy", x77 + "x\r\n y"},
           FormRow{limite78, x77 + "\r\n" + x77, x77 + "\r\n" + x77},  // a line end starts the count again
           FormRow{limite78, x77 + "x\r\n", x77 + "x\r\n \r\n"},
           FormRow{limite78, "", ""},
           FormRow{limiteemails, "a@x,b@y", "a@x,\r\n b@y"},
           FormRow{limiteemails, "a@x, b@y", "a@x,\r\n b@y"},
           FormRow{limiteemails, ",,", ",\r\n ,\r\n "},
           FormRow{enleverlf, "\ra\r\n\nb\n", "ab"},
           FormRow{convertlftocrlf, "\na\r\nb\n", "\r\na\r\r\nb\r\n"},
           FormRow{convertlftocrlf, "a\r", "a\r"},
       })
    EXPECT_EQ(InPlace(row.function, row.text, row.want.size()), row.want) << row.text;
}

TEST(MailText, AddressesOfTheServiceGoThroughTheGateway) {
  const std::string gateway = settings::kGatewayDomain;
  const std::string own = std::string("@") + settings::kServiceDomain1;
  const std::string longest(2047, 'a');
  for (const TextRow& row : {
           TextRow{"", ""}, TextRow{"a@b.org", "a@b.org"}, TextRow{"a" + own, "a" + gateway},
           TextRow{"a" + own + "@evil.org", "a" + gateway}, TextRow{"dupont", "dupont" + gateway},
           TextRow{" a b@c.org ,d@e.org", "ab@c.org, d@e.org"}, TextRow{"a@b.org,", "a@b.org"},
           TextRow{"a@b.org,c@d.org ", "a@b.org"}, TextRow{"a@b.org,,c@d.org", "a@b.org, , c@d.org"},
           TextRow{longest + "bc,d@e.org", longest + gateway + ", d@e.org"},
           TextRow{"a,b,c", "a" + gateway + ", b" + gateway + ", c" + gateway},  // the largest growth
       }) {
    std::vector<char> block(row.text.size() + (2 + gateway.size()) * 3 + 1);
    std::strcpy(block.data(), row.text.c_str());
    EXPECT_EQ(convertaddressestomss(block.data(), block.data()), kOk);
    EXPECT_EQ(std::string(block.data()), row.want);
  }
}

struct DateRow {
  const char* date;
  Result result;
  const char* want;
};

TEST(MailText, Dates) {
  for (const DateRow& row : {
           DateRow{"2024-05-15 09:05:00", kOk, "Wed, 15 Mai 2024 09:05:00 +002"},
           DateRow{"2024-12-01 23:59:59 +100", kOk, "Sun, 1 Dec 2024 23:59:59 +100"},
           DateRow{"2024-12-01 23:59:59 -005", kOk, "Sun, 1 Dec 2024 23:59:59 -005"},
           DateRow{"1950-01-02 03:04:05", kOk, ", 2 Jan 1950 03:04:05 +002"},
           DateRow{"2024-13-15 09:05:00", kOk, ", 15  2024 09:05:00 +002"},
           DateRow{"2024-02-xx 09:05:00", kOk, ", 0 Feb 2024 00:00:00 +002"},
           DateRow{"...................", kOk, ", 0  0 00:00:00 +002"},
           DateRow{"99999999999999999999-1-2", kOk, ", 2 Jan 2147483647 00:00:00 +000"},
           DateRow{"-9999999999999999-12-1 9", kOk, ", 1 Dec -2147483648 09:00:00 +000"},
           DateRow{"", mail::kBadDate, ""},
           DateRow{"2024-05-15 09:05:00 ", mail::kBadDate, ""},
           DateRow{"2024-05-15 09:05:00 +1000", mail::kBadDate, ""},
           DateRow{nullptr, argument::kNoInput, ""},
       }) {
    char out[200] = "untouched";
    EXPECT_EQ(convertkestrunesqldatetoemldate(row.date, out), row.result);
    EXPECT_STREQ(out, row.want);
  }
  EXPECT_EQ(convertkestrunesqldatetoemldate("", nullptr), argument::kNoOutput);
}

TEST(MailText, SmallEntryPoints) {
  char code[4];
  api2chartoquotedhex(0xAF, code);
  EXPECT_STREQ(code, "=AF");

  char boundary[36], another[36];
  EXPECT_EQ(GetMimeSeparator(nullptr), argument::kNoInput);
  EXPECT_EQ(GetMimeSeparator(boundary), kOk);
  EXPECT_EQ(GetMimeSeparator(another), kOk);
  EXPECT_EQ(std::strspn(boundary, "ABCDEFGHIJKLMNOPQRSTUVWXYZ"), 35u);
  EXPECT_STRNE(boundary, another);

  char value[8];
  EXPECT_EQ(api2ExtractSmallValueFromXMLLight("<A>1</A><A>2</A>", "A", 2, value, 0, 7), kOk);
  EXPECT_STREQ(value, "2");
  EXPECT_EQ(api2ExtractSmallValueFromXMLLight("<A>1</A><A>2</A>", "A", 2, value, 1, 7), utils::kTagMissing);
}

}  // namespace
}  // namespace kestrune::testing
