// The small readers that foreign texts reach: light XML, lists, addresses, names of keys and signers, result codes and
// languages. A text begins with what is asked for, up to a zero; all outputs have the room promised and no byte more.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/result.h"
#include "core/string_helpers.h"
#include "core/utils.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "tests/support/bytes.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

// What comes first, as in tests/support.
void FindFirstElement(const std::string& tag, const std::string& xml, std::uint64_t most) {
  std::vector<char> value(xml.size() + 1);
  const int rc = api2ExtractSmallValueFromXMLLight(xml.c_str(), tag.c_str(), 1, value.data(), 0, most);
  const bool is_there = xml.find("<" + tag + ">") != std::string::npos &&
                        xml.find("</" + tag + ">", xml.find("<" + tag + ">")) != std::string::npos;
  Expect(is_there ? rc == kOk || rc == utils::kValueTooLong : rc == utils::kTagMissing);
  const std::string want = is_there ? ValueOf(xml, tag) : "";
  if (is_there) Expect((rc == kOk) == (most == 0 || want.size() <= most));
  if (rc == kOk) Expect(value.data() == want);
}

void FindElements(const std::string& tag, const std::string& xml, std::uint64_t start) {
  std::vector<char> value(xml.size() + 1);
  for (unsigned n = 0; n < 4; ++n) {
    const int rc = api2ExtractSmallValueFromXMLLight(xml.c_str(), tag.c_str(), n, value.data(), start, 0);
    Expect(rc == kOk || rc == utils::kTagMissing);
    if (rc == kOk) Expect(n > 0 && xml.find(value.data()) != std::string::npos);
  }
}

void SplitList(TypV2Utils& utils, const std::string& list, char separator) {
  std::array<char*, 5> elements{};
  long long count = elements.size();
  const int rc = utils.GetElementsFromList(list.c_str(), separator, elements.data(), &count);
  Expect((rc == kOk && count < 5) || (rc == utils::kListFull && count == 5));
  std::string joined;
  for (long long i = 0; i < count; ++i)
    joined += (i == 0 ? "" : std::string(1, separator)) + elements.at(static_cast<std::size_t>(i));
  Expect(rc == kOk ? joined == list : list.starts_with(joined));
  Expect(utils.FreeElementsListContent(elements.data(), count) == kOk);
}

void TakeAddressApart(TypV2Utils& utils, const std::string& address) {
  std::vector<char> prefix(256), domain(256);
  const int rc = utils.extractprefixemail(address.c_str(), prefix.data());
  Expect(rc == utils.extractdomainemail(address.c_str(), domain.data()));
  Expect(rc == (address.size() < 256 ? kOk : utils::kAddressTooLong));
  if (rc == kOk) {
    const bool has_domain = address.find('@') != std::string::npos;
    Expect(prefix.data() + std::string(has_domain ? "@" : "") + domain.data() == address);
    (void)utils.isKestruneDomain(domain.data());
  }
  for (auto* const split : {splitat, splitvirgule}) {
    std::vector<char> first(address.size() + 1), second(address.size() + 1);
    split(address.c_str(), first.data(), second.data());
    Expect(address.starts_with(first.data()) && address.find(second.data()) != std::string::npos);
  }
}

void ReadNames(TypV2Utils& utils, const std::string& name, const std::string& other) {
  std::array<char, 4> year;
  const int rc = utils.ExtractFileSuffix(name.c_str(), year.data());
  Expect((name.size() < 4 || name.size() > 44) == (rc == utils::kBadFileName));
  if (rc == kOk) Expect(year[0] == '2' && name.ends_with(year.data()));
  if (kestrune_is_sender(name.c_str(), other.c_str()) == 1) {
    Expect(!other.empty() && name.starts_with(other + ".") &&
           name.find('.', other.size() + 1) == other.size() + 2);
  }
  Expect((utils.endwith(name.c_str(), other.c_str()) == 1) == name.ends_with(other));
  const auto at = utils.possubstring(name.c_str(), other.c_str());
  Expect(at == (name.find(other) == std::string::npos ? -1 : static_cast<long long>(name.find(other))));
  const auto* const bytes = reinterpret_cast<const unsigned char*>(name.data());
  const auto without_case = utils.possubstringsimplenocase(bytes, name.size(), 0, other.c_str());
  Expect(at < 0 || (without_case >= 0 && without_case <= at));
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  Expect((utils.isnumericsstring(other.c_str()) == 1) ==
         (!other.empty() && std::all_of(other.begin(), other.end(), is_digit)));
  std::string lower = name;
  lowercasecharstring(lower.data(), lower.size());
  Expect(std::none_of(lower.begin(), lower.end(), [](char c) { return c >= 'A' && c <= 'Z'; }));
}

