#include "core/light_xml.h"

namespace kestrune {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr std::string_view kOpening = "<";
constexpr std::string_view kClosing = "</";
constexpr std::string_view kTagEnd = ">";

// Where `opening`, the name and ">" stand together.
std::size_t FindTag(std::string_view xml, std::string_view opening, std::string_view name, std::size_t from) {
  for (std::size_t at = xml.find(opening, from); at != kNowhere; at = xml.find(opening, at + 1)) {
    const std::string_view rest = xml.substr(at + opening.size());
    if (rest.starts_with(name) && rest.substr(name.size()).starts_with(kTagEnd)) return at;
  }
  return kNowhere;
}

}  // namespace

std::optional<LightXmlElement> FindElement(std::string_view xml, std::string_view tag, std::size_t from) {
  const std::size_t open = FindTag(xml, kOpening, tag, from);
  if (open == kNowhere) return std::nullopt;
  const std::size_t begin = open + kOpening.size() + tag.size() + kTagEnd.size();
  const std::size_t close = FindTag(xml, kClosing, tag, begin);
  if (close == kNowhere) return std::nullopt;
  return LightXmlElement{xml.substr(begin, close - begin),
                         close + kClosing.size() + tag.size() + kTagEnd.size()};
}

}  // namespace kestrune
