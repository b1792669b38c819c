#include "testing/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "testing/ledger.h"

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const std::string &what) {
  perror(what.c_str());
  abort();
}

base::UniqueFd Serve(const std::string &path, int type) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  base::UniqueFd fd;
  errno = hosted::ServeUnixSocket(path, type, 0660, &fd);
  if (errno != 0) Fail(path);
  return fd;
}

base::UniqueFd Connect(const std::string &path, int type) {
  base::UniqueFd fd;
  errno = hosted::ConnectUnixSocket(path, type, &fd);
  if (errno != 0) Fail(path);
  return fd;
}

void Ring(const base::UniqueFd &stop) {
  const uint64_t one = 1;
  if (write(stop.Get(), &one, sizeof one) < 0) Fail("eventfd");
}

/// False when `stop` rings before `fd` is readable.
bool WaitReadable(int fd, int stop) {
  pollfd set[] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
  while (poll(set, 2, -1) < 0) {
  }
  return set[0].revents != 0;
}

std::string ReadToEnd(int fd) {
  std::string bytes;
  char part[65536];
  for (ssize_t count; (count = read(fd, part, sizeof part)) > 0;) bytes.append(part, static_cast<size_t>(count));
  return bytes;
}

void RedirectTo(int fd, const std::string &path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (file < 0 || dup2(file, fd) < 0) _exit(126);
  close(file);
}

}  // namespace

bool IsSlowBuild() {
  return RYND_SLOW_BUILD != 0;
}

void Collector::Add(std::string text) {
  const std::lock_guard lock(mutex_);
  texts_.push_back(std::move(text));
  changed_.notify_all();
}

std::vector<std::string> Collector::All() const {
  const std::lock_guard lock(mutex_);
  return texts_;
}

size_t Collector::Count() const {
  const std::lock_guard lock(mutex_);
  return texts_.size();
}

bool Collector::WaitFor(const std::string &part, size_t count, double seconds) const {
  std::unique_lock lock(mutex_);
  size_t seen = 0;
  size_t next = 0;
  return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
    for (; next < texts_.size(); ++next) seen += texts_[next].find(part) != std::string::npos ? 1 : 0;
    return seen >= count;
  });
}

size_t Collector::CountOf(const std::string &part) const {
  const std::lock_guard lock(mutex_);
  size_t count = 0;
  for (const std::string &text : texts_) count += text.find(part) != std::string::npos ? 1 : 0;
  return count;
}

int Collector::IndexOf(const std::string &part) const {
  const std::lock_guard lock(mutex_);
  for (size_t i = 0; i < texts_.size(); ++i) {
    if (texts_[i].find(part) != std::string::npos) return static_cast<int>(i);
  }
  return -1;
}

LogListener::LogListener(const std::string &path)
    : socket_(Serve(path, SOCK_DGRAM)), stop_(eventfd(0, EFD_CLOEXEC)), thread_([this] {
        std::vector<char> record(300000);
        while (WaitReadable(socket_.Get(), stop_.Get())) {
          const ssize_t length = recv(socket_.Get(), record.data(), record.size(), MSG_DONTWAIT);
          if (length >= 0) lines_.Add(std::string(record.data(), static_cast<size_t>(length)));
        }
      }) {}

LogListener::~LogListener() {
  Ring(stop_);
  thread_.join();
}

EventListener::EventListener(const std::string &path)
    : socket_(Serve(path, SOCK_STREAM)),
      stop_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] {
        while (WaitReadable(socket_.Get(), stop_.Get())) {
          const base::UniqueFd connection(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
          if (connection) records_.Add(ReadToEnd(connection.Get()));
        }
      }),
      path_(path) {}

EventListener::~EventListener() {
  Ring(stop_);
  thread_.join();
  unlink(path_.c_str());
}

std::vector<std::string> EventListener::Names() const {
  std::vector<std::string> names;
  for (const std::string &record : records_.All()) {
    names.push_back(record.size() > 68 ? std::string(record.c_str() + 68) : "(short record)");
  }
  return names;
}

Daemon::Daemon(const TestRoot &root, const std::vector<std::string> &arguments, const std::string &below,
               int standardError, const std::function<void()> &inChild)
    : root_(root) {
  std::vector<std::string> words;
  std::istringstream emulator(RYND_EMULATOR);
  for (std::string word; std::getline(emulator, word, ' ');) words.push_back(word);
  words.push_back(RYND_PROGRAM);
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::string out = root / "/stdout";
  const std::string err = root / "/stderr";
  const std::string path = root / below;
  pid_ = fork();
  if (pid_ < 0) Fail("fork");
  if (pid_ > 0) return;
  RedirectTo(STDOUT_FILENO, out);
  if (standardError < 0) {
    RedirectTo(STDERR_FILENO, err);
  } else {
    dup2(standardError, STDERR_FILENO);
  }
  setenv("CORVANE_ROOT", path.c_str(), 1);
  if (inChild) inChild();
  execvp(argv[0], argv.data());
  _exit(127);
}

Daemon::~Daemon() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Daemon::Signal(int number) const {
  if (pid_ > 0) kill(pid_, number);  // never the whole session of one that has ended
}

int Daemon::WaitForExit(double seconds) {
  int status = 0;
  const bool ended = WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, seconds);
  if (!ended) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Daemon::Stop(double seconds) {
  ExpectLedgerCloses(root_);
  Signal(SIGTERM);
  return WaitForExit(seconds);
}

base::UniqueFd ConnectKernel(const TestRoot &root, unsigned id) {
  char name[] = "/kernel-00";
  name[8] = static_cast<char>('0' + id / 10);
  name[9] = static_cast<char>('0' + id % 10);
  return Connect(root / (std::string(hosted::kContextFolder) + name), SOCK_DGRAM);
}

base::UniqueFd ConnectUser(const TestRoot &root) {
  return Connect(root / hosted::kUserSocket, SOCK_SEQPACKET);
}

base::UniqueFd ConnectTrace(const TestRoot &root) {
  return Connect(root / hosted::kTraceSocket, SOCK_STREAM);
}

std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts,
                                  const std::vector<int32_t> &integers, const std::string &message) {
  hosted::RawRecord record;
  record.microseconds = 1'700'000'000'000'000;
  record.id = id;
  record.message = message;
  for (const std::string &text : texts) record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, text});
  for (const int32_t value : integers) {
    record.arguments.push_back({hosted::ArgumentKind::kSigned, 4, static_cast<uint64_t>(int64_t{value}), {}});
  }
  return hosted::EncodeRecord(record);
}

bool SendRecord(const base::UniqueFd &fd, const std::vector<std::byte> &record) {
  return send(fd.Get(), record.data(), record.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(record.size());
}

bool WaitUntil(const std::function<bool()> &condition, double seconds) {
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

RunningDaemon::RunningDaemon() {
  if (!log.Lines().WaitFor("rynd setup completed. Start polling loop.")) Fail("the daemon is not ready");
}

}  // namespace testing_support
