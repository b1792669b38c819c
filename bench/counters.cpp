// What counting one observation costs, beside the system calls that one makes at the least: the first has to stay below
// a hundredth of the second.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>

#include "core/basics/cause.h"
#include "core/basics/clock.h"
#include "core/basics/statistics.h"

namespace rynd {
namespace {

/// Everything that is counted of an observation that one agent is given and handles, and the time that takes.
void CountAnObservation(benchmark::State &state) {
  AgentStatistics *const agent = RegisterAgentStatistics("Bench");
  Counter contextRecords, contextBytes;
  for ([[maybe_unused]] auto _ : state) {
    contextRecords.Add();
    contextBytes.Add(100);
    agent->givenRecords.AddAlone();
    agent->givenBytes.AddAlone(100);
    Stats().matched.AddAlone();
    agent->received.AddAlone();
    agent->receivedBytes.AddAlone(100);
    const CauseScope cause({"ryn.storage.apd.start", 1, nullptr});
    const int64_t startNs = MonotonicNs();
    agent->handled.AddAlone();
    benchmark::ClobberMemory();
    agent->busyNs.AddAlone(static_cast<uint64_t>(MonotonicNs() - startNs));
  }
}
BENCHMARK(CountAnObservation);

/// A datagram in, polled for and received, through a pipe that is polled for and read twice; and a line for the log.
void SystemCallsOfAnObservation(benchmark::State &state) {
  int datagrams[2];
  int log[2];
  int stream[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, datagrams) != 0 || socketpair(AF_UNIX, SOCK_DGRAM, 0, log) != 0 ||
      pipe(stream) != 0) {
    state.SkipWithError("no descriptors");
    return;
  }
  std::array<std::byte, 100> record{};
  const auto wait = [](int fd) {
    pollfd set{fd, POLLIN, 0};
    poll(&set, 1, -1);
  };
  for ([[maybe_unused]] auto _ : state) {
    ssize_t done = send(datagrams[0], record.data(), record.size(), 0);
    wait(datagrams[1]);
    done += recv(datagrams[1], record.data(), record.size(), 0);
    done += write(stream[1], record.data(), record.size());
    wait(stream[0]);
    done += read(stream[0], record.data(), 32);
    done += read(stream[0], record.data(), record.size() - 32);
    done += send(log[0], record.data(), record.size(), 0);
    done += recv(log[1], record.data(), record.size(), 0);
    benchmark::DoNotOptimize(done);
  }
  for (const int fd : {datagrams[0], datagrams[1], log[0], log[1], stream[0], stream[1]}) close(fd);
}
BENCHMARK(SystemCallsOfAnObservation);

}  // namespace
}  // namespace rynd
