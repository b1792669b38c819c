// Measures the daemon against the bare program. Both run in turns, so that what else the machine does meets both.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "bench/awake.h"
#include "bench/measures.h"
#include "bench/recording.h"
#include "bench/report.h"

namespace bench {
namespace {

struct Options {
  std::string csvPath;
  std::string svgPath;
  bool quick = false;
  bool check = false;
  std::vector<std::string> only;  ///< parts; none: all of them
  bool Wants(const char *part) const { return only.empty() || std::ranges::find(only, part) != only.end(); }
};
constexpr const char *kParts[] = {"latency", "rates", "starts", "recording", "names", "daemon"};

/// How much is done.
struct Effort {
  int rounds = 10;
  int latencyRuns = 8;  ///< of each program in a round
  int latencySamples = 400;
  int observations = 20'000;
  int burst = 900;
  int starts = 10;  ///< of each program in a round
  int clients = 100;
  int ports = 4000;
  int namesRounds = 5;
};
constexpr Effort kQuick = {3, 4, 250, 5000, 300, 5, 20, 400, 1};
constexpr int kPauseUs = 2000;

struct Measures {
  Measure median{"latency_median_us", 1.15};
  Measure tail{"latency_p99_us", 1.5};
  Measure paused{"latency_paused_median_us"};
  Measure asleep{"latency_asleep_median_us"};
  Measure pausedAsleep{"latency_paused_asleep_median_us"};
  Measure eventCpu{"event_cpu_us"};
  Measure matched{"throughput_per_s", 0.8, true};
  Measure matchedCpu{"handled_cpu_us"};
  Measure unmatched{"unmatched_per_s"};
  Measure unmatchedCpu{"unmatched_cpu_us"};
  Measure burst{"burst_us"};
  Measure start{"start_us", 3};
  Measure firstEvent{"first_event_us"};
  Measure resident{"resident_kib", 8192, false, true};
  Measure proportional{"proportional_kib"};
  Measure idle{"idle_switches_per_s"};
  Measure traced{"traced_to_untraced_median"};
  Measure restore{"restore_cpu_us"};
  Measure allocations[3] = {{"allocations_unmatched"}, {"allocations_handled"}, {"allocations_event"}};
  // The daemon with its flight recorder on, and, in the bare program's place, with it off.
  Measure recorded{"recorded_per_s", 0.97, true};
  Measure recordedCpu{"recorded_cpu_us"};
  Measure recordedMemory{"recorded_proportional_kib", 8192, false, true};
  Measure recordedCalls{"recorded_system_calls", 1.01};
  Measure recordedMedian{"recorded_median_us", 1.03};
  Measure recordedEventCpu{"recorded_event_cpu_us"};
  // A record among 1,000 and among 100,000 names, and, in the bare program's place, among 10.
  Measure names[2][kNamedTables] = {{{"1000_paths_us"}, {"1000_pages_us"}, {"1000_ports_us"}},
                                    {{"100000_paths_us"}, {"100000_pages_us"}, {"100000_ports_us"}}};
  std::vector<double> daemonLatency, bareLatency;  ///< every sample, microseconds
  /// Those that were measured.
  std::vector<const Measure *> All() const {
    std::vector<const Measure *> all = {
        &median,        &tail,           &paused,          &eventCpu,     &asleep,      &pausedAsleep,
        &matched,       &matchedCpu,     &unmatched,       &unmatchedCpu, &burst,       &start,
        &firstEvent,    &resident,       &proportional,    &idle,         &traced,      &restore,
        allocations,    allocations + 1, allocations + 2,  &recorded,     &recordedCpu, &recordedMemory,
        &recordedCalls, &recordedMedian, &recordedEventCpu};
    for (const auto &size : names) {
      for (const Measure &table : size) all.push_back(&table);
    }
    std::erase_if(all, [](const Measure *measure) { return measure->daemon.empty(); });
    return all;
  }
};

Options ParseOptions(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--quick") == 0) {
      options.quick = true;
    } else if (strcmp(argv[i], "--check") == 0) {
      options.check = true;
    } else if (strcmp(argv[i], "--blocking") == 0) {
      setenv("RYND_BENCH_BLOCKING", "1", 1);
    } else if (strcmp(argv[i], "--only") == 0 && i + 1 < argc &&
               std::ranges::find(kParts, std::string_view(argv[i + 1])) != std::end(kParts)) {
      options.only.emplace_back(argv[++i]);
    } else if (strcmp(argv[i], "--csv") == 0 && i + 1 < argc) {
      options.csvPath = argv[++i];
    } else if (strcmp(argv[i], "--svg") == 0 && i + 1 < argc) {
      options.svgPath = argv[++i];
    } else {
      fputs("Usage: rynd_bench [--quick] [--check] [--blocking] [--only PART]... [--csv FILE] [--svg FILE]\n", stderr);
      fputs("PART: latency rates starts recording names daemon\n", stderr);
      exit(2);
    }
  }
  return options;
}

