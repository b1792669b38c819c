#include "bench/measures.h"

#include <sys/socket.h>

#include <thread>

#include "bench/barePeer.h"
#include "hosted/records/rawRecord.h"

namespace bench {
namespace {

constexpr int kWarmUp = 30;  ///< observations that are sent and not counted

/// A handled observation; without its integer the handler ends before it posts.
std::vector<std::byte> MakeObservation(bool posting) {
  hosted::RawRecord record;
  record.microseconds = 1'700'000'000'000'000;
  record.id = "ryn.storage.apd.timeout";
  record.message = "a message of usual length for it";
  record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, "naa.600508b1001c4d"});
  if (posting) record.arguments.push_back({hosted::ArgumentKind::kSigned, 4, 140, {}});
  return hosted::EncodeRecord(record);
}

void Submit(const base::UniqueFd &kernel, const std::vector<std::byte> &record) {
  if (send(kernel.Get(), record.data(), record.size(), MSG_NOSIGNAL) < 0) Fail("submit");
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

std::vector<int64_t> MeasureLatency(Subject subject, int count, Setting *setting) {
  const Program program(Arguments(subject, "latency", setting->eventLength, setting->postingLogs, *setting),
                        ReadyText(subject), &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeObservation(true);
  std::vector<int64_t> samples;
  samples.reserve(static_cast<size_t>(count));
  for (int i = -kWarmUp; i < count; ++i) {
    const int64_t start = Now();
    Submit(kernel, record);
    int64_t arrival = 0;
    setting->events.Receive(&arrival);
    if (i >= 0) samples.push_back(arrival - start);
    // Everything of this observation is over before the next one is submitted.
    for (size_t left = setting->postingLogs.size(); left > 0; --left) {
      if (!setting->log.Skip()) Fail("no log record");
    }
  }
  return samples;
}

double MeasureThroughput(Subject subject, int count, Setting *setting) {
  const Program program(Arguments(subject, "throughput", 0, setting->silentLogs, *setting), ReadyText(subject),
                        &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeObservation(false);
  const size_t wanted = static_cast<size_t>(count) * setting->silentLogs.size();
  const int64_t start = Now();
  std::thread sender([&] {
    for (int i = 0; i < count; ++i) Submit(kernel, record);
  });
  for (size_t received = 0; received < wanted; ++received) {
    if (!setting->log.Skip()) Fail("log records were lost");
  }
  const int64_t end = Now();
  sender.join();
  return static_cast<double>(count) * 1e9 / static_cast<double>(end - start);
}

int64_t MeasureStart(Subject subject, Setting *setting) {
  const Program program(Arguments(subject, "start", 0, {}, *setting), ReadyText(subject), &setting->log);
  return program.StartTime();
}

long MeasureMemory(Subject subject, Setting *setting) {
  const Program program(Arguments(subject, "start", 0, {}, *setting), ReadyText(subject), &setting->log);
  return program.Status("VmRSS");
}

}  // namespace bench
