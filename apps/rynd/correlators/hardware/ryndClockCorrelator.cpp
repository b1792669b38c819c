// The clock correlator: steps of the system clock, gain and loss of its synchronisation, changes of its parameters;
// each at most once per report interval. Runs on its agent's thread.
#include <utility>

#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "correlators/hardware/clockReports.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "platform/hsi.h"

namespace rynd {
namespace {

constexpr Fields kNone = {};
constexpr Fields kOne = {{ArgType::kInt}, "%d"};
constexpr Fields kTime = {{ArgType::kInt, ArgType::kInt}, "%d %d"};  // seconds, nanoseconds
constexpr Fields kAgentAndTime = {{ArgType::kStr, ArgType::kInt, ArgType::kInt}, "%p %d %d"};
// The time, then the delta, its limit in seconds and, as far as they go, the large corrections so far and the most.
constexpr Fields kFour = {{ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt}, "%d %d %d %d"};
constexpr Fields kFive = {{ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt},
                          "%d %d %d %d %d"};
constexpr Fields kSix = {{ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kInt},
                         "%d %d %d %d %d %d"};

constexpr std::string_view kSetReportInterval = "ryn.clock.parameter.set.rynReportInterval";

constexpr auto kClockRows = std::to_array<PostRow>({
    {"ryn.clock.correction.changed", kProblem, kAgentAndTime,
     "@&!*@*@(amb.problem.clock.correction.changed)%s changed system clock to %d.%09d, lost synchronization to "
     "upstream time servers"},
    {"ryn.clock.correction.step.unsync", kProblem, kTime,
     "@&!*@*@(amb.problem.clock.correction.step.unsync)system clock stepped to %d.%09d, lost sync to upstream time "
     "servers"},
    {"ryn.clock.correction.adjtime.sync", kProblem, kNone,
     "@&!*@*@(amb.problem.clock.correction.adjtime.sync)system clock synchronized to upstream time servers"},
    {"ryn.clock.correction.adjtime.unsync", kProblem, kNone,
     "@&!*@*@(amb.problem.clock.correction.adjtime.unsync)system clock lost synchronization to upstream time servers"},
    {"ryn.clock.correction.adjtime.lostsync", kProblem, kNone,
     "@&!*@*@(amb.problem.clock.correction.adjtime.lostsync)system clock apparently no longer synchronized to upstream "
     "time servers"},
    {"ryn.clock.correction.delta.warning", kProblem, kSix,
     "@&!*@*@(amb.problem.clock.correction.delta.warning)system clock stepped to %d.%09d, but delta %d > %d seconds, "
     "%d/%d large corrections"},
    {"ryn.clock.correction.delta.failed", kProblem, kFive,
     "@&!*@*@(amb.problem.clock.correction.delta.failed)system clock step to %d.%09d failed, delta %d > %d seconds, "
     "number of large corrections > %d"},
    {"ryn.clock.correction.delta.allowed", kProblem, kFour,
     "@&!*@*@(amb.problem.clock.correction.delta.allowed)system clock stepped to %d.%09d, but delta %d > %d seconds"},
    {"ryn.clock.state.reset", kProblem, kNone, "@&!*@*@(amb.problem.clock.state.reset)resetting system clock state"},
    {"ryn.clock.parameter.set.maxNegPhaseCorrection", kProblem, kOne,
     "@&!*@*@(amb.problem.clock.parameter.set.maxNegPhaseCorrection)setting system clock parameter "
     "maxNegPhaseCorrection to %d"},
    {"ryn.clock.parameter.set.maxPosPhaseCorrection", kProblem, kOne,
     "@&!*@*@(amb.problem.clock.parameter.set.maxPosPhaseCorrection)setting system clock parameter "
     "maxPosPhaseCorrection to %d"},
    {"ryn.clock.parameter.set.numLargeCorrections", kProblem, kOne,
     "@&!*@*@(amb.problem.clock.parameter.set.numLargeCorrections)setting system clock parameter numLargeCorrections "
     "to %d"},
    {"ryn.clock.parameter.set.maxLargeCorrections", kProblem, kOne,
     "@&!*@*@(amb.problem.clock.parameter.set.maxLargeCorrections)setting system clock parameter maxLargeCorrections "
     "to %d"},
    {kSetReportInterval.data(), kProblem, kOne,
     "@&!*@*@(amb.problem.clock.parameter.set.rynReportInterval)setting system clock RYN report interval to %d"},
});
static_assert(kClockRows.size() == 14);
static_assert(UniqueIds(kClockRows));

constexpr ClockReports::Family FamilyOf(std::string_view id) {
  if (id.starts_with("ryn.clock.correction.delta.")) return ClockReports::Family::kDelta;
  return id.starts_with("ryn.clock.correction.") ? ClockReports::Family::kCorrection : ClockReports::Family::kParameter;
}

ClockReports &Reports() {
  static ClockReports *const reports = new ClockReports;
  return *reports;
}

/// The handler of `kClockRows[kRow]`.
template <size_t kRow>
void OnClockObservation(Observation *observation) {
  constexpr std::string_view kId = kClockRows[kRow].id;
  constexpr auto kFields = std::make_index_sequence<post_row::Count(kClockRows[kRow].fields.types)>();
  const int64_t now = WindowClockS();
  if (!Reports().IsDue(FamilyOf(kId), kId, now)) {
    return Reason("it was passed on less than %d s ago", Reports().Interval());
  }
  auto values = post_row::MakeValues<kClockRows, kRow>(kFields);
  const post_row::ReadResult read = post_row::ReadFields<kClockRows, kRow>(observation, &values, kFields);
  if (read.status != 0) return post_row::ReasonUnread(kClockRows[kRow].fields.extraction, read);
  if constexpr (kId == kSetReportInterval) Reports().SetInterval(std::get<0>(values));
  post_row::Post<kClockRows, kRow>(values);
  Reports().Passed(FamilyOf(kId), kId, now);
}

template <size_t... kRow>
void AddClockRows(HandlerTable *table, std::index_sequence<kRow...> /*rows*/) {
  (((*table)[kClockRows[kRow].id] = OnClockObservation<kRow>), ...);
}

}  // namespace

void LogNoClockCorrelator(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) {
    Log("FAIL: Received NULL rynID\n");
  } else {
    Log("No system clock correlator for %s\n", id);
  }
}

std::span<const PostRow> ClockPostRows() {
  return kClockRows;
}

HandlerTable ClockHandlers() {
  HandlerTable table;
  AddClockRows(&table, std::make_index_sequence<kClockRows.size()>());
  return table;
}

void ReadClockReportInterval() {
  int32_t interval = Reports().Interval();
  HSI_Get("system/ntpclock/rynReportInterval", nullptr, &interval, sizeof interval);  // a failure leaves it as it is
  Reports().SetInterval(interval);
}

void RyndClockCorrelator() {
  ReadClockReportInterval();
  RunCorrelator("Clock", "clock", LogNoClockCorrelator, ClockHandlers());
}

}  // namespace rynd
