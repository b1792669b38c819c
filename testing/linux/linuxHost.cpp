#include "testing/linux/linuxHost.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "eventRecord/eventDecoder.h"

namespace testing_support {

std::string EnterNamespaces(bool keepsNetwork) {
  if (geteuid() != 0) return "only root can make namespaces";
  // Out of those of an earlier test, whose mounts and links go with them.
  static const int mounts = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
  static const int network = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (setns(mounts, CLONE_NEWNS) != 0 || setns(network, CLONE_NEWNET) != 0)
    return std::string("no way back to the first namespaces: ") + std::strerror(errno);
  if (unshare(CLONE_NEWNS | (keepsNetwork ? 0 : CLONE_NEWNET)) != 0)
    return std::string("no namespaces: ") + std::strerror(errno);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return std::string("no private mounts: ") + std::strerror(errno);
  return "";
}

bool Shell(const std::string &command) {
  return std::system(command.c_str()) == 0;
}

void Pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

LinuxHost::LinuxHost(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {
  StartDaemon();
  StartWatcher();
}

LinuxHost::~LinuxHost() {
  EndWatcher(SIGKILL);
}

void LinuxHost::StartDaemon() {
  const size_t before = log_.Lines().CountOf("rynd setup completed");
  daemon_.emplace(root_);
  EXPECT_TRUE(log_.Lines().WaitFor("rynd setup completed", before + 1));
}

void LinuxHost::EndDaemon(int signal) {
  daemon_->Signal(signal);
  daemon_->WaitForExit();
  daemon_.reset();
}

void LinuxHost::StartWatcher() {
  const size_t before = log_.Lines().CountOf("rynlinuxd watches");
  std::vector<std::string> words = {RYNLINUXD_PROGRAM};
  words.insert(words.end(), arguments_.begin(), arguments_.end());
  watcher_.emplace(words, [&] {
    setenv("CORVANE_ROOT", root_.Path().c_str(), 1);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) RedirectTo(fd, root_ / "/watcher");
  });
  EXPECT_TRUE(log_.Lines().WaitFor("rynlinuxd watches", before + 1)) << ReadFile(root_ / "/watcher");
}

void LinuxHost::EndWatcher(int signal) {
  if (!watcher_) return;
  watcher_->Signal(signal);
  EXPECT_EQ(watcher_->WaitForExit(), signal == SIGKILL ? 128 + SIGKILL : 0) << ReadFile(root_ / "/watcher");
  watcher_.reset();
}

std::vector<std::string> LinuxHost::Events() const {
  std::vector<std::string> events;
  for (const std::string &record : events_.Records().All()) {
    const auto event = eventrecord::DecodeEvent(reinterpret_cast<const std::byte *>(record.data()), record.size());
    events.push_back(event.name + ' ' + event.text);
  }
  return events;
}

size_t LinuxHost::CountOf(const std::string &part) const {
  const std::vector<std::string> events = Events();
  return static_cast<size_t>(
      std::ranges::count_if(events, [&](const auto &event) { return event.find(part) != std::string::npos; }));
}

testing::AssertionResult LinuxHost::Tells(const std::string &part, size_t count, double seconds) const {
  if (WaitUntil([&] { return CountOf(part) >= count; }, seconds)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << '\'' << part << "' was not told " << count << " times:\n" << All();
}

std::string LinuxHost::LastOf(const std::string &part) const {
  std::string last;
  for (const std::string &event : Events()) {
    if (event.find(part) != std::string::npos) last = event;
  }
  return last;
}

std::string LinuxHost::Check() const {
  return RunShell("CORVANE_ROOT=" + root_.Path() + " " RYNCTL_PROGRAM " check --color never 2>&1").text;
}

bool LinuxHost::Watches(const std::string &source) const {
  return ReadFile(root_ / "/var/lib/corvane/linux/status.json").find('"' + source + "\": \"watching\"") !=
         std::string::npos;
}

std::string LinuxHost::All() const {
  std::string all;
  for (const std::string &event : Events()) all += event + '\n';
  return all;
}

}  // namespace testing_support
