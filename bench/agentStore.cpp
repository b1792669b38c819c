// The management agent's store: what a minute of 100,000 events costs it, and how fast a history of millions answers.
//   rynmgmtd_bench [--seconds N] [--rate N] [--history EVENTS]   history: in $TMPDIR, 1 KB an event
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "mgmtd/store/eventFile.h"
#include "mgmtd/store/reader.h"
#include "mgmtd/store/rows.h"
#include "rynctl/showing/testEvent.h"
#include "testing/mgmtd/agentProcess.h"

namespace {

using Clock = std::chrono::steady_clock;
using testing_support::TestRoot;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

long ResidentKilobytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::atol(line.c_str() + 6);
  }
  return 0;
}

/// Send `rate` events a second for `seconds`, each over a connection of its own, as the daemon does.
void MeasureRate(int seconds, int rate) {
  const TestRoot root;
  testing_support::AgentProcess agent(root);
  const Clock::time_point start = Clock::now();
  uint64_t mostWaiting = 0;
  const int64_t all = int64_t{seconds} * rate;
  std::printf("%d events a second for %d s:\n", rate, seconds);
  for (int64_t i = 0; i < all; ++i) {
    const auto due = start + std::chrono::microseconds(i * 1'000'000 / rate);
    if (due > Clock::now()) std::this_thread::sleep_until(due);
    const auto number = static_cast<uint64_t>(i);
    const auto bytes = rynctl::EventBytes(rynctl::kApdStart, {"naa.6001405e" + std::to_string(i % 1000)}, number + 1,
                                          rynctl::kTestTime + number);
    if (!SendEvent(root, bytes)) std::printf("  not taken: %s\n", std::strerror(errno));
    if (i % (int64_t{rate} * 10) != int64_t{rate} * 10 - 1) continue;
    const auto status = Ask(root, {{"do", "status"}});
    const uint64_t behind = number + 1 - status.at("stored").get<uint64_t>();
    mostWaiting = std::max(mostWaiting, behind);
    std::printf("  after %5.1f s: %ld kB resident, %lu not committed yet\n", SecondsSince(start),
                ResidentKilobytes(agent.Pid()), behind);
  }
  const double took = SecondsSince(start);
  const int status = agent.End(SIGTERM);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  mgmtd::Database store(StoreOf(root), mgmtd::Database::Mode::kRead);
  std::printf("  %ld sent in %.1f s, %ld stored, status %d, %.0f us of processor time an event\n", all, took,
              store.Number("SELECT count(*) FROM events"), status, cpu * 1e6 / static_cast<double>(all));
}

constexpr int kSubjects = 20'000;
constexpr int64_t kDayUs = int64_t{86'400} * 1'000'000;
constexpr int64_t kFirstUs = rynctl::kTestTime;

/// A store of `count` events about many devices, spread over 90 days.
void Fill(const std::string &path, int64_t count) {
  mgmtd::EventFile file(path);
  file.Open(false);
  file.Close();
  mgmtd::Database database(path, mgmtd::Database::Mode::kWrite);
  database.Execute("PRAGMA synchronous = OFF; PRAGMA cache_size = -200000");
  std::mt19937 random(1);
  mgmtd::StoredEvent event;
  event.hostUuid = rynctl::kTestUuid;
  event.raw.assign(200, '\0');
  for (int64_t id = 1; id <= count;) {
    mgmtd::Transaction transaction(&database);
    for (int64_t end = std::min(count, id + 99'999); id <= end; ++id) {
      const catalog::Event &entry = catalog::Events()[random() % catalog::Events().size()];
      const std::string subject = "naa.6001405e" + std::to_string(random() % kSubjects);
      event.id = id;
      event.timeUs = event.receivedUs = kFirstUs + id * (90 * kDayUs / count);
      event.sequence = static_cast<uint64_t>(id);
      event.name = entry.name;
      event.category = entry.category;
      event.severity = catalog::SeverityName(entry.severity);
      event.subjects = {subject};
      event.text = entry.message;
      event.argumentsJson = "[{\"name\":\"device\",\"value\":\"" + subject + "\"}]";
      mgmtd::InsertEvent(&database, event);
    }
    transaction.Commit();
  }
  database.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

void Time(const char *what, mgmtd::Reader *reader, const mgmtd::EventFilter &filter) {
  for (const char *when : {"first", "again"}) {
    const Clock::time_point start = Clock::now();
    const size_t found = reader->Events(filter).size();
    std::printf("  %-48s %s: %7.1f ms, %zu events\n", what, when, SecondsSince(start) * 1000, found);
  }
}

void MeasureHistory(int64_t count) {
  const TestRoot root;
  const std::string path = root / "/store/events.db";
  Clock::time_point start = Clock::now();
  Fill(path, count);
  std::printf("a history of %ld events, filled in %.0f s:\n", count, SecondsSince(start));
  mgmtd::Reader reader(path);
  mgmtd::EventFilter filter;
  filter.subject = "naa.6001405e4711";
  filter.sinceUs = kFirstUs + 89 * kDayUs;
  Time("a subject's last day", &reader, filter);
  filter.untilUs = *filter.sinceUs - 44 * kDayUs;
  filter.sinceUs = *filter.untilUs - kDayUs;
  filter.subject = "naa.6001405e815";
  Time("a day of another in the middle", &reader, filter);
  Time("the newest thousand", &reader, [] {
    mgmtd::EventFilter newest;
    newest.newestFirst = true;
    return newest;
  }());
  filter = {};
  filter.sinceUs = kFirstUs + 89 * kDayUs;
  filter.severity = "critical";
  Time("the last day's first thousand critical ones", &reader, filter);
  start = Clock::now();
  reader.Timeline(kFirstUs + 83 * kDayUs, kFirstUs + 90 * kDayUs, kDayUs / 24);
  std::printf("  %-48s       %7.1f ms\n", "the last week's time line", SecondsSince(start) * 1000);
}

}  // namespace

int main(int argc, char **argv) {
  int seconds = 60;
  int rate = 1667;
  int64_t history = 10'000'000;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    if (name == "--seconds") seconds = std::atoi(argv[i + 1]);
    if (name == "--rate") rate = std::max(1, std::atoi(argv[i + 1]));
    if (name == "--history") history = std::atoll(argv[i + 1]);
  }
  if (seconds > 0) MeasureRate(seconds, rate);
  if (history > 0) MeasureHistory(history);
  return 0;
}
