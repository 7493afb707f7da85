#include "core/calendar.h"

#include <cstring>

#include "base/shared_state.h"

namespace kestrune {

std::time_t CurrentTime() {
  return std::time(nullptr);
}

std::tm LocalCalendar() {
  const std::time_t now = CurrentTime();
  std::tm local{};
  const SharedState shared;
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

int WeekDayOfDate(const char* date) {
  constexpr std::size_t kDateCharacters = 10;  // only they are looked at
  char day[kDateCharacters + 1] = {};
  std::strncpy(day, date, kDateCharacters);
  std::tm calendar{};
  const SharedState shared;
  if (::strptime(day, "%Y-%m-%d", &calendar) == nullptr) return -1;
  const std::time_t midnight = std::mktime(&calendar);
  if (midnight < 0) return -1;
  ::localtime_r(&midnight, &calendar);
  return calendar.tm_wday;
}

}  // namespace kestrune
