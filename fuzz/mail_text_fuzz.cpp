// Mail texts of any content, rewritten in memory that holds the largest result promised and no byte more.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "base/buffer.h"
#include "core/result.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "kestrune_settings.h"
#include "mail/mail_text.h"
#include "tests/support/bytes.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

std::size_t Count(std::string_view text, char character) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), character));
}

// `longer` is what the contract lets a text grow by.
template <class Function>
std::string Rewritten(Function&& function, const std::string& text, std::size_t longer) {
  std::vector<char> room(text.size() + longer + 1);
  text.copy(room.data(), text.size());
  function(room.data());
  return room.data();
}

void ExpectLines(std::string_view text, std::size_t most) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    Expect(end <= most);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::string Without(std::string text, std::string_view characters) {
  std::erase_if(text, [&](char character) { return characters.find(character) != std::string_view::npos; });
  return text;
}

void RewriteLines(const std::string& text) {
  constexpr std::size_t kLine = 78;
  const std::size_t breaks = text.empty() ? 0 : (text.size() - 1) / kLine;
  const std::string bare = Rewritten(enleverlf, text, 0);
  Expect(bare == Without(text, "\r\n"));
  const std::string folded = Rewritten(limite78, text, 3 * breaks);
  ExpectLines(folded, 1 + kLine);
  Expect(Without(folded, "\r\n ") == Without(text, "\r\n "));
  const std::string simple = Rewritten(limite78simple, text, 2 * breaks);
  ExpectLines(simple, kLine);
  Expect(Without(simple, "\r\n") == bare);
  const std::string with_returns = Rewritten(convertlftocrlf, text, Count(text, '\n'));
  Expect(with_returns.size() == text.size() + Count(text, '\n') && Without(with_returns, "\r\n") == bare);
}

void RewriteAddresses(const std::string& list) {
  const std::size_t commas = Count(list, ',');
  const std::string lines = Rewritten(limiteemails, list, 3 * commas);
  Expect(Without(lines, "\r\n ") == Without(list, "\r\n "));
  const std::size_t gateway = std::strlen(settings::kGatewayDomain);
  const auto convert = [](char* text) { Expect(convertaddressestomss(text, text) == kOk); };
  const std::string routed = Rewritten(convert, list, commas + (commas + 1) * gateway);
  Expect(Count(routed, ',') <= commas);
}

// RFC 2045, 6.7.
std::string DecodedQuotedPrintable(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '=') {
      decoded.push_back(text[i]);
      continue;
    }
    Expect(i + 2 < text.size());
    const std::string_view digits = text.substr(i + 1, 2);
    if (digits != "\r\n") decoded.push_back(static_cast<char>(FromHex(digits).at(0)));
    i += 2;
  }
  return decoded;
}

void EncodeText(const std::string& text) {
  char* encoded = nullptr;
  unsigned long long length = 0;
  Expect(api2encodeQuotedPrintable(text.data(), text.size(), &encoded, &length) == kOk);
  CBuffer owned;
  owned.AdoptText(encoded);
  Expect(length == std::strlen(encoded));
  Expect(length <= 3 * text.size() + (text.empty() ? 0 : 3 * ((text.size() - 1) / 25)));
  Expect(DecodedQuotedPrintable(encoded) == text);
}

void ConvertDate(const std::string& date) {
  std::vector<char> room(200);
  const int rc = convertkestrunesqldatetoemldate(date.c_str(), room.data());
  const std::size_t length = std::strlen(date.c_str());
  Expect(rc == (length == 19 || length == 24 ? kOk : mail::kBadDate));
  Expect((rc == kOk) == (room[0] != 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  switch (input.Number(1) % 4) {
    case 0:
      RewriteLines(input.Text());
      break;
    case 1:
      RewriteAddresses(input.Text());
      break;
    case 2:
      EncodeText(input.Rest());
      break;
    default:
      ConvertDate(input.Text());
  }
  return 0;
}
