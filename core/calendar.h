// The one place where the library asks what time it is.
#ifndef KESTRUNE_CORE_CALENDAR_H
#define KESTRUNE_CORE_CALENDAR_H

#include <ctime>

#include "crypto/export.h"

namespace kestrune {

// Seconds since the epoch.
KESTRUNE_API std::time_t CurrentTime();

// Now, broken down in the local time zone.
KESTRUNE_API std::tm LocalCalendar();

// Now, with nanoseconds.
KESTRUNE_API std::timespec CurrentTimeWithNanoseconds();

}  // namespace kestrune

#endif
