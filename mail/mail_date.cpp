// The routing date as the value of a mail's "Date:" line.
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "core/calendar.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr std::size_t kDateCharacters = 19;
constexpr std::size_t kDateWithZoneCharacters = 24;
constexpr int kZoneOfDateWithout = 2;
constexpr std::size_t kMailDateBytes = 200;

constexpr std::array<const char*, 7> kDayNames = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
// Deliberate: "Mai".
constexpr std::array<const char*, 12> kMonthNames = {"Jan", "Feb", "Mar", "Apr", "Mai", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Reads numbers as the C library's %d does, but says what becomes of one that no int holds: the nearest
// that it holds.
class NumberReader {
 public:
  explicit NumberReader(const char* text) : at_(text) {}

  // A number that is not there is 0, and so are all behind it.
  int Number() {
    if (failed_) return 0;
    SkipBlanks();
    const bool negative = *at_ == '-';
    if (*at_ == '-' || *at_ == '+') ++at_;
    failed_ = !IsDigit(*at_);
    long long value = 0;
    for (; IsDigit(*at_); ++at_) {
      if (value <= INT_MAX) value = value * 10 + (*at_ - '0');
    }
    if (negative) return value > INT_MAX ? INT_MIN : static_cast<int>(-value);
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
  }

  void Expect(char character) {
    if (!failed_ && *at_ == character) {
      ++at_;
    } else {
      failed_ = true;
    }
  }

  void SkipBlanks() {
    while (*at_ == ' ' || (*at_ >= '\t' && *at_ <= '\r')) ++at_;
  }

 private:
  static bool IsDigit(char character) { return character >= '0' && character <= '9'; }

  const char* at_;
  bool failed_ = false;
};

const char* DayName(const char* date) {
  const int day = WeekDayOfDate(date);
  return day < 0 ? "" : kDayNames[static_cast<std::size_t>(day)];
}

const char* MonthName(int month) {
  return month < 1 || month > 12 ? "" : kMonthNames[static_cast<std::size_t>(month) - 1];
}

}  // namespace

int convertkestrunesqldatetoemldate(const char* date, char* out) {
  if (out != nullptr) *out = 0;
  if (date == nullptr) return argument::kNoInput;
  if (out == nullptr) return argument::kNoOutput;
  const std::size_t length = ::strnlen(date, kDateWithZoneCharacters + 1);
  if (length != kDateCharacters && length != kDateWithZoneCharacters) return mail::kBadDate;

  NumberReader reader(date);
  const int year = reader.Number();
  reader.Expect('-');
  const int month = reader.Number();
  reader.Expect('-');
  const int day = reader.Number();
  const int hour = reader.Number();
  reader.Expect(':');
  const int minute = reader.Number();
  reader.Expect(':');
  const int second = reader.Number();
  // Kept so: the number is printed as it is, so that a date without a zone ends in "+002".
  const int zone = length == kDateCharacters ? kZoneOfDateWithout : reader.Number();
  std::snprintf(out, kMailDateBytes, "%s, %d %s %d %02d:%02d:%02d %+04d", DayName(date), day,
                MonthName(month), year, hour, minute, second, zone);
  return kOk;
}
