#include "api/sender.h"

#include <algorithm>

#include <kestrune/kestrune.h>

namespace kestrune {

// A beginning is not enough: "martin.x" is another sender than "martin".
bool IsSender(std::string_view signer, std::string_view from) {
  constexpr std::size_t kGenerationCharacters = 3;  // ".z."
  if (from.empty() || !signer.starts_with(from)) return false;
  const std::string_view rest = signer.substr(from.size());
  if (rest.size() <= kGenerationCharacters) return false;
  const std::string_view year = rest.substr(kGenerationCharacters);
  return rest[0] == '.' && rest[1] >= 'a' && rest[1] <= 'z' && rest[2] == '.' &&
         std::all_of(year.begin(), year.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

}  // namespace kestrune

int kestrune_is_sender(const char* signer, const char* from) {
  return signer != nullptr && from != nullptr && kestrune::IsSender(signer, from) ? 1 : 0;
}
