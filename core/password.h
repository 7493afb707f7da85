// What happens to every pass phrase that enters the library.
#ifndef KESTRUNE_CORE_PASSWORD_H
#define KESTRUNE_CORE_PASSWORD_H

#include "base/byte_mask.h"

namespace kestrune {

// Replaces, in place, the seven characters that key files are never protected with. How long it takes tells the
// number of characters alone.
inline void SubstitutePasswordCharacters(char* password) {
  constexpr unsigned char kNever[] = {'#', '$', '&', '*', '-', '=', '@'};
  for (; *password != 0; ++password) {
    const auto character = static_cast<unsigned char>(*password);
    ByteMask replaced = 0;
    for (const unsigned char never : kNever) replaced |= IsBetween(character, never, never);
    *password = static_cast<char>((character & ~replaced) | ('_' & replaced));
  }
}

}  // namespace kestrune

#endif
