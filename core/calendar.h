// The one place where the library asks what time it is. Threads take turns: the C library's calendar keeps
// the time zone for all of them.
#ifndef KESTRUNE_CORE_CALENDAR_H
#define KESTRUNE_CORE_CALENDAR_H

#include <ctime>

namespace kestrune {

// Seconds since the epoch.
std::time_t CurrentTime();

// Now, broken down in the local time zone.
std::tm LocalCalendar();

// Now, with nanoseconds.
std::timespec CurrentTimeWithNanoseconds();

// Day of the week of a date that begins with "YYYY-MM-DD", 0 for Sunday, in the local time zone; -1 for any
// other text and for a date before 1970.
int WeekDayOfDate(const char* date);

}  // namespace kestrune

#endif
