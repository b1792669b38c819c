// What only the daemon has a figure of: rest, what it allocates, many ports at once, trace clients.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/measures.h"
#include "bench/records.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"

namespace bench {
namespace {

constexpr char kReady[] = "rynd setup completed. Start polling loop.";
constexpr char kHandledId[] = "ryn.storage.apd.timeout";
const std::vector<std::string> kDaemon = {RYND_PROGRAM};

void Rest(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// Takes events as long as it lives, for measures that do not look at them.
class EventDrain {
 public:
  explicit EventDrain(EventSocket *events)
      : thread_([this, events] {
          int64_t arrival = 0;
          for (pollfd ready{events->Fd(), POLLIN, 0}; !stop_;) {
            if (poll(&ready, 1, 50) == 1) events->Receive(&arrival);
          }
        }) {}
  ~EventDrain() {
    stop_ = true;
    thread_.join();
  }
  EventDrain(const EventDrain &) = delete;
  EventDrain &operator=(const EventDrain &) = delete;

 private:
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

/// The counter that the preloaded library adds to.
class AllocationCounter {
 public:
  AllocationCounter() : path_(hosted::RootPath("/allocations")) {
    std::ofstream(path_, std::ios::binary).write("\0\0\0\0\0\0\0", sizeof(uint64_t));
    const base::UniqueFd fd(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    void *memory = mmap(nullptr, sizeof(uint64_t), PROT_READ, MAP_SHARED, fd.Get(), 0);
    if (memory == MAP_FAILED) Fail(path_);
    count_ = static_cast<const std::atomic<uint64_t> *>(memory);
    setenv("RYND_ALLOCATIONS", path_.c_str(), 1);
    setenv("LD_PRELOAD", ALLOCATIONS_LIBRARY, 1);
  }
  ~AllocationCounter() {
    unsetenv("LD_PRELOAD");
    munmap(const_cast<std::atomic<uint64_t> *>(count_), sizeof(uint64_t));
  }
  AllocationCounter(const AllocationCounter &) = delete;
  AllocationCounter &operator=(const AllocationCounter &) = delete;
  double Get() const { return static_cast<double>(count_->load()); }

 private:
  std::string path_;
  const std::atomic<uint64_t> *count_;
};

/// Clients that read all they get, on one thread.
class TraceClients {
 public:
  explicit TraceClients(int count) {
    for (int i = 0; i < count; ++i) {
      base::UniqueFd fd;
      errno = hosted::ConnectUnixSocket(hosted::RootPath(hosted::kTraceSocket), SOCK_STREAM, &fd);
      if (errno != 0) Fail("trace socket");
      set_.push_back({fd.Get(), POLLIN, 0});
      clients_.push_back(std::move(fd));
    }
    thread_ = std::thread([this] { Read(); });
  }
  ~TraceClients() {
    stop_ = true;
    thread_.join();
  }
  TraceClients(const TraceClients &) = delete;
  TraceClients &operator=(const TraceClients &) = delete;

 private:
  void Read() {
    std::vector<char> lines(65536);
    while (!stop_) {
      if (poll(set_.data(), set_.size(), 50) <= 0) continue;
      for (const pollfd &client : set_) {
        if (client.revents != 0 && recv(client.fd, lines.data(), lines.size(), MSG_DONTWAIT) == 0)
          Fail("a trace client");
      }
    }
  }
  std::vector<base::UniqueFd> clients_;
  std::vector<pollfd> set_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

std::vector<std::byte> PortRecord(const char *direction, int uplink, int port, int active) {
  return MakeRecord(std::string("ryn.net.dvport.uplink.transition.") + direction, "m",
                    {Text("hynic" + std::to_string(uplink)), Text(std::to_string(port)), Text("dvs0"),
                     Number(static_cast<uint64_t>(active)), Number(0)});
}

}  // namespace

double MeasureIdle(Setting *setting) {
  const Program program(kDaemon, kReady, &setting->log);
  Rest(200);
  const long before = program.Switches();
  Rest(2000);
  return static_cast<double>(program.Switches() - before) / 2;
}

double MeasureRestore(int uplinks, int ports, Setting *setting) {
  const std::filesystem::path folder = hosted::RootPath("/var/lib/corvane/host/net/dvports/dvs0");
  std::filesystem::create_directories(folder);
  for (int port = 0; port < ports; ++port) std::ofstream(folder / std::to_string(port));
  const Program program(kDaemon, kReady, &setting->log);
  const LogDrain log(&setting->log);
  const EventDrain events(&setting->events);
  const base::UniqueFd kernel = ConnectKernel();
  constexpr int kSettled = 4000;  // milliseconds; they settle 2 s after the last
  for (int uplink = 0; uplink < uplinks; ++uplink) {
    for (int port = 0; port < ports; ++port) Submit(kernel, PortRecord("down", uplink, port, 0));
  }
  Rest(kSettled);
  for (int uplink = 0; uplink < uplinks; ++uplink) {
    for (int port = 0; port < ports; ++port) Submit(kernel, PortRecord("up", uplink, port, 2));
  }
  Rest(500);  // all are handled, and none has settled
  const int64_t before = program.CpuTime();
  Rest(kSettled);
  const double taken = static_cast<double>(program.CpuTime() - before) / 1e3;
  std::filesystem::remove_all(hosted::RootPath("/var/lib/corvane/host/net"));
  return taken;
}

std::vector<double> MeasureAllocations(Setting *setting) {
  const AllocationCounter counter;
  const Program program(kDaemon, kReady, &setting->log);
  const LogDrain log(&setting->log);
  const EventDrain events(&setting->events);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> records[] = {
      MakeRecord("ryn.nobody.wants.it", "m", {Text("naa.1")}),
      MakeRecord(kHandledId, "m", {Text("naa.1")}),
      MakeRecord(kHandledId, "m", {Text("naa.1"), Number(140)}),
  };
  constexpr int kCount = 200;
  std::vector<double> counts;
  for (const std::vector<std::byte> &record : records) {
    double before = 0;
    for (int i = -20; i < kCount; ++i) {
      if (i == 0) Rest(300);
      if (i == 0) before = counter.Get();
      Submit(kernel, record);
    }
    Rest(500);
    counts.push_back((counter.Get() - before) / kCount);
  }
  return counts;
}

std::vector<int64_t> MeasureTraced(int clients, int count, Setting *setting) {
  const Program program(kDaemon, kReady, &setting->log);
  const LogDrain log(&setting->log);
  const TraceClients readers(clients);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record = MakeRecord(kHandledId, "m", {Text("naa.1"), Number(140)});
  std::vector<int64_t> samples;
  for (int i = 0; i < count; ++i) {
    Rest(2);
    const int64_t start = Now();
    Submit(kernel, record);
    int64_t arrival = 0;
    setting->events.Receive(&arrival);
    samples.push_back(arrival - start);
  }
  return samples;
}

}  // namespace bench
