#include "bench/measures.h"

#include <sys/socket.h>

#include <chrono>
#include <thread>
#include <utility>

#include "bench/barePeer.h"
#include "bench/records.h"

namespace bench {
namespace {

constexpr int kWarmUp = 30;  ///< observations that are sent and not counted

constexpr char kHandledId[] = "ryn.storage.apd.timeout";
constexpr char kMessage[] = "a message of usual length for it";

/// A handled observation; without its integer the handler ends before it posts.
std::vector<std::byte> MakeObservation(bool posting) {
  std::vector<hosted::RawArgument> arguments{Text("naa.600508b1001c4d")};
  if (posting) arguments.push_back(Number(140));
  return MakeRecord(kHandledId, kMessage, std::move(arguments));
}

std::string ReadyText(Subject subject) {
  return subject == Subject::kDaemon ? "rynd setup completed. Start polling loop." : kBareReady;
}

std::vector<std::string> Arguments(Subject subject, const char *mode, size_t eventLength,
                                   const std::vector<size_t> &logs, const Setting &setting) {
  if (subject == Subject::kDaemon) return {RYND_PROGRAM};
  std::vector<std::string> words = {BARE_PROGRAM, mode, std::to_string(setting.threads), std::to_string(eventLength)};
  for (const size_t length : logs) words.push_back(std::to_string(length));
  return words;
}

/// The lengths of the log records that follow one observation.
std::vector<size_t> LogLengths(LogSocket *log) {
  std::vector<size_t> lengths;
  for (std::string record; !(record = log->Receive(300)).empty();) lengths.push_back(record.size());
  return lengths;
}

}  // namespace

void Probe(Setting *setting) {
  const Program program({RYND_PROGRAM}, ReadyText(Subject::kDaemon), &setting->log);
  setting->threads = program.Status("Threads");
  const base::UniqueFd kernel = ConnectKernel();
  Submit(kernel, MakeObservation(false));
  setting->silentLogs = LogLengths(&setting->log);
  Submit(kernel, MakeObservation(true));
  int64_t arrival = 0;
  setting->eventLength = setting->events.Receive(&arrival);
  setting->postingLogs = LogLengths(&setting->log);
}

Latency MeasureLatency(Subject subject, int count, int pauseUs, Setting *setting) {
  const Program program(Arguments(subject, "latency", setting->eventLength, setting->postingLogs, *setting),
                        ReadyText(subject), &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeObservation(true);
  LogDrain log(&setting->log, setting->postingLogs.size());
  Latency latency;
  latency.samples.reserve(static_cast<size_t>(count));
  int64_t cpu = 0;
  for (int i = -kWarmUp; i < count; ++i) {
    if (i == 0) cpu = program.CpuTime();
    if (pauseUs > 0) std::this_thread::sleep_for(std::chrono::microseconds(pauseUs));
    const int64_t start = Now();
    Submit(kernel, record);
    int64_t arrival = 0;
    setting->events.Receive(&arrival);
    if (i >= 0) latency.samples.push_back(arrival - start);
    log.Wait();  // everything of this observation is over before the next one is submitted
  }
  latency.cpuUs = static_cast<double>(program.CpuTime() - cpu) / 1e3 / count;
  return latency;
}

Rate MeasureMatched(Subject subject, int count, Setting *setting) {
  const Program program(Arguments(subject, "throughput", 0, setting->silentLogs, *setting), ReadyText(subject),
                        &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeObservation(false);
  const auto run = [&](int records) {
    std::thread sender([&] {
      for (int i = 0; i < records; ++i) Submit(kernel, record);
    });
    for (size_t left = static_cast<size_t>(records) * setting->silentLogs.size(); left > 0; --left) {
      if (!setting->log.Skip()) Fail("log records were lost");
    }
    sender.join();
  };
  run(count / 10);  // what is done once is over then
  const int64_t cpu = program.CpuTime();
  const int64_t start = Now();
  run(count);
  const int64_t end = Now();
  return {count * 1e9 / static_cast<double>(end - start), static_cast<double>(program.CpuTime() - cpu) / 1e3 / count};
}

Rate MeasureUnmatched(Subject subject, int count, Setting *setting) {
  const Program program(Arguments(subject, "unmatched", 0, setting->silentLogs, *setting), ReadyText(subject),
                        &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeRecord("ryn.nobody.wants.it", kMessage, {Text("naa.600508b1001c4d")});
  const std::vector<std::byte> last = MakeRecord(kHandledId, std::string(kSentinel, 'm'), {Text("naa.600508b1001c4d")});
  const int64_t cpu = program.CpuTime();
  const int64_t start = Now();
  for (int i = 0; i < count; ++i) Submit(kernel, record);
  Submit(kernel, last);
  if (!setting->log.Skip()) Fail("no log record");
  const int64_t end = Now();
  return {count * 1e9 / static_cast<double>(end - start), static_cast<double>(program.CpuTime() - cpu) / 1e3 / count};
}

double MeasureBurst(Subject subject, int count, Setting *setting) {
  const Program program(Arguments(subject, "latency", setting->eventLength, setting->postingLogs, *setting),
                        ReadyText(subject), &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeObservation(true);
  const LogDrain drain(&setting->log);
  const int64_t start = Now();
  std::thread sender([&] {
    for (int i = 0; i < count; ++i) Submit(kernel, record);
  });
  int64_t arrival = 0;
  for (int i = 0; i < count; ++i) setting->events.Receive(&arrival);
  sender.join();
  return static_cast<double>(arrival - start) / 1e3;
}

Footprint MeasureStart(Subject subject, Setting *setting) {
  const Program program(Arguments(subject, "latency", setting->eventLength, setting->postingLogs, *setting),
                        ReadyText(subject), &setting->log);
  Footprint start;
  const int64_t ready = Now();
  start.readyNs = program.StartTime();
  start.residentKib = program.Status("VmRSS");
  start.proportionalKib = program.ProportionalKib();
  const int64_t looked = Now();
  const base::UniqueFd kernel = ConnectKernel();
  Submit(kernel, MakeObservation(true));
  int64_t arrival = 0;
  setting->events.Receive(&arrival);
  start.firstEventNs = start.readyNs + (ready - looked) + (arrival - ready);
  return start;
}

}  // namespace bench
