// The time of a log record. Stateless: any thread.
#include "hosted/log/logTime.h"

#include <time.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

namespace hosted {
namespace {

/// Write `value` as `digits` decimal digits, and return what lies behind them.
char *Digits(char *at, int64_t value, int digits) {
  for (int i = digits - 1; i >= 0; --i) {
    at[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return at + digits;
}

struct CivilDate {
  int64_t year, month, day;
};

/// The Gregorian date of a day counted from 1 January 1970. Years are counted from March, so that a leap day is a
/// year's last, in cycles of 400 years, which all have the same number of days.
CivilDate DateOfDay(int64_t day) {
  constexpr int64_t kCycleDays = 146'097;
  day += 719'468;  // from 1 March of the year 0
  const int64_t cycle = (day >= 0 ? day : day - (kCycleDays - 1)) / kCycleDays;
  const int64_t inCycle = day - cycle * kCycleDays;
  const int64_t year = (inCycle - inCycle / 1460 + inCycle / 36'524 - inCycle / 146'096) / 365;
  const int64_t inYear = inCycle - (365 * year + year / 4 - year / 100);
  const int64_t fromMarch = (5 * inYear + 2) / 153;
  const int64_t month = fromMarch < 10 ? fromMarch + 3 : fromMarch - 9;
  return {year + cycle * 400 + (month <= 2 ? 1 : 0), month, inYear - (153 * fromMarch + 2) / 5 + 1};
}

/// A second and its text, "2024-01-31T23:59:59.".
struct Second {
  int64_t seconds = std::numeric_limits<int64_t>::min();
  std::array<char, 20> text{};
};

void FormatSecond(int64_t seconds, Second *out) {
  constexpr int64_t kDaySeconds = 86'400;
  const int64_t day = (seconds >= 0 ? seconds : seconds - (kDaySeconds - 1)) / kDaySeconds;
  const int64_t inDay = seconds - day * kDaySeconds;
  const CivilDate date = DateOfDay(day);
  char *text = out->text.data();
  const auto put = [&text](int64_t value, int digits, char after) {
    text = Digits(text, value, digits);
    *text++ = after;
  };
  put(date.year, 4, '-');
  put(date.month, 2, '-');
  put(date.day, 2, 'T');
  put(inDay / 3600, 2, ':');
  put(inDay / 60 % 60, 2, ':');
  put(inDay % 60, 2, '.');
  out->seconds = seconds;
}

}  // namespace

void FormatLogTime(const timespec &time, char *text) {
  // A storm's records mostly fall into the second of the one before.
  thread_local Second last;
  if (last.seconds != time.tv_sec) FormatSecond(time.tv_sec, &last);
  std::memcpy(text, last.text.data(), last.text.size());
  *Digits(text + last.text.size(), time.tv_nsec / 1000, 6) = 'Z';
}

void FormatLogTime(char *text) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  FormatLogTime(now, text);
}

}  // namespace hosted
