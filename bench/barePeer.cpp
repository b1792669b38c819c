// The bare program that the daemon is measured against: the same sockets, threads and system calls as the daemon for
// one observation, and nothing else. No checks, no formatting: what it sends has the right length and no meaning. It
// waits as whoever serves that many sockets has to, by ppoll and poll; with RYND_BENCH_BLOCKING in its environment it
// does not, and blocks in the one socket and the one pipe that the bench uses.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/unixAddress.h"
#include "bench/barePeer.h"
#include "hosted/paths.h"
#include "platform/ryn.h"

namespace {

constexpr size_t kHeaderSize = 32;
constexpr size_t kTotalLengthOffset = 16;

/// What its arguments say; see bench/barePeer.h.
struct Job {
  std::string_view mode;
  int threads = 2;
  std::vector<size_t> logLengths;
  size_t eventLength = 0;
};

[[noreturn]] void Fail(const char *what) {
  perror(what);
  _exit(1);
}

base::UnixAddress Address(const std::string &path) {
  base::UnixAddress address;
  if (base::MakeUnixAddress(path, &address) != 0) Fail(path.c_str());
  return address;
}

/// A new socket bound, and but for SOCK_DGRAM listening, at `path`.
int Serve(const std::string &path, int type) {
  const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  unlink(path.c_str());
  if (bind(fd, Address(path).Get(), base::UnixAddress::kLength) != 0) Fail(path.c_str());
  if (type != SOCK_DGRAM && listen(fd, SOMAXCONN) != 0) Fail(path.c_str());
  return fd;
}

/// Open every socket that the daemon serves, that of kernel context 0 first.
std::vector<pollfd> OpenSockets() {
  mkdir(hosted::RootPath(hosted::kContextFolder).c_str(), 0700);
  std::vector<pollfd> set;
  for (unsigned id = 0; id < kRynAsyncContexts; ++id) {
    set.push_back({Serve(hosted::KernelSocketPath(id), SOCK_DGRAM), POLLIN, 0});
  }
  set.push_back({Serve(hosted::RootPath(hosted::kUserSocket), SOCK_SEQPACKET), POLLIN, 0});
  set.push_back({Serve(hosted::RootPath(hosted::kTraceSocket), SOCK_STREAM), POLLIN, 0});
  return set;
}

bool Blocks() {
  static const bool blocks = getenv("RYND_BENCH_BLOCKING") != nullptr;
  return blocks;
}

/// Wait until a descriptor of `set` is readable.
void Wait(std::vector<pollfd> *set) {
  static const sigset_t none{};
  if (!Blocks() && ppoll(set->data(), set->size(), nullptr, &none) < 0) Fail("ppoll");
}

int ConnectLog() {
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (connect(fd, Address(hosted::RootPath(hosted::kLogSocket)).Get(), base::UnixAddress::kLength) != 0) Fail("log");
  return fd;
}

/// Read one record off the pipe: its header, then the rest.
void ReadRecord(int pipe, char *record) {
  pollfd wait{pipe, POLLIN, 0};
  if (!Blocks() && poll(&wait, 1, -1) < 0) Fail("poll");
  uint32_t total = 0;
  if (read(pipe, record, kHeaderSize) != ssize_t{kHeaderSize}) Fail("read");
  std::memcpy(&total, record + kTotalLengthOffset, sizeof total);
  if (read(pipe, record + kHeaderSize, total - kHeaderSize) < 0) Fail("read");
}

/// The agent thread: for each record, the log datagrams and, with an event's length, the event before the last.
void RunAgent(const Job &job, int pipe, int log) {
  std::vector<char> record(131072);
  const std::vector<char> text(65536, 'x');
  const base::UnixAddress events = Address(hosted::RootPath(hosted::kEventSocket));
  for (;;) {
    ReadRecord(pipe, record.data());
    for (size_t i = 0; i < job.logLengths.size(); ++i) {
      if (job.eventLength > 0 && i + 1 == job.logLengths.size()) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, events.Get(), base::UnixAddress::kLength) != 0) Fail("connect");
        if (send(fd, text.data(), job.eventLength, 0) < 0) Fail("send");
        close(fd);
      }
      if (send(log, text.data(), job.logLengths[i], MSG_NOSIGNAL) < 0) Fail("log");
    }
  }
}

Job ParseArguments(int argc, char **argv) {
  if (argc < 4) {
    fputs("Usage: bare_peer latency|throughput|start THREADS EVENT_LENGTH [LOG_LENGTH...]\n", stderr);
    exit(2);
  }
  Job job{argv[1], atoi(argv[2]), {}, strtoul(argv[3], nullptr, 10)};
  for (int i = 4; i < argc; ++i) job.logLengths.push_back(strtoul(argv[i], nullptr, 10));
  return job;
}

}  // namespace

int main(int argc, char **argv) {
  const Job job = ParseArguments(argc, argv);
  std::vector<pollfd> sockets = OpenSockets();
  const int log = ConnectLog();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe2");
  std::thread([&] { RunAgent(job, ends[0], log); }).detach();
  for (int i = 2; i < job.threads; ++i) std::thread([] { pause(); }).detach();
  if (send(log, bench::kBareReady, strlen(bench::kBareReady), MSG_NOSIGNAL) < 0) Fail("log");
  std::vector<char> record(131072);
  for (;;) {  // until SIGTERM
    Wait(&sockets);
    const ssize_t length = recv(sockets[0].fd, record.data(), record.size(), 0);
    if (job.mode == "unmatched" && length <= bench::kSentinel) continue;
    if (length < 0 || write(ends[1], record.data(), static_cast<size_t>(length)) != length) Fail("record");
  }
}