void ExplainCode(const std::string& entry_point, const std::string& language, long code) {
  const kestrune_code_meaning* const found = kestrune_code_find(entry_point.c_str(), code, language.c_str());
  const char* const text = kestrune_code_text(entry_point.c_str(), code, language.c_str());
  Expect(text != nullptr && *text != 0);
  if (found != nullptr) Expect(found->code == code && std::string(text).starts_with(found->cause));
  for (unsigned long n = 0; n < 30; ++n) {
    if (kestrune_code_list(code, n, language.c_str()) == nullptr) return;
  }
  Expect(false);
}

void TakeHex(TypV2Utils& utils, const std::string& digits) {
  std::vector<unsigned char> bytes((digits.size() + 1) / 2);
  unsigned long long count = 0;
  utils.DeHexadecimalise(digits.c_str(), bytes.data(), &count);
  Expect(count == bytes.size());
  if (count == 0) return;
  std::vector<char> again(2 * bytes.size() + 1);
  utils.Hexadecimalise(bytes.data(), count, again.data());
  for (std::size_t i = 0; i < digits.size(); ++i) {
    Expect(utils.hextodec(again[i]) == utils.hextodec(digits[i]));
  }
}

// The copying functions ignore the size that they are given.
void CopyTexts(const std::string& text, const std::string& other) {
  std::vector<char> joined(text.size() + other.size() + 1), old = joined;
  Expect(ApiV2Mystrcpy(joined.data(), text.c_str(), 0) == joined.data());
  Expect(ApiV2Mystrcat(joined.data(), other.c_str(), 0) == joined.data());
  Expect(ApiV2Myoldstrcat(ApiV2Myoldstrcpy(old.data(), text.c_str()), other.c_str()) == old.data());
  Expect(joined == old && joined.data() == text + other);
  char* copy = nullptr;
  Expect(ApiV2InitCcharstringWithConst(&copy, text.c_str()) == text.size() + 1 && copy == text);
  ApiV2MyFreeClear(copy, text.size());
}

// Turned twice, a number is what it was.
template <class Number>
void TurnNumber(TypV2Utils& utils, void (TypV2Utils::*turn)(Number*), std::uint64_t value) {
  auto turned = static_cast<Number>(value);
  (utils.*turn)(&turned);
  for (std::size_t i = 0; i < sizeof turned; ++i) {
    Expect(reinterpret_cast<unsigned char*>(&turned)[i] ==
           static_cast<unsigned char>(value >> (8 * (sizeof turned - 1 - i))));
  }
  (utils.*turn)(&turned);
  Expect(turned == static_cast<Number>(value));
}

void TurnNumbers(TypV2Utils& utils, std::uint64_t value) {
  TurnNumber(utils, &TypV2Utils::swapshort, value);
  TurnNumber(utils, &TypV2Utils::swapapilong, value);
  TurnNumber(utils, &TypV2Utils::swapUnsignedapilong, value);
  TurnNumber(utils, &TypV2Utils::swapapilong64, value);
  TurnNumber(utils, &TypV2Utils::swapUnsignedapilong64, value);
}

void JoinTexts(TypV2Utils& utils, const std::string& text, long long count, long long capacity) {
  std::vector<char> joined(static_cast<std::size_t>(std::max(capacity, 1LL)));
  std::vector<char> pushed = joined;
  long long position = 0;
  unsigned long long pushed_to = 0;
  for (int i = 0; i < 3; ++i) {
    const auto most = std::min<long long>(count, static_cast<long long>(text.size()));
    const int rc = utils.Concatenate(joined.data(), text.data(), most, &position, capacity);
    Expect(rc == kOk || rc == utils::kDoesNotFit || rc == utils::kNegative);
    Expect(position == 0 || (position < capacity && joined[static_cast<std::size_t>(position)] == 0));
    if (most >= 0)
      ApiV2Mystrpush(pushed.data(), pushed.size(), &pushed_to, text.data(),
                     static_cast<unsigned long long>(most));
    Expect(pushed_to == 0 || pushed_to < pushed.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static TypV2Utils utils;
  Input input(data, size);
  const std::uint64_t what = input.Number(1), number = input.Number(1);
  const std::string asked = input.Text(), text = input.Text();
  switch (what % 10) {
    case 0:
      FindFirstElement(asked, text, number % 32);
      break;
    case 1:
      FindElements(asked, text, number);
      break;
    case 2:
      SplitList(utils, asked, number == 0 ? ',' : static_cast<char>(number));
      break;
    case 3:
      TakeAddressApart(utils, asked);
      break;
    case 4:
      ReadNames(utils, asked, text);
      break;
    case 5:
      ExplainCode(asked, text, -static_cast<long>(number) * (what < 128 ? 1 : 8));
      break;
    case 6:
      TakeHex(utils, asked);
      break;
    case 7:
      CopyTexts(asked, text);
      break;
    case 8: {
      Input digits(reinterpret_cast<const std::uint8_t*>(asked.data()), asked.size());
      TurnNumbers(utils, digits.Number());
      break;
    }
    default:
      JoinTexts(utils, asked, static_cast<std::int8_t>(number), static_cast<long long>(what));
  }
  return 0;
}
