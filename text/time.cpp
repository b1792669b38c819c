// Read from left to right; what is left over makes it no time.
#include "text/time.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <string>

namespace text {
namespace {

constexpr int64_t kSecondUs = 1'000'000;
constexpr int64_t kDayUs = 86'400 * kSecondUs;

struct Unit {
  std::string_view name;
  int64_t us;
};
constexpr Unit kUnits[] = {
    {"us", 1},
    {"ms", 1000},
    {"s", kSecondUs},
    {"sec", kSecondUs},
    {"second", kSecondUs},
    {"seconds", kSecondUs},
    {"m", 60 * kSecondUs},
    {"min", 60 * kSecondUs},
    {"minute", 60 * kSecondUs},
    {"minutes", 60 * kSecondUs},
    {"h", 3600 * kSecondUs},
    {"hr", 3600 * kSecondUs},
    {"hour", 3600 * kSecondUs},
    {"hours", 3600 * kSecondUs},
    {"d", kDayUs},
    {"day", kDayUs},
    {"days", kDayUs},
    {"w", 7 * kDayUs},
    {"week", 7 * kDayUs},
    {"weeks", 7 * kDayUs},
    {"month", 2'629'800 * kSecondUs},
    {"months", 2'629'800 * kSecondUs},
    {"y", 31'557'600 * kSecondUs},
    {"year", 31'557'600 * kSecondUs},
    {"years", 31'557'600 * kSecondUs},
};

std::string_view Trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

/// Take a number of at most `digits` digits off the front of `text`.
std::optional<int64_t> TakeNumber(std::string_view *text, size_t digits) {
  size_t count = 0;
  while (count < text->size() && (*text)[count] >= '0' && (*text)[count] <= '9') ++count;
  if (count == 0 || count > digits) return std::nullopt;
  int64_t number = 0;
  std::from_chars(text->data(), text->data() + count, number);
  text->remove_prefix(count);
  return number;
}

bool Take(std::string_view *text, char wanted) {
  if (text->empty() || text->front() != wanted) return false;
  text->remove_prefix(1);
  return true;
}

/// ".25" as microseconds; 0 when there is none.
std::optional<int64_t> TakeFraction(std::string_view *text) {
  if (!Take(text, '.')) return 0;
  const size_t before = text->size();
  const std::optional<int64_t> number = TakeNumber(text, 9);
  if (!number) return std::nullopt;
  return static_cast<int64_t>(static_cast<double>(*number) *
                              std::pow(10.0, 6.0 - static_cast<double>(before - text->size())));
}

/// "1h 30min": its length, or nothing.
std::optional<int64_t> ParseSpan(std::string_view text) {
  int64_t span = 0;
  text = Trim(text);
  if (text.empty()) return std::nullopt;
  while (!text.empty()) {
    const std::optional<int64_t> number = TakeNumber(&text, 9);
    if (!number) return std::nullopt;
    text = Trim(text);
    size_t letters = 0;
    while (letters < text.size() && text[letters] >= 'a' && text[letters] <= 'z') ++letters;
    const std::string_view name = letters == 0 ? "s" : text.substr(0, letters);
    int64_t us = 0;
    for (const Unit &unit : kUnits) us = unit.name == name ? unit.us : us;
    if (us == 0 || (letters == 0 && !text.empty())) return std::nullopt;
    if (__builtin_mul_overflow(us, *number, &us) || __builtin_add_overflow(span, us, &span)) return std::nullopt;
    text = Trim(text.substr(letters));
  }
  return span;
}

tm LocalParts(int64_t us) {
  const time_t seconds = us / kSecondUs;
  tm parts{};
  localtime_r(&seconds, &parts);
  return parts;
}

/// The start of the day `days` from now.
int64_t DayStart(int64_t nowUs, int days) {
  tm parts = LocalParts(nowUs);
  parts.tm_mday += days;
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  parts.tm_isdst = -1;
  return mktime(&parts) * kSecondUs;
}

/// "2026-11-21" into `parts`; an ending that is no date leaves `text` as it is.
bool TakeDate(std::string_view *text, tm *parts) {
  std::string_view rest = *text;
  const std::optional<int64_t> year = TakeNumber(&rest, 4);
  if (!year || !Take(&rest, '-')) return false;
  const std::optional<int64_t> month = TakeNumber(&rest, 2);
  if (!month || !Take(&rest, '-')) return false;
  const std::optional<int64_t> day = TakeNumber(&rest, 2);
  if (!day || *year < 1970 || *month < 1 || *month > 12 || *day < 1 || *day > 31) return false;
  parts->tm_year = static_cast<int>(*year) - 1900;
  parts->tm_mon = static_cast<int>(*month) - 1;
  parts->tm_mday = static_cast<int>(*day);
  *text = rest;
  return true;
}

/// "12:00" or "12:00:30.5" into `parts`. The fraction's microseconds, or nothing.
std::optional<int64_t> TakeTimeOfDay(std::string_view *text, tm *parts) {
  const std::optional<int64_t> hour = TakeNumber(text, 2);
  if (!hour || !Take(text, ':')) return std::nullopt;
  const std::optional<int64_t> minute = TakeNumber(text, 2);
  if (!minute || *hour > 23 || *minute > 59) return std::nullopt;
  parts->tm_hour = static_cast<int>(*hour);
  parts->tm_min = static_cast<int>(*minute);
  if (!Take(text, ':')) return 0;
  const std::optional<int64_t> second = TakeNumber(text, 2);
  if (!second || *second > 60) return std::nullopt;
  parts->tm_sec = static_cast<int>(*second);
  return TakeFraction(text);
}

/// What is left behind a time: nothing is local time, "Z", "UTC", or "+02:00". The seconds east of Greenwich.
struct Zone {
  bool local = true;
  int64_t east = 0;
};
std::optional<Zone> TakeZone(std::string_view text) {
  text = Trim(text);
  if (text.empty()) return Zone{};
  if (text == "Z" || text == "UTC") return Zone{false, 0};
  const int64_t sign = text.front() == '-' ? -1 : 1;
  if (text.front() != '+' && text.front() != '-') return std::nullopt;
  text.remove_prefix(1);
  const bool packed = text.size() == 4;
  const std::string hours(text.substr(0, 2));
  std::string_view hourText = hours;
  const std::optional<int64_t> hour = TakeNumber(&hourText, 2);
  if (!hour || !hourText.empty()) return std::nullopt;
  text.remove_prefix(2);
  if (!packed && !text.empty() && !Take(&text, ':')) return std::nullopt;
  const std::optional<int64_t> minute = text.empty() ? 0 : TakeNumber(&text, 2);
  if (!minute || !text.empty() || *hour > 14 || *minute > 59) return std::nullopt;
  return Zone{false, sign * (*hour * 3600 + *minute * 60)};
}

std::optional<int64_t> ParseMoment(std::string_view text, int64_t nowUs) {
  tm parts = LocalParts(nowUs);
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  parts.tm_isdst = -1;
  int64_t fraction = 0;
  const bool dated = TakeDate(&text, &parts);
  if (!dated || (!text.empty() && (Take(&text, ' ') || Take(&text, 'T')))) {
    const std::optional<int64_t> taken = TakeTimeOfDay(&text, &parts);
    if (!taken) return std::nullopt;
    fraction = *taken;
  }
  const int day = parts.tm_mday;
  const std::optional<Zone> zone = TakeZone(text);
  if (!zone) return std::nullopt;
  const time_t seconds = zone->local ? mktime(&parts) : timegm(&parts) - zone->east;
  if (zone->local && parts.tm_mday != day) return std::nullopt;  // there is no such day in that month
  return seconds * kSecondUs + fraction;
}

}  // namespace

std::optional<int64_t> ParseTime(std::string_view text, int64_t nowUs) {
  text = Trim(text);
  if (text.empty()) return std::nullopt;
  if (text == "now") return nowUs;
  if (text == "today") return DayStart(nowUs, 0);
  if (text == "yesterday") return DayStart(nowUs, -1);
  if (text == "tomorrow") return DayStart(nowUs, 1);
  if (Take(&text, '@')) {
    const std::optional<int64_t> seconds = TakeNumber(&text, 11);
    const std::optional<int64_t> fraction = TakeFraction(&text);
    if (!seconds || !fraction || !text.empty()) return std::nullopt;
    return *seconds * kSecondUs + *fraction;
  }
  constexpr std::string_view kAgo = " ago";
  const bool ago = text.ends_with(kAgo);
  if (ago) text.remove_suffix(kAgo.size());
  if (ago || text.front() == '-' || text.front() == '+') {
    const bool back = ago || text.front() == '-';
    const std::optional<int64_t> span = ParseSpan(ago ? text : text.substr(1));
    if (!span || *span > nowUs) return std::nullopt;
    return back ? nowUs - *span : nowUs + *span;
  }
  return ParseMoment(text, nowUs);
}

}  // namespace text
