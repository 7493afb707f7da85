#include "core/utils.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "api/kestrune.h"
#include "core/key_header.h"
#include "kestrune_settings.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kMegabyte = 1 << 20;
// A linear search takes milliseconds, one that starts again at each step minutes.
constexpr std::chrono::seconds kLinearLimit(5);

template <class Work>
void ExpectLinear(Work&& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kLinearLimit);
}

std::string Repeated(std::string_view piece, std::size_t count) {
  std::string text;
  while (count-- > 0) text += piece;
  return text;
}

TEST(Utils, ReadsLightXml) {
  struct Row {
    const char *xml, *tag;
    unsigned long long n, start, max;
    int rc;
    const char* value;  // also what a failure leaves
  };
  for (const Row& row : {
           Row{"<A>1</A><A>2</A>", "A", 2, 0, 0, 0, "2"},
           Row{"<A>1</A><A>2</A>", "A", 1, 1, 0, 0, "2"},
           Row{"<A>1</A><A>2</A>", "A", 3, 0, 0, -69, "?"},
           Row{"<A>1</A>", "A", 0, 0, 0, -69, "?"},
           Row{"<a>1</a>", "A", 1, 0, 0, -69, "?"},
           Row{"<A b>1</A>", "A", 1, 0, 0, -69, "?"},
           Row{"<A>1</ A>", "A", 1, 0, 0, -69, "?"},
           Row{"<A></A>", "A", 1, 0, 1, 0, ""},
           Row{"<A>123</A>", "A", 1, 0, 3, 0, "123"},
           Row{"<A>1234</A>", "A", 1, 0, 3, -70, "?"},
           Row{"<A>1<A>2</A>3</A>", "A", 1, 0, 0, 0, "1<A>2"},
           Row{"<A>1<A>2</A>3</A>", "A", 2, 0, 0, -69, "?"},
           Row{"</A><A>1", "A", 1, 0, 0, -69, "?"},
           Row{"<A>1</A>", "A", 1, 8, 0, -69, "?"},
           Row{"<A>1</A>", "A", 1, ~0ULL, 0, -69, "?"},
           Row{"", "A", 1, 0, 0, -69, "?"},
           Row{"<>1</>", "", 1, 0, 0, 0, "1"},
       }) {
    char out[32] = "?";
    EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(row.xml, row.tag, row.n, out, row.start, row.max),
              row.rc)
        << row.xml << " n=" << row.n;
    EXPECT_STREQ(out, row.value) << row.xml << " n=" << row.n;
  }
  const std::string many = Repeated("<A>1</A>", 1001);
  char out[8];
  EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(many.c_str(), "A", 1000, out, 0, 0), 0);
  EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(many.c_str(), "A", 1001, out, 0, 0), -69);
}

TEST(Utils, ReadsHostileXmlInLinearTime) {
  char out[8];
  for (const char* piece : {"<A>", "</A>", "<A></", "<A", "<AA>"}) {
    const std::string xml = Repeated(piece, 4 * kMegabyte / std::strlen(piece));
    ExpectLinear([&] {
      EXPECT_EQ(TypV2Utils().ExtractSmallValueFromXMLLight(xml.c_str(), "A", 1000, out, 0, 0), -69) << piece;
    });
  }
}

