// The routing date as the value of a mail's "Date:" line.
#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>

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
// Kept so: "Mai".
constexpr std::array<const char*, 12> kMonthNames = {"Jan", "Feb", "Mar", "Apr", "Mai", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Reads numbers as the C library's %d does, but says what becomes of one that no int holds: the nearest
// that it holds.
class NumberReader {
 public:
  explicit NumberReader(std::string_view text) : text_(text) {}

  // A number that is not there is 0, and so are all behind it.
  int Number() {
    if (failed_) return 0;
    text_.remove_prefix(std::min(text_.find_first_not_of(kBlanks), text_.size()));
    const bool negative = text_.starts_with('-');
    if (text_.starts_with('+') && !text_.substr(1).starts_with('-')) text_.remove_prefix(1);
    int value = 0;
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), value);
    failed_ = error == std::errc::invalid_argument;
    text_.remove_prefix(static_cast<std::size_t>(end - text_.data()));
    if (error != std::errc::result_out_of_range) return value;
    return negative ? INT_MIN : INT_MAX;
  }

  void Expect(char character) {
    failed_ = failed_ || !text_.starts_with(character);
    if (!failed_) text_.remove_prefix(1);
  }

 private:
  static constexpr std::string_view kBlanks = " \t\n\v\f\r";

  std::string_view text_;
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

  NumberReader reader({date, length});
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
