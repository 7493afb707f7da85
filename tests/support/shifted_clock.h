// Another date and time zone for the program under test.
#ifndef KESTRUNE_TESTS_SUPPORT_SHIFTED_CLOCK_H
#define KESTRUNE_TESTS_SUPPORT_SHIFTED_CLOCK_H

#include <ctime>
#include <functional>
#include <string>

namespace kestrune::testing {

// While it lives, time() stands still at `now` (seconds since the epoch), or answers what `now` gives at each
// question, and local time is that of `zone` (as in TZ: "EAST-1" is an hour ahead of UTC). A program that uses
// it has its own time() in place of the C library's.
class ShiftedClock {
 public:
  ShiftedClock(std::function<std::time_t()> now, const std::string& zone);
  ShiftedClock(std::time_t now, const std::string& zone);
  ShiftedClock(const ShiftedClock&) = delete;
  ShiftedClock& operator=(const ShiftedClock&) = delete;
  ~ShiftedClock();
};

}  // namespace kestrune::testing

#endif
