#include "core/utils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/key_header.h"
#include "core/string_helpers.h"
#include "kestrune_settings.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kMegabyte = 1 << 20;
std::string Repeated(std::string_view piece, std::size_t count) {
  std::string text;
  while (count-- > 0) text += piece;
  return text;
}

TEST(Utils, ReadsLightXml) {
  const struct {
    const char *xml, *tag;
    unsigned long long n, start, max;
    int rc;
    const char* value;  // also what a failure leaves
  } rows[] = {{"<A>1</A><A>2</A>", "A", 2, 0, 0, 0, "2"},
              {"<A>1</A><A>2</A>", "A", 1, 1, 0, 0, "2"},
              {"<A>1</A>", "A", 0, 0, 0, -69, "?"},
              {"<A b>1</A>", "A", 1, 0, 0, -69, "?"},
              {"<A>123</A>", "A", 1, 0, 3, 0, "123"},
              {"<A>1234</A>", "A", 1, 0, 3, -70, "?"},
              {"<A>1<A>2</A>3</A>", "A", 1, 0, 0, 0, "1<A>2"},
              {"<A>1<A>2</A>3</A>", "A", 2, 0, 0, -69, "?"},
              {"</A><A>1", "A", 1, 0, 0, -69, "?"},
              {"<A>1</A>", "A", 1, ~0ULL, 0, -69, "?"},
              {"<>1</>", "", 1, 0, 0, 0, "1"}};
  char out[32];
  for (const auto& row : rows) {
    std::strcpy(out, "?");
    EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(row.xml, row.tag, row.n, out, row.start, row.max),
              row.rc)
        << row.xml << " n=" << row.n;
    EXPECT_STREQ(out, row.value) << row.xml << " n=" << row.n;
  }
  const std::string many = Repeated("<A>1</A>", 1001);
  EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(many.c_str(), "A", 1000, out, 0, 0), 0);
  EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(many.c_str(), "A", 1001, out, 0, 0), -69);
}

// A search that starts again at each step takes more than the time that a test has.
TEST(Utils, ReadsHostileXmlInLinearTime) {
  char out[8];
  for (const char* piece : {"<A>", "</A>", "<A></", "<A", "<AA>"}) {
    const std::string xml = Repeated(piece, 4 * kMegabyte / std::strlen(piece));
    EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(xml.c_str(), "A", 1000, out, 0, 0), -69) << piece;
  }
}

TEST(Utils, FindsWithoutCase) {
  const std::string long_one = Repeated("abcdefg", 10);
  const struct {
    std::string text;
    unsigned long long start;
    std::string sub;
    long long position;
  } rows[] = {{"xABC", 0, "abc", 1},
              {"xABCabc", 2, "abc", 4},
              {"ABC", 9, "abc", -1},
              {"aab", 0, "ab", 1},
              {"abc", 3, "", 3},
              {"abc", 4, "", -1},
              {"!", 0, "a", -1},       // 64 apart
              {"@[`{", 0, "`{@[", 0},  // 32 apart is all that counts
              {Repeated("ABCDEFG", 11), 1, long_one, 7},
              {"abcdefg" + long_one.substr(1), 0, long_one, -1}};
  for (const auto& row : rows) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(row.text.data());
    EXPECT_EQ(TypV2Utils().possubstringsimplenocase(bytes, row.text.size(), row.start, row.sub.c_str()),
              row.position)
        << row.text << " / " << row.sub;
  }
}

TEST(Utils, CutsLists) {
  using Elements = std::vector<std::string>;
  const struct {
    const char* text;
    long long capacity;
    int rc;
    Elements elements;
  } rows[] = {{"a,b,c", 9, 0, {"a", "b", "c"}},
              {"a,b,", 9, 0, {"a", "b,"}},
              {",a", 9, 0, {"", "a"}},
              {",,", 9, 0, {"", ","}},
              {"", 9, 0, {}},
              {"a,b,c", 2, -53, {"a", "b"}},
              {"a,b", 2, -53, {"a", "b"}}};
  char* elements[9] = {};
  for (const auto& row : rows) {
    long long count = row.capacity;
    EXPECT_EQ(TypV2Utils().GetElementsFromList(row.text, ',', elements, &count), row.rc) << row.text;
    EXPECT_EQ(Elements(elements, elements + count), row.elements) << row.text;
    EXPECT_EQ(TypV2Utils().FreeElementsListContent(elements, 9), 0);
  }
}

