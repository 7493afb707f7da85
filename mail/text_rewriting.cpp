#include "mail/text_rewriting.h"

#include <algorithm>
#include <cstring>

#include "core/instance_creator.h"
#include "core/string_helpers.h"
#include "core/utils.h"
#include "kestrune_settings.h"

namespace kestrune::mail {

namespace {

constexpr std::size_t kFoldedLineCharacters = 78;
constexpr std::string_view kStops = ", ";       // what ends a piece of an address
constexpr std::size_t kAddressCapacity = 2048;  // of one address or half of one, terminator counted

bool IsLineEnd(char character) {
  return character == '\r' || character == '\n';
}

std::size_t Count(std::string_view text, char character) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), character));
}

// Rewrites one address after the other into a list.
class GatewayList {
 public:
  GatewayList(TypV2Utils* utils, std::string_view separator, TextBuffer* out)
      : utils_(utils), separator_(separator), out_(out), begin_(out->size()) {}

  // What goes beyond the capacity is cut off.
  void Add(std::string_view piece) {
    piece = piece.substr(0, kAddressCapacity - 1 - length_);
    std::memcpy(address_.text() + length_, piece.data(), piece.size());
    length_ += piece.size();
  }

  void FinishAddress() {
    address_.text()[length_] = 0;
    if (out_->size() != begin_) out_->Append(separator_);
    // An empty entry between two commas stays one: it has no domain to be judged by.
    if (length_ != 0) AppendAddress();
    length_ = 0;
  }

 private:
  void AppendAddress() {
    splitat(address_.text(), local_part_.text(), domain_.text());
    if (utils_->isKestruneDomain(domain_.text()) == 1) {
      out_->Append(local_part_.text());
      out_->Append(settings::kGatewayDomain);
    } else {
      out_->Append({address_.text(), length_});
    }
  }

  TypV2Utils* utils_;
  std::string_view separator_;
  TextBuffer* out_;
  std::size_t begin_;
  std::size_t length_ = 0;
  SecretArray<kAddressCapacity> address_;
  SecretArray<kAddressCapacity> local_part_;
  SecretArray<kAddressCapacity> domain_;
};

// What a list can become: each comma behind the first address a separator, each address longer by the gateway's
// domain. Empty entries have none, and before the first address they leave nothing.
std::size_t MostGatewayCharacters(std::string_view addresses, std::string_view separator) {
  const std::size_t first = addresses.find_first_not_of(kStops);
  if (first == std::string_view::npos) return 0;
  std::size_t most = 0;
  for (std::size_t at = first; at < addresses.size();) {
    const std::size_t comma = std::min(addresses.find(',', at), addresses.size());
    most += separator.size();
    if (addresses.find_first_not_of(' ', at) < comma)
      most += comma - at + std::strlen(settings::kGatewayDomain);
    at = comma + 1;
  }
  return most;
}

}  // namespace

void AppendFolded(std::string_view text, std::string_view line_break, TextBuffer* out) {
  out->Reserve(text.size() + text.size() / kFoldedLineCharacters * line_break.size());
  std::size_t line = 0;
  std::size_t copied = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    ++line;
    if (IsLineEnd(text[i])) line = 0;
    if (line != kFoldedLineCharacters || i + 1 == text.size()) continue;
    // Kept so: wherever the 78th character lies, in the middle of a word or of an encoded one.
    out->Append(text.substr(copied, i + 1 - copied));
    out->Append(line_break);
    copied = i + 1;
    line = 0;
  }
  out->Append(text.substr(copied));
}

void AppendOneAddressPerLine(std::string_view addresses, TextBuffer* out) {
  out->Reserve(addresses.size() + Count(addresses, ',') * kContinuation.size());
  while (!addresses.empty()) {
    const std::size_t comma = addresses.find(',');
    if (comma == std::string_view::npos) break;
    out->Append(addresses.substr(0, comma + 1));
    addresses.remove_prefix(comma + 1);
    // A space that is there already serves as the continuation's indent.
    out->Append(addresses.starts_with(' ') ? kLineEnd : kContinuation);
  }
  out->Append(addresses);
}

void AppendWithoutLineEnds(std::string_view text, TextBuffer* out) {
  out->Reserve(text.size());
  while (!text.empty()) {
    const auto stop =
        static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsLineEnd) - text.begin());
    out->Append(text.substr(0, stop));
    text.remove_prefix(std::min(stop + 1, text.size()));
  }
}

void AppendWithCarriageReturns(std::string_view text, TextBuffer* out) {
  out->Reserve(text.size() + Count(text, '\n'));
  while (!text.empty()) {
    const std::size_t stop = std::min(text.find('\n'), text.size());
    out->Append(text.substr(0, stop));
    if (stop == text.size()) break;
    // Kept so: CR LF becomes CR CR LF.
    out->Append(kLineEnd);
    text.remove_prefix(stop + 1);
  }
}

Result AppendGatewayAddresses(std::string_view addresses, std::string_view separator, TextBuffer* out) {
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2Utils> utils(creator.newTypV2Utils());
  if (utils.Init() != kOk) return kNoObject;
  GatewayList list(utils.get(), separator, out);
  out->Reserve(MostGatewayCharacters(addresses, separator));
  while (!addresses.empty()) {
    const auto stop = std::min(addresses.find_first_of(kStops), addresses.size());
    list.Add(addresses.substr(0, stop));
    // Kept so: a space finishes no address, so one in last place loses the last address.
    if (stop == addresses.size() || addresses[stop] == ',') list.FinishAddress();
    addresses.remove_prefix(std::min(stop + 1, addresses.size()));
  }
  return kOk;
}

}  // namespace kestrune::mail
