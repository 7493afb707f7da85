#include "tests/support/shifted_clock.h"

#include <cstdlib>
#include <utility>

namespace {
std::function<std::time_t()> g_now;
}  // namespace

extern "C" std::time_t time(std::time_t* out) noexcept {
  std::timespec real{};
  ::clock_gettime(CLOCK_REALTIME, &real);
  const std::time_t now = g_now ? g_now() : real.tv_sec;
  if (out != nullptr) *out = now;
  return now;
}

namespace kestrune::testing {

ShiftedClock::ShiftedClock(std::time_t now, const std::string& zone)
    : ShiftedClock([now] { return now; }, zone) {}

ShiftedClock::ShiftedClock(std::function<std::time_t()> now, const std::string& zone) {
  ::setenv("TZ", zone.c_str(), 1);
  g_now = std::move(now);
}

ShiftedClock::~ShiftedClock() {
  g_now = nullptr;
  ::unsetenv("TZ");
}

}  // namespace kestrune::testing