TEST(Utils, ConcatenatesWithinTheCapacity) {
  constexpr long long kMost = 0x7fffffffffffffff;
  const struct {
    long long count, position, capacity;
    int rc;
    const char* text;
    long long position_after;
  } rows[] = {{5, 5, 11, 0, "01234abcde", 10},
              {5, 5, 10, -109, "0123456789", 5},
              {1, -1, 10, -89, "0123456789", -1},
              {-1, 0, 10, -89, "0123456789", 0},
              // Sums beyond 2^63 must not wrap.
              {kMost, 5, 10, -109, "0123456789", 5},
              {kMost, kMost, kMost, -109, "0123456789", kMost},
              {1, 0, -kMost - 1, -109, "0123456789", 0}};
  for (const auto& row : rows) {
    char buffer[11] = "0123456789";
    long long position = row.position;
    EXPECT_EQ(TypV2Utils().Concatenate(buffer, "abcde", row.count, &position, row.capacity), row.rc);
    EXPECT_STREQ(buffer, row.text);
    EXPECT_EQ(position, row.position_after);
  }
}

TEST(Utils, WritesAndReadsHexadecimal) {
  char text[9] = "????????";
  const unsigned char bytes[] = {0x00, 0x9A, 0xFF};
  TypV2Utils().Hexadecimalise(bytes, 0, text);
  EXPECT_STREQ(text, "??");  // kept so
  TypV2Utils().Hexadecimalise(bytes, 3, text);
  EXPECT_STREQ(text, "009AFF");
  const std::pair<const char*, const char*> rows[] = {
      {"009aFf", "009aff"}, {"ABC", "abc0"}, {"g1:2", "0102"}};
  for (const auto& [digits, value] : rows) {
    unsigned char out[8];
    unsigned long long count = 99;
    TypV2Utils().DeHexadecimalise(digits, out, &count);
    EXPECT_EQ(ToHex(out, count), value);
  }
}

TEST(Utils, TurnsExactlyTheNumbersOfAHeader) {
  std::array<unsigned char, 512> file;
  for (std::size_t i = 0; i < file.size(); ++i) file[i] = static_cast<unsigned char>(i * 7 + i / 256);
  std::array<unsigned char, 512> want = file;
  for (const std::size_t at : {0, 4, 8, 44}) std::reverse(want.begin() + at, want.begin() + at + 4);
  for (std::size_t at = 88; at <= 152; at += 8) {
    std::reverse(want.data() + at, want.data() + at + 8);
  }
  TypV2KeyHeader header;
  std::memcpy(&header, file.data(), sizeof header);
  TypV2Utils().SwapHeader(&header);
  EXPECT_EQ(std::memcmp(&header, want.data(), sizeof header), 0);
}

TEST(Utils, DumpsBytesForPeople) {
  std::string bytes;
  for (int i = 0; i < 33; ++i) bytes.push_back(static_cast<char>(i * 4 + 2));
  ::testing::internal::CaptureStdout();
  TypV2Utils().hexdump2(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), 1);
  TypV2Utils().hexdump(nullptr, 0);
  EXPECT_EQ(
      ::testing::internal::GetCapturedStdout(),
      "       dump 33 Byte(s)\n"
      "\n       00000000 00000000 2 6 A E 12 16 1A 1E 22 26 2A 2E 32 36 3A 3E 42 46 4A 4E 52 56 5A 5E 62 66 "
      "6A 6E 72 76 7A 7E "
      "\n                         .  .  .  .  .  .  .  .  \"  &  *  .  2  6  :  >  B  F  J  N  R  V  Z  ^  b "
      " "
      "f  j  n  r  v  z  ~  "
      "\n       0X000020 00000032 82 "
      "\n                         .  "
      "\n\n"
      "dump 0 Byte(s)\n\n\n");
}

TEST(Utils, KnowsTheServicesDomains) {
  using namespace std::string_literals;
  const std::string third = settings::kServiceDomain3;
  const std::pair<std::string, int> rows[] = {
      {"", 1},
      {"x."s + settings::kServiceDomain1 + ".fr", 1},
      {"X."s + settings::kServiceDomain4, 1},
      {"x." + third, 0},  // the third one stands at the beginning
      {"MEDICAL.x"s + settings::kDomainSuffix1, 1},
      {"medical"s + settings::kDomainSuffix1 + ".fr", 0},
      {"x.medical"s + settings::kDomainSuffix1, 0},
      {"other.org", 0},
      {settings::kServiceDomain1 + std::string(255 - std::strlen(settings::kServiceDomain1), 'x'), 1},
      {settings::kServiceDomain1 + std::string(256 - std::strlen(settings::kServiceDomain1), 'x'), 0},
  };
  for (const auto& [domain, is_ours] : rows) {
    EXPECT_EQ(TypV2Utils().isKestruneDomain(domain.c_str()), is_ours) << domain;
  }
  EXPECT_EQ(TypV2Utils().isKestruneDomain(nullptr), 1);
}

