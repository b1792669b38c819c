#include "testing/daemon.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "testing/ledger.h"

namespace testing_support {
namespace {

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
  size_t seen = 0, next = 0;
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

LogListener::LogListener(const std::string &path)
    : socket_(Serve(path, SOCK_DGRAM)), thread_([this] {
        std::vector<char> record(300000);
        for (ssize_t length; (length = recv(socket_.Get(), record.data(), record.size(), 0)) > 0;) {
          lines_.Add(std::string(record.data(), static_cast<size_t>(length)));
        }
      }) {}

LogListener::~LogListener() {
  shutdown(socket_.Get(), SHUT_RDWR);
  thread_.join();
}

EventListener::EventListener(const std::string &path, const std::function<void(std::string)> &take)
    : path_(path), socket_(Serve(path, SOCK_STREAM)), thread_([this, take] {
        for (;;) {
          const base::UniqueFd connection(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
          if (!connection) return;
          std::string record = ReadToEnd(connection.Get());
          take ? take(std::move(record)) : records_.Add(std::move(record));
        }
      }) {}

EventListener::~EventListener() {
  unlink(path_.c_str());
  shutdown(socket_.Get(), SHUT_RDWR);  // nobody comes in any more; who waits is still accepted
  thread_.join();
}

HangingAgent::HangingAgent(const TestRoot &root) : socket(Serve(root / hosted::kEventSocket, SOCK_STREAM)) {
  listen(socket.Get(), 0);
  filler = Connect(root / hosted::kEventSocket, SOCK_STREAM);
}

std::vector<std::string> EventListener::Names() const {
  std::vector<std::string> names;
  for (const std::string &record : records_.All()) {
    names.push_back(record.size() > 68 ? std::string(record.c_str() + 68) : "(short record)");
  }
  return names;
}

namespace {

std::vector<std::string> CommandLine() {
  std::vector<std::string> words;
  std::istringstream emulator(RYND_EMULATOR);
  for (std::string word; std::getline(emulator, word, ' ');) words.push_back(word);
  words.push_back(RYND_PROGRAM);
  return words;
}

}  // namespace

Daemon::Daemon(const TestRoot &root, const std::function<void()> &inChild)
    : Process(CommandLine(),
              [&root, &inChild] {
                RedirectTo(STDOUT_FILENO, root / "/stdout");
                RedirectTo(STDERR_FILENO, root / "/stderr");
                setenv("CORVANE_ROOT", root.Path().c_str(), 1);
                inChild();
              }),
      root_(root) {}

int Daemon::Stop(double seconds) {
  ExpectLedgerCloses(root_);
  Signal(SIGTERM);
  return WaitForExit(seconds);
}

base::UniqueFd ConnectKernel(const TestRoot &root, unsigned id) {
  const std::string folder = std::string(hosted::kContextFolder) + "/kernel-" + (id < 10 ? "0" : "");
  return Connect(root / (folder + std::to_string(id)), SOCK_DGRAM);
}

base::UniqueFd ConnectUser(const TestRoot &root) {
  return Connect(root / hosted::kUserSocket, SOCK_SEQPACKET);
}

base::UniqueFd ConnectTrace(const TestRoot &root) {
  return Connect(root / hosted::kTraceSocket, SOCK_STREAM);
}

std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts,
                                  const std::vector<int32_t> &integers, const std::string &message) {
  hosted::RawRecord record{0, 1'700'000'000'000'000, id, message, {}};
  for (const std::string &text : texts) record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, text});
  for (const int32_t value : integers) {
    record.arguments.push_back({hosted::ArgumentKind::kSigned, 4, static_cast<uint64_t>(int64_t{value}), {}});
  }
  return hosted::EncodeRecord(record);
}

bool SendRecord(const base::UniqueFd &fd, const std::vector<std::byte> &record) {
  return send(fd.Get(), record.data(), record.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(record.size());
}

std::string ReadToEnd(int fd) {
  std::string bytes;
  char part[65536];
  for (ssize_t count; (count = read(fd, part, sizeof part)) > 0;) bytes.append(part, static_cast<size_t>(count));
  return bytes;
}

RunningDaemon::RunningDaemon(const std::function<void(const TestRoot &root)> &prepare) : daemon((prepare(root), root)) {
  if (!log.Lines().WaitFor("rynd setup completed. Start polling loop.")) Fail("the daemon is not ready");
}

}  // namespace testing_support