std::vector<double> Microseconds(const std::vector<int64_t> &nanoseconds) {
  std::vector<double> values;
  values.reserve(nanoseconds.size());
  for (const int64_t value : nanoseconds) values.push_back(static_cast<double>(value) / 1000);
  return values;
}

/// The latencies of a program's runs in a round, and the processor time of an event.
struct LatencyRun {
  std::vector<double> values;
  double cpuUs = 0;
  void Add(const Latency &latency, int runs) {
    const std::vector<double> more = Microseconds(latency.samples);
    values.insert(values.end(), more.begin(), more.end());
    cpuUs += latency.cpuUs / runs;
  }
};

/// `runs` of each program in turns.
std::array<LatencyRun, 2> RunLatency(int runs, int samples, int pauseUs, Setting *setting) {
  std::array<LatencyRun, 2> both;
  for (int i = 0; i < runs; ++i) {
    for (const Subject subject : {Subject::kDaemon, Subject::kBare}) {
      both[static_cast<size_t>(subject)].Add(MeasureLatency(subject, samples, pauseUs, setting), runs);
    }
  }
  return both;
}

void LatencyRound(const Effort &effort, Setting *setting, Measures *measures) {
  const auto add = [](const std::array<LatencyRun, 2> &both, double share, Measure *measure) {
    measure->Add(Percentile(both[0].values, share), Percentile(both[1].values, share));
  };
  add(RunLatency(effort.latencyRuns, effort.latencySamples, 0, setting), 0.5, &measures->asleep);
  add(RunLatency(1, effort.latencySamples, kPauseUs, setting), 0.5, &measures->pausedAsleep);
  const AwakeProcessors awake;
  const std::array<LatencyRun, 2> both = RunLatency(effort.latencyRuns, effort.latencySamples, 0, setting);
  add(both, 0.5, &measures->median);
  add(both, 0.99, &measures->tail);
  measures->eventCpu.Add(both[0].cpuUs, both[1].cpuUs);
  measures->daemonLatency.insert(measures->daemonLatency.end(), both[0].values.begin(), both[0].values.end());
  measures->bareLatency.insert(measures->bareLatency.end(), both[1].values.begin(), both[1].values.end());
  add(RunLatency(1, effort.latencySamples, kPauseUs, setting), 0.5, &measures->paused);
}

void RateRound(const Effort &effort, Setting *setting, Measures *measures) {
  const Rate matched = MeasureMatched(Subject::kDaemon, effort.observations, setting);
  const Rate bareMatched = MeasureMatched(Subject::kBare, effort.observations, setting);
  measures->matched.Add(matched.perSecond, bareMatched.perSecond);
  measures->matchedCpu.Add(matched.cpuUs, bareMatched.cpuUs);
  const Rate unmatched = MeasureUnmatched(Subject::kDaemon, effort.observations, setting);
  const Rate bareUnmatched = MeasureUnmatched(Subject::kBare, effort.observations, setting);
  measures->unmatched.Add(unmatched.perSecond, bareUnmatched.perSecond);
  measures->unmatchedCpu.Add(unmatched.cpuUs, bareUnmatched.cpuUs);
  const double burst = MeasureBurst(Subject::kDaemon, effort.burst, setting);
  measures->burst.Add(burst, MeasureBurst(Subject::kBare, effort.burst, setting));
}

/// The daemon that records, and the one that does not, in turns.
void RecordedRound(const Effort &effort, Setting *setting, Measures *measures) {
  constexpr int kTraced = 2000;
  std::vector<double> rates[2], cpus[2];
  LatencyRun latency[2];
  double kib[2]{}, calls[2]{};
  for (int i = 0; i < effort.starts; ++i) {
    for (const size_t isOff : {size_t{0}, size_t{1}}) {
      SetRecorder(isOff == 0);
      const Rate rate = MeasureMatched(Subject::kDaemon, effort.observations, setting);
      rates[isOff].push_back(rate.perSecond);
      cpus[isOff].push_back(rate.cpuUs);
      latency[isOff].Add(MeasureLatency(Subject::kDaemon, effort.latencySamples, 0, setting), effort.starts);
      if (i > 0) continue;
      kib[isOff] = static_cast<double>(MeasureStart(Subject::kDaemon, setting).proportionalKib);
      calls[isOff] = MeasureSystemCalls(kTraced, setting);
    }
  }
  measures->recorded.Add(Percentile(rates[0], 0.5), Percentile(rates[1], 0.5));
  measures->recordedMedian.Add(Percentile(latency[0].values, 0.5), Percentile(latency[1].values, 0.5));
  measures->recordedEventCpu.Add(latency[0].cpuUs, latency[1].cpuUs);
  measures->recordedCpu.Add(Percentile(cpus[0], 0.5), Percentile(cpus[1], 0.5));
  measures->recordedMemory.Add(kib[0], kib[1]);
  measures->recordedCalls.Add(calls[0], calls[1]);
}

