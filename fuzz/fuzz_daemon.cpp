// The whole daemon in this process, over its real sockets: records into contexts and user connections, lines of trace
// clients. Everything that is sent is accounted for within ten seconds; each event must decode and stand in the
// catalogue. A stop ends it with the fuzzer.
#include <fuzzer/FuzzedDataProvider.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "base/uniqueFd.h"
#include "catalog/catalog.h"
#include "core/basics/statistics.h"
#include "core/feed/statisticsReport.h"
#include "core/startup.h"
#include "correlators/agentTable.h"
#include "eventRecord/eventDecoder.h"
#include "fuzz/seedRecord.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "platform/ryn.h"
#include "platform/statistics.h"

namespace {

base::UniqueFd Serve(const char *path, int type) {
  base::UniqueFd fd;
  const std::string whole = hosted::RootPath(path);
  hosted::MakeFolders(whole.substr(0, whole.rfind('/')), 0755);
  if (hosted::ServeUnixSocket(whole, type, 0660, &fd) != 0) abort();
  return fd;
}

void ServeLog(int log) {
  static char record[300'000];
  while (recv(log, record, sizeof record, 0) >= 0) continue;
}

/// Until the listener is shut down and nobody waits any more.
void ServeEvents(int listener) {
  for (;;) {
    const base::UniqueFd connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) return;
    std::vector<std::byte> record(2'000'000);
    size_t size = 0;
    for (ssize_t count; (count = read(connection.Get(), &record[size], record.size() - size)) > 0;) {
      size += static_cast<size_t>(count);
    }
    const eventrecord::DecodedEvent event = eventrecord::DecodeEvent(record.data(), size);
    if (!event.problems.empty() || catalog::FindEvent(event.name) == nullptr) abort();
  }
}

/// The daemon's thread and those of its peers, and their end. Never destroyed.
class Daemon {
 public:
  Daemon() {
    catalog::Events();  // before what ends this all is registered, so that it is still there at the end
    std::thread(ServeLog, log_.Get()).detach();
    eventThread_ = std::thread(ServeEvents, events_.Get());
    thread_ = std::thread([] {
      std::string words[] = {"rynd", "-e"};
      char *argv[] = {words[0].data(), words[1].data(), nullptr};
      if (rynd::Run(2, argv, rynd::AgentTable()) != 0) abort();
    });
    base::UniqueFd client;
    while (hosted::ConnectUnixSocket(hosted::RootPath(hosted::kTraceSocket), SOCK_STREAM, &client) != 0) usleep(1000);
    while (rynd::AgentsAlive() < rynd::AgentTable().size()) usleep(1000);
  }
  void Stop() {
    pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
    shutdown(events_.Get(), SHUT_RDWR);
    eventThread_.join();
  }

 private:
  const base::UniqueFd log_ = Serve(hosted::kLogSocket, SOCK_DGRAM);
  const base::UniqueFd events_ = Serve(hosted::kEventSocket, SOCK_STREAM);
  std::thread thread_, eventThread_;
};

Daemon &TheDaemon() {
  static Daemon &daemon = *new Daemon;
  return daemon;
}

/// Records that kernel contexts have given or thrown away.
uint64_t TakenRecords() {
  uint64_t count = 0;
  for (uint32_t id = 0; id < kRynUserContext; ++id) {
    RynContextStatistics context{};
    RynLib_GetContextStatistics(id, &context);
    count += context.records + context.resetRecords;
    for (const uint64_t discarded : context.discarded) count += discarded;
  }
  return count;
}

bool IsAtRest() {
  if (rynd::RecordsInStreams() != 0) return false;
  for (const rynd::AgentStatistics *agent : rynd::AllAgentStatistics()) {
    if (agent->received.Get() != agent->handled.Get() + agent->unhandled.Get()) return false;
  }
  return true;
}

/// Everybody who sends.
struct Peers {
  std::array<base::UniqueFd, 29> kernel;
  std::array<base::UniqueFd, 9> users;
  std::array<base::UniqueFd, 3> traces;
  uint64_t sent = 0;

  Peers() {
    for (unsigned id = 0; id < kernel.size(); ++id) {
      if (hosted::ConnectUnixSocket(hosted::KernelSocketPath(id), SOCK_DGRAM, &kernel[id]) != 0) abort();
    }
  }
  void Send(FuzzedDataProvider *input) {
    const std::vector<std::byte> record = Record(input);
    const auto to = input->ConsumeIntegral<uint8_t>();
    if (to < 128) {
      const int fd = kernel[to % kernel.size()].Get();
      if (send(fd, record.data(), record.size(), MSG_NOSIGNAL) >= 0) ++sent;
      return;
    }
    base::UniqueFd &user = users[to % users.size()];
    if (!user) hosted::ConnectUnixSocket(hosted::RootPath(hosted::kUserSocket), SOCK_SEQPACKET, &user);
    if (send(user.Get(), record.data(), record.size(), MSG_NOSIGNAL) < 0) user.Reset();
  }
  void AskForTrace(FuzzedDataProvider *input) {
    base::UniqueFd &trace = traces[input->ConsumeIntegral<uint8_t>() % traces.size()];
    if (!trace) hosted::ConnectUnixSocket(hosted::RootPath(hosted::kTraceSocket), SOCK_STREAM, &trace);
    static constexpr const char *kLines[] = {"json\n", "stats\n", "text\n", "\n"};
    const std::string line =
        input->ConsumeBool() ? input->PickValueInArray(kLines) : input->ConsumeRandomLengthString(100);
    send(trace.Get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    char answer[65536];
    if (recv(trace.Get(), answer, sizeof answer, MSG_DONTWAIT) == 0 || input->ConsumeBool()) trace.Reset();
  }
  /// One of an observation in the catalogue, or of anything, or changed at some places.
  static std::vector<std::byte> Record(FuzzedDataProvider *input) {
    const auto &all = catalog::Observations();
    const std::string &id = all[input->ConsumeIntegral<uint16_t>() % all.size()].id;
    hosted::RawRecord record{0, 0, id, input->ConsumeRandomLengthString(60), {}};
    for (uint8_t i = input->ConsumeIntegral<uint8_t>() % 4; i > 0; --i) {
      record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, input->ConsumeRandomLengthString(60)});
      record.arguments.push_back({hosted::ArgumentKind::kUnsigned, 4, input->ConsumeIntegral<uint32_t>(), {}});
    }
    if (input->ConsumeIntegral<uint8_t>() < 4) record.message.assign(input->ConsumeIntegral<uint16_t>() * 2, 'x');
    const std::string change = input->ConsumeRandomLengthString(30);
    std::vector<std::byte> seed = hosted::EncodeRecord(record);
    if (change.empty()) return seed;
    return fuzz::Mutate(reinterpret_cast<const uint8_t *>(change.data()), change.size(), std::move(seed));
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Daemon &daemon = TheDaemon();
  static Peers &peers = *new Peers;
  [[maybe_unused]] static const int isEndArranged = atexit([] { daemon.Stop(); });
  FuzzedDataProvider input(data, size);
  while (input.remaining_bytes() > 0) {
    if (input.ConsumeIntegral<uint8_t>() < 16) {
      peers.AskForTrace(&input);
    } else {
      peers.Send(&input);
    }
  }
  for (int waited = 0; TakenRecords() != peers.sent || !IsAtRest(); ++waited) {
    if (waited > 100'000) {
      fprintf(stderr, "%s\n", rynd::StatisticsReport().c_str());
      abort();
    }
    usleep(100);
  }
  return 0;
}
