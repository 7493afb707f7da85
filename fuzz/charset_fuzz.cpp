// Texts in any character set, through the conversions, into memory that holds what is promised and no more. What the
// library encodes as UTF-8 the C library decodes again, and what that takes for UTF-8 is taken here.
#include <iconv.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "mail/charset.h"

using namespace kestrune::testing;

namespace {

constexpr long kBehindUtf8 = 0x200000;  // what four bytes hold

using LongString = std::vector<long>;  // with its 0

// The C library's reading; false for what is no UTF-8.
bool Decode(const std::string& utf8, LongString* points) {
  static const iconv_t converter = ::iconv_open("WCHAR_T", "UTF-8");
  std::vector<std::uint32_t> codes(utf8.size() + 1);
  char* from = const_cast<char*>(utf8.data());
  auto* to = reinterpret_cast<char*>(codes.data());
  std::size_t left = utf8.size(), room = codes.size() * sizeof codes[0];
  ::iconv(converter, nullptr, nullptr, nullptr, nullptr);
  if (::iconv(converter, &from, &left, &to, &room) == static_cast<std::size_t>(-1)) return false;
  const std::size_t count = codes.size() - room / sizeof codes[0];
  points->assign(codes.begin(), codes.begin() + static_cast<std::ptrdiff_t>(count));
  points->push_back(0);
  return true;
}

// What the C library decodes: also what is beyond Unicode.
bool IsCharacter(long point) {
  return point > 0 && point < kBehindUtf8 && (point < 0xD800 || point > 0xDFFF);
}

void FromUtf8(const std::string& text, long maximum) {
  const std::size_t most = static_cast<std::size_t>(std::max(maximum, 0L));
  // Aligned, and not a byte larger than promised.
  const std::size_t bytes = std::max<std::size_t>(8, std::min(most, text.size()) + 1);
  const std::unique_ptr<char[]> room(new char[bytes]);
  copyTextUtf8ToLongStr(reinterpret_cast<long*>(room.get()), text.c_str(), maximum);
  const std::string got = room.get();
  Expect(got.size() <= most);
  LongString points;
  // The C library knows characters of five bytes and six.
  if (!Decode(text, &points) || *std::max_element(points.begin(), points.end()) >= kBehindUtf8) return;
  for (std::size_t i = 0; i < std::min(most, points.size() - 1); ++i) {
    const char low = static_cast<char>(points[i]);
    if (low == 0) return;  // ends the text too
    Expect(i < got.size() && got[i] == low);
  }
}

void ToUtf8(LongString points) {
  const LongString before = points;
  const std::string text = convertLongStrToUtf8(points.data());
  LongString again;
  const bool are_characters = std::all_of(before.begin(), before.end() - 1, IsCharacter);
  Expect(Decode(text, &again) == are_characters ||
         std::all_of(before.begin(), before.end() - 1, [](long point) {
           return IsCharacter(point) || point < 0 || point >= kBehindUtf8;  // these become the byte 1
         }));
  if (are_characters) Expect(again == before);
}

void FromMac(std::string text, long maximum) {
  const std::size_t present = std::string(text.c_str()).size();
  const std::size_t count = std::min(present, static_cast<std::size_t>(std::max(maximum, 0L)));
  LongString points(count + 1);
  auto* const source = reinterpret_cast<unsigned char*>(text.data());
  Expect(convertMacStrToUnicodeLongStr(points.data(), source, maximum) == points.data());
  Expect(points[count] == 0);
  LongString copy(count + 1);
  copyTextLong(copy.data(), points.data(), maximum);
  Expect(longStrEqual(copy.data(), points.data()) == 1 && copy == points);
  if (count > 0) {
    copyTextLong(copy.data(), points.data(), static_cast<long>(count) - 1);
    Expect(longStrEqual(copy.data(), points.data()) == 0);
  }
  ToUtf8(points);
}

void FromLatin(std::string text) {
  auto* const bytes = reinterpret_cast<unsigned char*>(text.data());
  const std::string before = text;
  convertisolatinversmacroman(bytes, static_cast<long>(text.size()));
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_kept = static_cast<signed char>(before[i]) >= 0 && before[i] != '\n';
    Expect(text[i] != '\n' && (!is_kept || text[i] == before[i]));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint64_t way = input.Number(1);
  const long maximum = static_cast<std::int8_t>(input.Number(1)) * (way >= 128 ? 1L : 1'000L);
  if (way % 4 == 0) FromUtf8(input.Rest(), maximum);
  if (way % 4 == 1) FromMac(input.Rest(), maximum);
  if (way % 4 == 2) FromLatin(input.Rest());
  if (way % 4 == 3) {
    LongString points;
    while (!input.empty()) {
      const std::uint64_t form = input.Number(1);
      const auto point = static_cast<long>(input.Number(form % 4 == 0 ? 8 : form % 4));
      points.push_back(point == 0 ? 1 : point);
    }
    points.push_back(0);
    ToUtf8(points);
  }
  return 0;
}
