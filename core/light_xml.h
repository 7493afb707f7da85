// Reading light XML: flat tagged text without attributes, nesting or escaping.
#ifndef KESTRUNE_CORE_LIGHT_XML_H
#define KESTRUNE_CORE_LIGHT_XML_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "core/result.h"
#include "core/utils.h"

namespace kestrune {

struct LightXmlElement {
  std::string_view value;  // lies in the text
  std::size_t end;         // position behind the closing tag
};

// The first element <tag>...</tag> of `xml` from position `from` on; its value runs to the first closing tag
// of that name. Allocates nothing, and takes time in proportion to the text for tags as short as ours.
std::optional<LightXmlElement> FindElement(std::string_view xml, std::string_view tag, std::size_t from = 0);

// TypV2Utils::ExtractSmallValueFromXMLLight, asked through its slot, for the first element of that name.
inline Result ExtractFirst(TypV2Utils* utils, const char* xml, const char* tag, char* out,
                           unsigned long long most) {
  return utils->ExtractSmallValueFromXMLLight(xml, tag, 1, out, 0, most);
}

}  // namespace kestrune

#endif
