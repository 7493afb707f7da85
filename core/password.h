// What happens to every pass phrase that enters the library.
#ifndef KESTRUNE_CORE_PASSWORD_H
#define KESTRUNE_CORE_PASSWORD_H

#include <cstring>

namespace kestrune {

// Replaces, in place, the seven characters that key files are never protected with.
inline void SubstitutePasswordCharacters(char* password) {
  for (; *password != 0; ++password) {
    if (std::strchr("#$&*-=@", *password) != nullptr) *password = '_';
  }
}

}  // namespace kestrune

#endif
