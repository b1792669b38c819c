// Measures the daemon against the bare program. Both run in turns, so that what else the machine does meets both.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/measures.h"
#include "bench/report.h"

namespace bench {
namespace {

struct Options {
  std::string csvPath;
  bool quick = false;
  bool check = false;
};

/// How much is done.
struct Effort {
  int rounds = 10;
  int latencyRuns = 8;  ///< of each program in a round
  int latencySamples = 400;
  int observations = 20'000;
  int starts = 10;  ///< of each program in a round
};
constexpr Effort kQuick = {3, 4, 250, 5000, 5};

struct Measures {
  Measure median{"latency_median_us", 1.15};
  Measure tail{"latency_p99_us", 1.5};
  Measure throughput{"throughput_per_s", 0.8, true};
  Measure start{"start_us", 3};
  Measure memory{"resident_kib", 8192, false, true};
  std::vector<const Measure *> All() const { return {&median, &tail, &throughput, &start, &memory}; }
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
    } else if (strcmp(argv[i], "--csv") == 0 && i + 1 < argc) {
      options.csvPath = argv[++i];
    } else {
      fputs("Usage: rynd_bench [--quick] [--check] [--blocking] [--csv FILE]\n", stderr);
      exit(2);
    }
  }
  return options;
}

/// Microseconds.
void Append(const std::vector<int64_t> &nanoseconds, std::vector<double> *values) {
  for (const int64_t value : nanoseconds) values->push_back(static_cast<double>(value) / 1000);
}

void LatencyRound(const Effort &effort, Setting *setting, Measures *measures) {
  std::vector<double> daemon;
  std::vector<double> bare;
  for (int i = 0; i < effort.latencyRuns; ++i) {
    Append(MeasureLatency(Subject::kDaemon, effort.latencySamples, setting), &daemon);
    Append(MeasureLatency(Subject::kBare, effort.latencySamples, setting), &bare);
  }
  measures->median.Add(Percentile(daemon, 0.5), Percentile(bare, 0.5));
  measures->tail.Add(Percentile(daemon, 0.99), Percentile(bare, 0.99));
}

void StartRound(const Effort &effort, Setting *setting, Measures *measures) {
  std::vector<double> daemon;
  std::vector<double> bare;
  for (int i = 0; i < effort.starts; ++i) {
    Append({MeasureStart(Subject::kDaemon, setting)}, &daemon);
    Append({MeasureStart(Subject::kBare, setting)}, &bare);
  }
  measures->start.Add(Percentile(daemon, 0.5), Percentile(bare, 0.5));
}

Measures MeasureAll(const Effort &effort, Setting *setting) {
  Measures measures;
  for (int round = 0; round < effort.rounds; ++round) {
    LatencyRound(effort, setting, &measures);
    const double rate = MeasureThroughput(Subject::kDaemon, effort.observations, setting);
    measures.throughput.Add(rate, MeasureThroughput(Subject::kBare, effort.observations, setting));
    StartRound(effort, setting, &measures);
    const auto resident = static_cast<double>(MeasureMemory(Subject::kDaemon, setting));
    measures.memory.Add(resident, static_cast<double>(MeasureMemory(Subject::kBare, setting)));
  }
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
  const bench::Measures measures = bench::MeasureAll(options.quick ? bench::kQuick : bench::Effort(), &setting);
  bench::PrintTable(measures.All());
  if (!options.csvPath.empty() && !bench::WriteCsv(options.csvPath, measures.All())) bench::Fail(options.csvPath);
  if (!options.check) return 0;
  for (const bench::Measure *measure : measures.All()) {
    if (!measure->WithinLimit()) return 1;
  }
  return 0;
}
