#include "core/random.h"

#include <cstdlib>

#include "core/calendar.h"

#ifdef KESTRUNE_STRONG_RANDOM
#include <sys/random.h>

#include <algorithm>
#endif

namespace kestrune {

#ifdef KESTRUNE_STRONG_RANDOM

namespace {

constexpr std::size_t kMostAtOnce = 256;  // a request up to here is never cut short

void FillFromSystem(void* bytes, std::size_t count) {
  // There is nothing sensible to do without the system's entropy.
  if (::getrandom(bytes, count, 0) != static_cast<ssize_t>(count)) std::abort();
}

}  // namespace

bool RandomIsStrong() {
  return true;
}

int DrawRandom() {
  unsigned bits = 0;
  FillFromSystem(&bits, sizeof bits);
  return static_cast<int>(bits & static_cast<unsigned>(RAND_MAX));
}

void SeedRandomWithTime() {}

void ScrubWithRandom(void* bytes, std::size_t count) {
  auto* out = static_cast<unsigned char*>(bytes);
  // In pieces: a call of the system for each byte would take seconds for a text of some megabytes.
  for (std::size_t piece = 0; count > 0; out += piece, count -= piece) {
    piece = std::min(count, kMostAtOnce);
    FillFromSystem(out, piece);
  }
}

#else

bool RandomIsStrong() {
  return false;
}

int DrawRandom() {
  return std::rand();
}

void SeedRandomWithTime() {
  std::srand(static_cast<unsigned>(CurrentTime()));
}

void ScrubWithRandom(void* bytes, std::size_t count) {
  auto* out = static_cast<volatile unsigned char*>(bytes);
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(DrawRandom());
}

#endif

}  // namespace kestrune
