// Random bytes of the system's generator.
#ifndef KESTRUNE_BASE_SYSTEM_RANDOM_H
#define KESTRUNE_BASE_SYSTEM_RANDOM_H

#include <sys/random.h>

#include <algorithm>
#include <cstddef>

#include "base/uninterrupted.h"

namespace kestrune {

// Straight from the system: nothing has to be set up or seeded, and nothing lives between calls, across a fork
// least of all. False when it has none.
inline bool DrawFromSystem(unsigned char* output, std::size_t count) {
  constexpr std::size_t kMostAtOnce = 256;  // a request up to here is never cut short
  while (count > 0) {
    const std::size_t wanted = std::min(count, kMostAtOnce);
    if (Uninterrupted([&] { return ::getrandom(output, wanted, 0); }) != static_cast<ssize_t>(wanted))
      return false;
    output += wanted;
    count -= wanted;
  }
  return true;
}

}  // namespace kestrune

#endif
