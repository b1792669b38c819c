#include "text/time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace text {
namespace {

TEST(Time, IsReadAsPeopleWriteIt) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  constexpr int64_t kSecond = 1'000'000;
  constexpr int64_t kNow = 1'795'284'580 * kSecond;  // 2026-11-21 19:09:40 there
  constexpr int64_t kMidnight = 1'795'215'600 * kSecond;
  const std::pair<const char *, int64_t> times[] = {
      {"now", kNow},
      {"today", kMidnight},
      {"yesterday", kMidnight - 86'400 * kSecond},
      {"-1h", kNow - 3600 * kSecond},
      {"+5min", kNow + 300 * kSecond},
      {" 1h 30min ago", kNow - 5400 * kSecond},
      {"-90", kNow - 90 * kSecond},
      {"2026-11-21", kMidnight},
      {"2026-11-21 12:00", kMidnight + 43'200 * kSecond},
      {"12:00:30.25", kMidnight + 43'230 * kSecond + 250'000},
      {"2026-11-21T12:00:00Z", kMidnight + 46'800 * kSecond},
      {"2026-11-21T12:00:00.5+02:00", kMidnight + 39'600 * kSecond + 500'000},
      {"2026-11-21 12:00 -0130", kMidnight + 52'200 * kSecond},
      {"2026-03-29 12:00", 1'774'778'400 * kSecond},  // summer time began that night
      {"@1795000000.5", 1'795'000'000 * kSecond + 500'000},
  };
  for (const auto &[text, us] : times) EXPECT_EQ(ParseTime(text, kNow), us) << text;
  for (const char *text : {"", " ", "nonsense", "-", "1h", "-1parsec", "2026-13-01", "2026-02-30", "2026-11-21 25:00",
                           "12", "2026-11-21T12:00:00+99:00", "@", "@1x", "-99999999999h", "2026-11-21 12:00 x",
                           "2026-11-21T12:00:00.", "-999999999y"}) {
    EXPECT_EQ(ParseTime(text, kNow), std::nullopt) << text;
  }
  unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace text
