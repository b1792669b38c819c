// Times by hand: strftime knows no fractions of a second.
#include "rynctl/showing/eventTime.h"

#include <cstdio>
#include <ctime>

namespace rynctl {
namespace {

constexpr uint64_t kMicrosecondsPerSecond = 1'000'000;

time_t Seconds(uint64_t microseconds) {
  return static_cast<time_t>(microseconds / kMicrosecondsPerSecond);
}

/// Any 64-bit count of microseconds gives a year that fits, so the conversion does not fail.
tm Local(uint64_t microseconds) {
  const time_t seconds = Seconds(microseconds);
  tm parts{};
  localtime_r(&seconds, &parts);
  return parts;
}

std::string Date(const tm &parts) {
  char text[64];
  std::snprintf(text, sizeof text, "%04ld-%02d-%02d", parts.tm_year + 1900L, parts.tm_mon + 1, parts.tm_mday);
  return text;
}

/// The time of day with `digits` (up to 6) digits of the second's fraction.
std::string TimeOfDay(const tm &parts, uint64_t microseconds, size_t digits) {
  char text[64];
  const int length = std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06u", parts.tm_hour, parts.tm_min, parts.tm_sec,
                                   static_cast<unsigned>(microseconds % kMicrosecondsPerSecond));
  return {text, static_cast<size_t>(length) - (6 - digits)};
}

}  // namespace

std::string LocalTime(uint64_t microseconds, bool withDate) {
  const tm parts = Local(microseconds);
  return (withDate ? Date(parts) + " " : "") + TimeOfDay(parts, microseconds, 3);
}

std::string IsoTime(uint64_t microseconds) {
  const time_t seconds = Seconds(microseconds);
  tm parts{};
  gmtime_r(&seconds, &parts);
  return Date(parts) + "T" + TimeOfDay(parts, microseconds, 6) + "Z";
}

}  // namespace rynctl
