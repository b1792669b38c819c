#include "correlators/storage/changeCounter.h"

#include <gtest/gtest.h>

#include <string>

namespace rynd {
namespace {

using Change = ChangeCounter::Change;
constexpr int64_t kNow = 1'700'000'000;

/// Count `times` changes of `path`; how many of them alarmed.
int Alarms(ChangeCounter *counter, int times, int64_t now, const char *path = "p", Change change = Change::kState) {
  int alarms = 0;
  while (times-- > 0) alarms += counter->Count(path, change, now) ? 1 : 0;
  return alarms;
}

TEST(ChangeCounter, AlarmsOnceAtTenChangesBetweenSweepsAndResets) {
  struct Step {
    int64_t second;
    int times, alarms;
    const char *path = "p";
    Change change = Change::kState;
  };
  const std::pair<const char *, std::vector<Step>> rows[] = {
      {"the very first change is swept; counts of ten and more outlast a sweep; nothing is reset within 600 s",
       {{0, 10, 0}, {0, 1, 1}, {60, 90, 0}, {61, 90, 0}, {61, 1, 0, "q"}, {600, 11, 0}}},
      {"reset after more than 600 s: unswept, since a sweep was due a second ago; then reset and swept",
       {{0, 11, 1}, {600, 50, 0}, {601, 10, 1}, {1202, 10, 0}, {1202, 1, 1}}},
      {"8, 9, and not swept at exactly 60 s", {{0, 9, 0}, {60, 1, 0}, {60, 1, 1}}},
      {"8, 9 and swept", {{0, 9, 0}, {61, 1, 0}, {61, 9, 0}, {61, 1, 1}}},
      {"9, 10 before the sweep, which leaves it", {{0, 10, 0}, {61, 1, 1}}},
      {"a sweep is for all paths", {{0, 9, 0}, {61, 1, 0, "q"}, {61, 9, 0}, {61, 1, 1}}},
      {"the first add enters the path with 0, that of a known one is a change; a removed path starts again",
       {{0, 1, 0, "q"},
        {0, 10, 0, "p", Change::kAdd},
        {0, 1, 1, "p", Change::kAdd},
        {0, 3, 0, "p", Change::kRemove},
        {0, 9, 0},
        {0, 1, 1}}},
  };
  for (const auto &[why, steps] : rows) {
    ChangeCounter counter;
    for (const Step &step : steps) {
      EXPECT_EQ(Alarms(&counter, step.times, kNow + step.second, step.path, step.change), step.alarms)
          << why << ", at " << step.second;
    }
  }
}

TEST(ChangeCounter, StaysBoundedWhateverTheNames) {
  ChangeCounter counter;
  EXPECT_EQ(Alarms(&counter, 6, kNow), 0);
  for (int i = 0; i < 100'000; ++i) counter.Count("name " + std::to_string(i), Change::kRemove, kNow);
  EXPECT_EQ(counter.Size(), kMostMapEntries);
  EXPECT_EQ(Alarms(&counter, 4, kNow), 0);
  EXPECT_EQ(Alarms(&counter, 1, kNow), 1) << "names that carry nothing push out none that does";
}

}  // namespace
}  // namespace rynd