void StartRound(const Effort &effort, Setting *setting, Measures *measures) {
  std::vector<double> ready[2], first[2], resident[2], proportional[2];
  for (int i = 0; i < effort.starts; ++i) {
    for (const Subject subject : {Subject::kDaemon, Subject::kBare}) {
      const auto side = static_cast<size_t>(subject);
      const Footprint start = MeasureStart(subject, setting);
      ready[side].push_back(static_cast<double>(start.readyNs) / 1e3);
      first[side].push_back(static_cast<double>(start.firstEventNs) / 1e3);
      resident[side].push_back(static_cast<double>(start.residentKib));
      proportional[side].push_back(static_cast<double>(start.proportionalKib));
    }
  }
  measures->start.Add(Percentile(ready[0], 0.5), Percentile(ready[1], 0.5));
  measures->firstEvent.Add(Percentile(first[0], 0.5), Percentile(first[1], 0.5));
  measures->resident.Add(Percentile(resident[0], 0.5), Percentile(resident[1], 0.5));
  measures->proportional.Add(Percentile(proportional[0], 0.5), Percentile(proportional[1], 0.5));
}

/// What only the daemon has a figure of.
void MeasureDaemon(const Effort &effort, Setting *setting, Measures *measures) {
  measures->idle.daemon.push_back(MeasureIdle(setting));
  const double untraced = Percentile(Microseconds(MeasureTraced(0, effort.latencySamples, setting)), 0.5);
  const double traced = Percentile(Microseconds(MeasureTraced(effort.clients, effort.latencySamples, setting)), 0.5);
  measures->traced.daemon.push_back(traced / untraced);
  measures->restore.daemon.push_back(MeasureRestore(4, effort.ports, setting));
  const std::vector<double> allocations = MeasureAllocations(setting);
  for (size_t i = 0; i < allocations.size(); ++i) measures->allocations[i].daemon.push_back(allocations[i]);
}

/// A record among many names, and, in the bare program's place, among ten.
void NamesRound(const Effort &effort, Setting *setting, Measures *measures) {
  for (size_t table = 0; table < kNamedTables; ++table) {
    const double few = MeasureNames(table, 10, effort.observations, setting);
    measures->names[0][table].Add(MeasureNames(table, 1000, effort.observations, setting), few);
    measures->names[1][table].Add(MeasureNames(table, 100'000, effort.observations, setting), few);
  }
}

Measures MeasureAll(const Options &options, Setting *setting) {
  const Effort effort = options.quick ? kQuick : Effort();
  Measures measures;
  for (int round = 0; round < effort.rounds; ++round) {
    if (options.Wants("latency")) LatencyRound(effort, setting, &measures);
    if (options.Wants("rates")) RateRound(effort, setting, &measures);
    if (options.Wants("starts")) StartRound(effort, setting, &measures);
    if (options.Wants("recording")) RecordedRound(effort, setting, &measures);
    if (options.Wants("names") && round < effort.namesRounds) NamesRound(effort, setting, &measures);
  }
  if (options.Wants("daemon")) MeasureDaemon(effort, setting, &measures);
  return measures;
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
  const bench::Options options = bench::ParseOptions(argc, argv);
  const bench::Root root;
  bench::Setting setting;
  bench::Probe(&setting);
  printf("%ld threads, event of %zu bytes, %zu log records with an event and %zu without\n", setting.threads,
         setting.eventLength, setting.postingLogs.size(), setting.silentLogs.size());
  puts(getenv("RYND_BENCH_BLOCKING") == nullptr
           ? "the bare program waits as the daemon has to: ppoll over its 31 sockets, poll on its stream"
           : "the bare program does not wait by ppoll and poll, as the daemon has to: it blocks in one socket and one "
             "pipe");
  const bench::Measures measures = bench::MeasureAll(options, &setting);
  bench::PrintTable(measures.All());
  if (!options.csvPath.empty() && !bench::WriteCsv(options.csvPath, measures.All())) bench::Fail(options.csvPath);
  if (!options.svgPath.empty() && !bench::WriteSvg(options.svgPath, measures.daemonLatency, measures.bareLatency)) {
    bench::Fail(options.svgPath);
  }
  if (!options.check) return 0;
  for (const bench::Measure *measure : measures.All()) {
    if (!measure->WithinLimit()) return 1;
  }
  return 0;
}