TEST(Utils, TakesNamesAndAddressesApart) {
  const struct {
    std::string name;
    int rc;
    const char* suffix;
  } names[] = {{"x.226", 0, "226"},
               {"x.2a6", -56, "2a6"},
               {"226", -87, "?"},
               {std::string(41, 'x') + "299", 0, "299"},
               {std::string(45, '2'), -87, "?"}};
  for (const auto& row : names) {
    char out[4] = "?";
    EXPECT_EQ(TypV2Utils().ExtractFileSuffix(row.name.c_str(), out), row.rc) << row.name;
    EXPECT_STREQ(out, row.suffix);
  }
  char prefix[256], domain[256];
  const char* const addresses[][3] = {{"a@b@c", "a", "b@c"}, {"a", "a", ""}, {"@", "", ""}};
  for (const auto& [address, before, behind] : addresses) {
    EXPECT_EQ(TypV2Utils().extractprefixemail(address, prefix), 0);
    EXPECT_EQ(TypV2Utils().extractdomainemail(address, domain), 0);
    EXPECT_STREQ(prefix, before);
    EXPECT_STREQ(domain, behind);
  }
  EXPECT_EQ(TypV2Utils().extractprefixemail(std::string(255, 'a').c_str(), prefix), 0);
  EXPECT_EQ(TypV2Utils().extractdomainemail(std::string(256, 'a').c_str(), domain), -108);
}

TEST(Utils, TakesTheFirstAttachmentOutOfAMimeText) {
  const std::string head = "x\nCONTENT-disposition: attachment; filename=x\n\n";
  const struct {
    std::string mime;
    int rc;
    const char* content;  // null: no buffer
  } rows[] = {{head + "YWJj\nZGU=\n --sep", 0, "abcde"},
              {head + "YWJj\r\nZGU= --" + head + "eA== --", 0, "abcde"},
              {head + "not base64 --", 0, nullptr},  // kept so: no failure
              {head + " --", -201, nullptr},
              {head + "YWJj--", -200, nullptr},
              {"", -200, nullptr}};
  for (const auto& row : rows) {
    Bytes mime = ToBytes(row.mime);  // without a terminator, so that a read past the end is seen
    unsigned char* out = nullptr;
    unsigned long long length = 77;
    EXPECT_EQ(TypV2Utils().ExtractFirstPJFromMime(mime.data(), mime.size(), &out, &length), row.rc);
    ASSERT_EQ(out != nullptr, row.content != nullptr) << row.mime;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), length), row.content == nullptr ? "" : row.content);
    std::free(out);
  }
}

TEST(Utils, BuildsThePasswordsKey) {
  const std::pair<std::string, std::string> rows[] = {{"#$&*-=@%", "_______%"},
                                                      {std::string(5000, '@'), std::string(32, '_')}};
  unsigned char out[65];
  for (const auto& [typed, digested] : rows) {
    EXPECT_EQ(::BuildHexPassword(reinterpret_cast<const unsigned char*>(typed.c_str()), out), 0);
    const Bytes digest = ToBytes(Sha512(digested));
    EXPECT_STRCASEEQ(reinterpret_cast<char*>(out), ToHex(digest.data(), 32).c_str());
    std::string in_place(typed + std::string(65, '\0'));
    auto* const both = reinterpret_cast<unsigned char*>(in_place.data());
    EXPECT_EQ(::BuildHexPassword(both, both), 0);
    EXPECT_STREQ(in_place.c_str(), reinterpret_cast<char*>(out));
  }
  out[0] = 0;
  EXPECT_EQ(::BuildHexPassword(out, nullptr), -61);
  out[0] = 'x';
  EXPECT_EQ(::BuildHexPassword(out, nullptr), -102);
}

TEST(StringHelpers, PushWhatLeavesTwoBytesFree) {
  char buffer[9] = "xxxxxxxx";
  unsigned long long position = 1;
  for (const unsigned long long count : {7ULL, 6ULL, ~0ULL, ~0ULL - 1}) {  // the last two would wrap
    ApiV2Mystrpush(buffer, 8, &position, "abcdef", count);
    EXPECT_EQ(position, 1u);
  }
  ApiV2Mystrpush(buffer, 8, &position, "ab", 2);
  EXPECT_EQ(std::string(buffer, 8), std::string("xabx\0xxx", 8));  // the zero goes one beyond the new end
  ApiV2Mystrpush(buffer, 8, &position, "cde", 3);
  EXPECT_EQ(position, 6u);
  EXPECT_EQ(std::string(buffer, 8), std::string("xabcdexx").replace(7, 1, 1, '\0'));
}

TEST(StringHelpers, SplitAtTheFirstSeparator) {
  const char* const rows[][3] = {{"a,b,c", "a", "b"}, {",b", "", "b"}, {"a@b", "a@b", ""}};
  for (const auto& [source, head, tail] : rows) {
    char first[8] = "old", second[8] = "old";
    splitvirgule(source, first, second);
    EXPECT_STREQ(first, head) << source;
    EXPECT_STREQ(second, tail) << source;
  }
}

}  // namespace
}  // namespace kestrune::testing
