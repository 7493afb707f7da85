#include "core/random.h"

#include <atomic>
#include <cstdlib>

#include "base/system_random.h"
#include "core/calendar.h"

namespace kestrune {
namespace {

#ifdef KESTRUNE_STRONG_RANDOM
constexpr bool kSystemFromTheStart = true;
#else
constexpr bool kSystemFromTheStart = false;
#endif

std::atomic<bool> system_draws{kSystemFromTheStart};

void FillFromSystem(void* bytes, std::size_t count) {
  // There is nothing sensible to do without the system's entropy.
  if (!DrawFromSystem(static_cast<unsigned char*>(bytes), count)) std::abort();
}

}  // namespace

void UseSystemRandom() {
  system_draws = true;
}

bool RandomIsStrong() {
  return system_draws.load(std::memory_order_relaxed);
}

int DrawRandom() {
  if (!RandomIsStrong()) return std::rand();
  unsigned bits = 0;
  FillFromSystem(&bits, sizeof bits);
  return static_cast<int>(bits & static_cast<unsigned>(RAND_MAX));
}

void SeedRandomWithTime() {
  if (!RandomIsStrong()) std::srand(static_cast<unsigned>(CurrentTime()));
}

void ScrubWithRandom(void* bytes, std::size_t count) {
  if (!RandomIsStrong()) {
    auto* out = static_cast<volatile unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(std::rand());
    return;
  }
  // Not byte by byte: a call of the system for each would take seconds for a text of some megabytes.
  FillFromSystem(bytes, count);
}

}  // namespace kestrune
