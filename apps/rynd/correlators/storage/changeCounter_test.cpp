#include "correlators/storage/changeCounter.h"

#include <gtest/gtest.h>

#include <string>

namespace rynd {
namespace {

using Change = ChangeCounter::Change;
constexpr int64_t kNow = 1'700'000'000;

/// Count `times` changes of "p"; how many of them alarmed.
int Alarms(ChangeCounter *counter, int times, int64_t now, Change change = Change::kState) {
  int alarms = 0;
  while (times-- > 0) alarms += counter->Count("p", change, now) ? 1 : 0;
  return alarms;
}

TEST(ChangeCounter, AlarmsOnceAtTenChanges) {
  ChangeCounter counter;
  EXPECT_EQ(Alarms(&counter, 10, kNow), 0) << "the very first change is swept";
  EXPECT_EQ(Alarms(&counter, 1, kNow), 1);
  EXPECT_EQ(Alarms(&counter, 90, kNow + 60), 0);
  EXPECT_EQ(Alarms(&counter, 90, kNow + 61), 0) << "counts of ten and more outlast a sweep";
  EXPECT_FALSE(counter.Count("q", Change::kState, kNow + 61));
  EXPECT_EQ(Alarms(&counter, 11, kNow + 600), 0) << "nothing is reset yet";
}

TEST(ChangeCounter, StartsAgainAfterMoreThan600Seconds) {
  ChangeCounter counter;
  EXPECT_EQ(Alarms(&counter, 11, kNow), 1);
  EXPECT_EQ(Alarms(&counter, 50, kNow + 600), 0);
  EXPECT_EQ(Alarms(&counter, 10, kNow + 601), 1) << "nothing was swept, since a sweep was due a second ago";
  EXPECT_EQ(Alarms(&counter, 10, kNow + 1202), 0) << "reset and swept";
  EXPECT_EQ(Alarms(&counter, 1, kNow + 1202), 1);
}

TEST(ChangeCounter, SweepsCountsBelowTenAfterMoreThan60Seconds) {
  ChangeCounter counter;
  EXPECT_EQ(Alarms(&counter, 9, kNow), 0);       // 8
  EXPECT_EQ(Alarms(&counter, 1, kNow + 60), 0);  // 9: not swept at exactly 60
  EXPECT_EQ(Alarms(&counter, 1, kNow + 60), 1);
  ChangeCounter eight;
  EXPECT_EQ(Alarms(&eight, 9, kNow), 0);       // 8
  EXPECT_EQ(Alarms(&eight, 1, kNow + 61), 0);  // 9, swept
  EXPECT_EQ(Alarms(&eight, 9, kNow + 61), 0);
  EXPECT_EQ(Alarms(&eight, 1, kNow + 61), 1);
  ChangeCounter nine;
  EXPECT_EQ(Alarms(&nine, 10, kNow), 0);      // 9
  EXPECT_EQ(Alarms(&nine, 1, kNow + 61), 1);  // 10 before the sweep, which leaves it
  ChangeCounter other;
  EXPECT_EQ(Alarms(&other, 9, kNow), 0);  // 8
  EXPECT_FALSE(other.Count("q", Change::kState, kNow + 61)) << "a sweep is for all paths";
  EXPECT_EQ(Alarms(&other, 9, kNow + 61), 0);
  EXPECT_EQ(Alarms(&other, 1, kNow + 61), 1);
}

TEST(ChangeCounter, AddsAndRemovesPaths) {
  ChangeCounter counter;
  EXPECT_FALSE(counter.Count("other", Change::kState, kNow));  // the first sweep is over
  EXPECT_EQ(Alarms(&counter, 10, kNow, Change::kAdd), 0) << "the first add enters the path with 0";
  EXPECT_EQ(Alarms(&counter, 1, kNow, Change::kAdd), 1) << "an add of a known path is a change";
  EXPECT_EQ(Alarms(&counter, 3, kNow, Change::kRemove), 0);
  EXPECT_EQ(Alarms(&counter, 9, kNow), 0);
  EXPECT_EQ(Alarms(&counter, 1, kNow), 1) << "a removed path starts again, within the same sweep";
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