TEST(Utils, FindsWithoutCase) {
  const std::string pattern70 = Repeated("abcdefg", 10);
  struct Row {
    std::string text;
    unsigned long long start;
    std::string sub;
    long long position;
  };
  for (const Row& row : {
           Row{"xABC", 0, "abc", 1},
           Row{"xABCabc", 2, "abc", 4},
           Row{"xAB", 0, "abc", -1},
           Row{"ABC", 1, "abc", -1},
           Row{"ABC", 9, "abc", -1},
           Row{"@[`{", 0, "`{@[", 0},  // 32 apart is all that counts
           Row{"!", 0, "a", -1},       // 64 apart
           Row{std::string("\0\xE1", 2), 0, " \xC1", 0},
           Row{"aab", 0, "ab", 1},
           Row{"abc", 3, "", 3},
           Row{"abc", 4, "", -1},
           Row{std::string("x").append(Repeated("ABCDEFG", 10)), 0, pattern70, 1},
           Row{"abcdefg" + pattern70.substr(1), 0, pattern70, -1},
           Row{"a" + pattern70 + "h", 0, pattern70 + "i", -1},
       }) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(row.text.data());
    EXPECT_EQ(TypV2Utils().possubstringsimplenocase(bytes, row.text.size(), row.start, row.sub.c_str()),
              row.position)
        << row.text << " / " << row.sub;
  }
  const std::vector<unsigned char> text(4 * kMegabyte, 'a');
  for (const std::size_t length : {31, 64, 65, 2000}) {
    const std::string nearly = std::string(length - 1, 'A') + 'b';
    ExpectLinear([&] {
      EXPECT_EQ(TypV2Utils().possubstringsimplenocase(text.data(), text.size(), 0, nearly.c_str()), -1);
    });
  }
}

TEST(Utils, CutsLists) {
  using Elements = std::vector<std::string>;
  struct Row {
    const char* text;
    long long capacity;
    int rc;
    Elements elements;
  };
  for (const Row& row : {
           Row{"a,b,c", 9, 0, {"a", "b", "c"}},
           Row{"a,b,", 9, 0, {"a", "b,"}},
           Row{",a", 9, 0, {"", "a"}},
           Row{"a,,b", 9, 0, {"a", "", "b"}},
           Row{",,", 9, 0, {"", ","}},
           Row{",", 9, 0, {","}},
           Row{"", 9, 0, {}},
           Row{"", 0, 0, {}},
           Row{"a,b,c", 2, -53, {"a", "b"}},
           Row{"a,b", 2, -53, {"a", "b"}},
           Row{"a", 0, -53, {}},
       }) {
    char* elements[9] = {};
    long long count = row.capacity;
    EXPECT_EQ(TypV2Utils().GetElementsFromList(row.text, ',', elements, &count), row.rc) << row.text;
    EXPECT_EQ(Elements(elements, elements + count), row.elements) << row.text;
    EXPECT_EQ(TypV2Utils().FreeElementsListContent(elements, 9), 0);
  }
  char* elements[1];
  long long count = 1;
  EXPECT_EQ(TypV2Utils().GetElementsFromList("a", ',', nullptr, &count), -60);
  EXPECT_EQ(TypV2Utils().GetElementsFromList("a", ',', elements, nullptr), -59);
  EXPECT_EQ(TypV2Utils().GetElementsFromList(nullptr, ',', elements, &count), -62);
  EXPECT_EQ(TypV2Utils().FreeElementsListContent(nullptr, 1), -62);
}

TEST(Utils, ConcatenatesWithinTheCapacity) {
  constexpr long long kMost = 0x7fffffffffffffff;
  struct Row {
    long long count, position, capacity;
    int rc;
    const char* text;
    long long position_after;
  };
  for (const Row& row : {
           Row{5, 5, 11, 0, "01234abcde", 10},
           Row{5, 5, 10, -109, "0123456789", 5},
           Row{0, 5, 0, 0, "0123456789", 5},
           Row{1, 0, 2, 0, "a", 1},
           Row{1, -1, 10, -89, "0123456789", -1},
           Row{-1, 0, 10, -89, "0123456789", 0},
           // Sums beyond 2^63 must not wrap.
           Row{kMost, 5, 10, -109, "0123456789", 5},
           Row{1, kMost, kMost, -109, "0123456789", kMost},
           Row{kMost, kMost, kMost, -109, "0123456789", kMost},
           Row{1, 0, -kMost - 1, -109, "0123456789", 0},
       }) {
    char buffer[11] = "0123456789";
    long long position = row.position;
    EXPECT_EQ(TypV2Utils().Concatenate(buffer, "abcde", row.count, &position, row.capacity), row.rc);
    EXPECT_STREQ(buffer, row.text);
    EXPECT_EQ(position, row.position_after);
  }
  long long position = 0;
  char buffer[4];
  EXPECT_EQ(TypV2Utils().Concatenate(buffer, nullptr, 1, &position, 4), -62);
  EXPECT_EQ(TypV2Utils().Concatenate(buffer, "a", 1, nullptr, 4), -62);
  EXPECT_EQ(TypV2Utils().Concatenate(nullptr, "a", 1, &position, 4), -105);
}

