#include <limits>

#include "correlators/hardware/clockReports.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using Family = ClockReports::Family;

constexpr char kSync[] = "ryn.clock.correction.adjtime.sync";
constexpr char kUnsync[] = "ryn.clock.correction.adjtime.unsync";
constexpr char kWarning[] = "ryn.clock.correction.delta.warning";

/// Pass `id` on at `now` when it is due.
bool Pass(ClockReports *reports, Family family, const char *id, int64_t now) {
  if (!reports->IsDue(family, id, now)) return false;
  reports->Passed(family, id, now);
  return true;
}

TEST(ClockReports, PassesAnIdOncePerInterval) {
  ClockReports reports;
  EXPECT_TRUE(Pass(&reports, Family::kDelta, kWarning, 100'000));
  EXPECT_FALSE(Pass(&reports, Family::kDelta, kWarning, 100'010));
  EXPECT_TRUE(Pass(&reports, Family::kDelta, "ryn.clock.correction.delta.failed", 100'010));
  EXPECT_FALSE(Pass(&reports, Family::kDelta, kWarning, 103'599));
  EXPECT_TRUE(Pass(&reports, Family::kDelta, kWarning, 103'600));
  EXPECT_TRUE(Pass(&reports, Family::kParameter, kWarning, 103'600));  // a table of its own
  // What was due, but not passed on, stays due.
  EXPECT_TRUE(reports.IsDue(Family::kDelta, kWarning, 107'200));
  EXPECT_TRUE(reports.IsDue(Family::kDelta, kWarning, 107'200));
}

TEST(ClockReports, TakeAnyInterval) {
  ClockReports reports;
  for (const int32_t interval : {0, -10}) {
    reports.SetInterval(interval);
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(Pass(&reports, Family::kDelta, kWarning, 99'990));
  }
  // An interval that is longer than the epoch is old stops even the first one.
  reports.SetInterval(std::numeric_limits<int32_t>::max());
  EXPECT_FALSE(Pass(&reports, Family::kDelta, "ryn.clock.correction.delta.allowed", 1'800'000'000));
  EXPECT_TRUE(Pass(&reports, Family::kDelta, "ryn.clock.correction.delta.allowed", 2'147'483'647));
}

TEST(ClockReports, LetARegainedSynchronisationPassAfterEachLoss) {
  for (const char *loss : {"ryn.clock.correction.changed", "ryn.clock.correction.step.unsync", kUnsync,
                           "ryn.clock.correction.adjtime.lostsync"}) {
    ClockReports reports;
    EXPECT_TRUE(Pass(&reports, Family::kCorrection, kSync, 100'000));
    EXPECT_TRUE(Pass(&reports, Family::kCorrection, loss, 100'010));
    EXPECT_TRUE(Pass(&reports, Family::kCorrection, kSync, 100'020)) << loss;
    EXPECT_FALSE(Pass(&reports, Family::kCorrection, kSync, 100'030));
    EXPECT_FALSE(Pass(&reports, Family::kCorrection, loss, 100'040)) << loss;  // its own time stands
    EXPECT_FALSE(Pass(&reports, Family::kCorrection, kSync, 100'050));  // a loss that was held back clears nothing
  }
}

/// Dispatches with the real clock: an interval of an hour, or none, is all that it can tell apart.
class ClockCorrelator : public testing::Test {
 protected:
  static Events Post(const std::string &id, const Arguments &arguments) {
    return EventsOf(ClockHandlers(), "ryn.clock." + id, arguments);
  }
  static void StartWithInterval(const char *seconds) {
    PutHost("sysinfo/system/ntpclock/rynReportInterval", seconds);

    ReadClockReportInterval();
  }
};

TEST_F(ClockCorrelator, PostsEachIdOnceAnHour) {
  StartWithInterval("3600");
  ASSERT_EQ(ClockPostRows().size(), 14u);
  for (const PostRow &row : ClockPostRows()) {
    Arguments arguments;
    for (size_t i = 0; i < post_row::Count(row.fields.types); ++i) {
      EXPECT_EQ(EventsOf(ClockHandlers(), row.id, arguments), Events{}) << row.id;  // and it is not remembered
      arguments.push_back(row.fields.types[i] == ArgType::kStr ? Str("ntpd") : Int(4000));
    }
    EXPECT_EQ(EventsOf(ClockHandlers(), row.id, arguments).size(), 1u) << row.id;
    EXPECT_EQ(EventsOf(ClockHandlers(), row.id, arguments), Events{}) << row.id;
  }
}

TEST_F(ClockCorrelator, MeasuresAnObservationAgainstTheIntervalBeforeIt) {
  const auto setTo = [](int32_t seconds) { return Post("parameter.set.rynReportInterval", {Int(seconds)}).size(); };
  const auto reset = [] { return Post("state.reset", {}).size(); };
  StartWithInterval("-1");
  EXPECT_EQ(setTo(3600), 1u);
  EXPECT_EQ(setTo(0), 0u);  // dropped, its value too
  reset();
  EXPECT_EQ(reset(), 0u);
  StartWithInterval("every hour");  // cannot be read: the interval stays
  EXPECT_EQ(reset(), 0u);
  StartWithInterval("0");
  EXPECT_EQ(reset(), 1u);
}

}  // namespace
}  // namespace rynd
