#include "core/calendar.h"

namespace kestrune {

std::time_t CurrentTime() {
  return std::time(nullptr);
}

std::tm LocalCalendar() {
  const std::time_t now = CurrentTime();
  std::tm local{};
  // Unlike localtime, the reentrant form need not look at the zone itself.
  ::tzset();
  ::localtime_r(&now, &local);
  return local;
}

std::timespec CurrentTimeWithNanoseconds() {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

}  // namespace kestrune