TEST(Utils, WritesAndReadsHexadecimal) {
  char text[9] = "????????";
  const unsigned char bytes[] = {0x00, 0x9A, 0xFF};
  TypV2Utils().Hexadecimalise(bytes, 3, text);
  EXPECT_STREQ(text, "009AFF");
  std::memcpy(text, "????", 5);
  TypV2Utils().Hexadecimalise(bytes, 0, text);
  EXPECT_STREQ(text, "??");  // kept so
  struct Row {
    const char *text, *bytes;
  };
  for (const Row& row : {Row{"009aFf", "009aff"}, Row{"ABC", "abc0"}, Row{"g1:2", "0102"}, Row{"", ""}}) {
    unsigned char out[8];
    unsigned long long count = 99;
    TypV2Utils().DeHexadecimalise(row.text, out, &count);
    EXPECT_EQ(ToHex(out, count), row.bytes);
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
  std::int16_t small = 0x0102;
  TypV2Utils().swapshort(&small);
  EXPECT_EQ(small, 0x0201);
  unsigned char stored[8];
  TypV2Utils().apiulong64tochars(0x0102030405060708, stored);
  EXPECT_EQ(ToHex(stored, 8), "0807060504030201");
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
  const struct {
    std::string domain;
    int is_ours;
  } rows[] = {
      {"", 1},
      {"x."s + settings::kServiceDomain1 + ".fr", 1},
      {"x"s + settings::kServiceDomain2, 1},
      {"X."s + settings::kServiceDomain4, 1},
      {third + ".fr", 1},
      {"x." + third, 0},  // the third one stands at the beginning
      {"MEDICAL.x"s + settings::kDomainSuffix1, 1},
      {"medicalx"s + settings::kDomainSuffix2, 1},
      {"medical"s + settings::kDomainSuffix1 + ".fr", 0},
      {"x.medical"s + settings::kDomainSuffix1, 0},
      {"medical", 0},
      {"other.org", 0},
      {settings::kServiceDomain1 + std::string(255 - std::strlen(settings::kServiceDomain1), 'x'), 1},
      {settings::kServiceDomain1 + std::string(256 - std::strlen(settings::kServiceDomain1), 'x'), 0},
  };
  for (const auto& row : rows) EXPECT_EQ(TypV2Utils().isKestruneDomain(row.domain.c_str()), row.is_ours);
  EXPECT_EQ(TypV2Utils().isKestruneDomain(nullptr), 1);
}

TEST(Utils, TakesNamesAndAddressesApart) {
  const struct {
    std::string name;
    int rc;
    const char* suffix;
  } names[] = {{"x.226", 0, "226"},
               {"x.126", -56, "126"},
               {"x.2a6", -56, "2a6"},
               {"226", -87, "?"},
               {std::string(41, 'x') + "299", 0, "299"},
               {std::string(42, 'x') + "299", -87, "?"}};
  for (const auto& row : names) {
    char out[4] = "?";
    EXPECT_EQ(TypV2Utils().ExtractFileSuffix(row.name.c_str(), out), row.rc) << row.name;
    EXPECT_STREQ(out, row.suffix);
  }
  EXPECT_EQ(TypV2Utils().ExtractFileSuffix("x.226", nullptr), -60);
  char prefix[256], domain[256];
  const struct {
    const char *address, *prefix, *domain;
  } addresses[] = {{"a@b@c", "a", "b@c"}, {"a", "a", ""}, {"@", "", ""}, {"", "", ""}};
  for (const auto& row : addresses) {
    EXPECT_EQ(TypV2Utils().extractprefixemail(row.address, prefix), 0);
    EXPECT_EQ(TypV2Utils().extractdomainemail(row.address, domain), 0);
    EXPECT_STREQ(prefix, row.prefix);
    EXPECT_STREQ(domain, row.domain);
  }
  EXPECT_EQ(TypV2Utils().extractprefixemail(std::string(255, 'a').c_str(), prefix), 0);
  EXPECT_EQ(TypV2Utils().extractprefixemail(std::string(256, 'a').c_str(), prefix), -108);
  EXPECT_EQ(TypV2Utils().extractdomainemail(nullptr, nullptr), -62);
  EXPECT_EQ(TypV2Utils().extractdomainemail("a@b", nullptr), -60);
  EXPECT_EQ(TypV2Utils().isnumericsstring("0129"), 1);
  EXPECT_EQ(TypV2Utils().isnumericsstring(""), 0);
  EXPECT_EQ(TypV2Utils().isnumericsstring("1.2"), 0);
  EXPECT_EQ(TypV2Utils().endwith("a.key", ".key"), 1);
  EXPECT_EQ(TypV2Utils().endwith("key", ".key"), 0);
}

TEST(Utils, TakesTheFirstAttachmentOutOfAMimeText) {
  const std::string head = "x\nCONTENT-disposition: attachment; filename=x\n\n";
  struct Row {
    std::string mime;
    int rc;
    const char* content;  // null: no buffer
  };
  for (const Row& row : {
           Row{head + "YWJj\nZGU=\n --sep", 0, "abcde"},
           Row{head + "YWJj\r\nZGU= --" + head + "eA== --", 0, "abcde"},
           Row{head + "not base64 --", 0, nullptr},  // kept so: no failure
           Row{head + " --", -201, nullptr},
           Row{head + "YWJj--", -200, nullptr},
           Row{"Content-Disposition: attachment\nYWJj --", -200, nullptr},
           Row{"\n\nYWJj --", -200, nullptr},
           Row{"", -200, nullptr},
       }) {
    // Without a terminator, so that a read past the end is seen.
    Bytes mime = ToBytes(row.mime);
    unsigned char* out = nullptr;
    unsigned long long length = 77;
    EXPECT_EQ(TypV2Utils().ExtractFirstPJFromMime(mime.data(), mime.size(), &out, &length), row.rc);
    ASSERT_EQ(out != nullptr, row.content != nullptr) << row.mime;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), length), row.content == nullptr ? "" : row.content);
    std::free(out);
  }
  EXPECT_EQ(TypV2Utils().ExtractFirstPJFromMime(nullptr, 0, nullptr, nullptr), -102);
}

TEST(Utils, BuildsThePasswordsKey) {
  const struct {
    std::string typed, digested;
  } rows[] = {{"abc", "abc"},
              {"a-b", "a_b"},
              {"#$&*-=@%", "_______%"},
              {std::string(40, 'z'), std::string(32, 'z')},
              {std::string(5000, '@'), std::string(32, '_')}};
  for (const auto& row : rows) {
    unsigned char digest[64];
    SHA512(reinterpret_cast<const unsigned char*>(row.digested.data()), row.digested.size(), digest);
    std::string want = ToHex(digest, 32);
    for (char& c : want) c = static_cast<char>(std::toupper(c));
    unsigned char out[65];
    EXPECT_EQ(::BuildHexPassword(reinterpret_cast<const unsigned char*>(row.typed.c_str()), out), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(out), want.c_str());
  }
  EXPECT_EQ(::BuildHexPassword(nullptr, nullptr), -62);
  const unsigned char empty[] = "";
  EXPECT_EQ(::BuildHexPassword(empty, nullptr), -61);
  const unsigned char some[] = "x";
  EXPECT_EQ(::BuildHexPassword(some, nullptr), -102);
}

}  // namespace
}  // namespace kestrune::testing
