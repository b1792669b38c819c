#include "bench/peers.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"

namespace bench {
namespace {

// What a failing benchmark leaves behind for no one: one program at a time, one root.
std::atomic<pid_t> runningProgram = 0;
std::string rootPath, runPath;

void RemoveRoot() {
  std::error_code ignored;
  for (const std::string &path : {rootPath, runPath}) {
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
}

base::UniqueFd Serve(const char *path, int type) {
  base::UniqueFd fd;
  errno = hosted::ServeUnixSocket(hosted::RootPath(path), type, 0600, &fd);
  if (errno != 0) Fail(path);
  return fd;
}

ssize_t ReceiveFrom(const base::UniqueFd &socket, char *record, size_t size) {
  ssize_t length = -1;
  do {
    length = recv(socket.Get(), record, size, 0);
  } while (length < 0 && errno == EINTR);
  return length;
}

}  // namespace

int64_t Now() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

void Fail(const std::string &what) {
  perror(what.c_str());
  if (runningProgram > 0) kill(runningProgram, SIGKILL);
  RemoveRoot();
  _exit(2);  // other threads may be at work
}

Root::Root() {
  char path[] = "/tmp/rynd-bench-XXXXXX";
  if (mkdtemp(path) == nullptr) Fail(path);
  rootPath = path;
  setenv("CORVANE_ROOT", path, 1);
  for (const char *folder : {"/dev", "/var/lib/corvane"}) std::filesystem::create_directories(rootPath + folder);
  char run[] = "/dev/shm/rynd-bench-XXXXXX";
  if (mkdtemp(run) == nullptr) Fail(run);
  runPath = run;
  std::filesystem::create_directory_symlink(runPath, rootPath + "/var/run");
  std::filesystem::create_directory(runPath + "/corvane");
}

Root::~Root() {
  RemoveRoot();
}

LogSocket::LogSocket() : socket_(Serve(hosted::kLogSocket, SOCK_DGRAM)) {}

void LogSocket::SetTimeout(int milliseconds) {
  if (milliseconds == milliseconds_) return;
  const timeval wait{milliseconds / 1000, milliseconds % 1000 * 1000};
  setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  milliseconds_ = milliseconds;
}

std::string LogSocket::Receive(int milliseconds) {
  SetTimeout(milliseconds);
  char record[65536];
  const ssize_t length = ReceiveFrom(socket_, record, sizeof record);
  return length > 0 ? std::string(record, static_cast<size_t>(length)) : "";
}

bool LogSocket::Skip(int milliseconds) {
  SetTimeout(milliseconds);
  char start[16];
  return ReceiveFrom(socket_, start, sizeof start) > 0;
}

void LogSocket::WaitFor(const std::string &part) {
  for (;;) {
    const std::string record = Receive();
    if (record.empty()) Fail("no log record \"" + part + "\"");
    if (record.find(part) != std::string::npos) return;
  }
}

EventSocket::EventSocket() : socket_(Serve(hosted::kEventSocket, SOCK_STREAM)) {
  const timeval wait{5, 0};
  setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

size_t EventSocket::Receive(int64_t *arrival) {
  const base::UniqueFd connection(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) Fail("no event");
  char record[65536];
  const ssize_t length = read(connection.Get(), record, sizeof record);
  *arrival = Now();
  if (length <= 0) Fail("no event's bytes");
  return static_cast<size_t>(length);
}

Program::Program(const std::vector<std::string> &argv, const std::string &ready, LogSocket *log) : log_(log) {
  std::vector<char *> words;
  words.reserve(argv.size() + 1);
  for (const std::string &word : argv) words.push_back(const_cast<char *>(word.c_str()));
  words.push_back(nullptr);
  const int64_t start = Now();
  errno = posix_spawn(&pid_, words[0], nullptr, nullptr, words.data(), environ);
  if (errno != 0) Fail(argv[0]);
  runningProgram = pid_;
  log_->WaitFor(ready);
  startTime_ = Now() - start;
}

Program::~Program() {
  kill(pid_, SIGTERM);
  while (waitpid(pid_, nullptr, WNOHANG) == 0) log_->Skip(1);  // its last words must not make it wait
  runningProgram = 0;
  while (log_->Skip(1)) {
  }
}

long Program::Status(const std::string &key) const {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":")) return std::stol(line.substr(key.size() + 1));
  }
  return 0;
}

long Program::ProportionalKib() const {
  std::ifstream maps("/proc/" + std::to_string(pid_) + "/smaps_rollup");
  for (std::string line; std::getline(maps, line);) {
    if (line.starts_with("Pss:")) return std::stol(line.substr(4));
  }
  return 0;
}

int64_t Program::CpuTime() const {
  clockid_t clock;
  timespec time{};
  if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0) Fail("processor time");
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

long Program::Switches() const {
  long sum = 0;
  for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      const size_t colon = line.find(':');
      if (line.find("ctxt_switches") < colon) sum += std::stol(line.substr(colon + 1));
    }
  }
  return sum;
}

base::UniqueFd ConnectKernel() {
  base::UniqueFd fd;
  errno = hosted::ConnectUnixSocket(hosted::KernelSocketPath(0), SOCK_DGRAM, &fd);
  if (errno != 0) Fail("kernel context 0");
  return fd;
}

}  // namespace bench
