#include "core/random.h"

#include <cstdlib>

#include "core/calendar.h"

#ifdef KESTRUNE_STRONG_RANDOM
#include <sys/random.h>
#endif

namespace kestrune {

#ifdef KESTRUNE_STRONG_RANDOM

int DrawRandom() {
  unsigned bits = 0;
  // A request this small is never cut short; there is nothing sensible to do without the system's entropy.
  if (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) std::abort();
  return static_cast<int>(bits & static_cast<unsigned>(RAND_MAX));
}

void SeedRandomWithTime() {}

#else

int DrawRandom() {
  return std::rand();
}

void SeedRandomWithTime() {
  std::srand(static_cast<unsigned>(CurrentTime()));
}

#endif

void ScrubWithRandom(void* bytes, std::size_t count) {
  auto* out = static_cast<volatile unsigned char*>(bytes);
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(DrawRandom());
}

}  // namespace kestrune
