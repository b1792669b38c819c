#include "testing/linux/linuxHost.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

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
  std::vector<char *> argv;
  std::string program = RYNLINUXD_PROGRAM;
  argv.push_back(program.data());
  for (std::string &argument : arguments_) argv.push_back(argument.data());
  argv.push_back(nullptr);
  watcher_ = fork();
  if (watcher_ == 0) {
    setenv("CORVANE_ROOT", root_.Path().c_str(), 1);
    const int out = open((root_ / "/watcher").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(out, 1);
    dup2(out, 2);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  EXPECT_TRUE(log_.Lines().WaitFor("rynlinuxd watches", before + 1)) << ReadFile(root_ / "/watcher");
}

void LinuxHost::EndWatcher(int signal) {
  if (watcher_ < 0) return;
  kill(watcher_, signal);
  int status = 0;
  waitpid(watcher_, &status, 0);
  watcher_ = -1;
  const bool isExpected = signal == SIGKILL ? WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL
                                            : WIFEXITED(status) && WEXITSTATUS(status) == 0;
  EXPECT_TRUE(isExpected) << status << ' ' << ReadFile(root_ / "/watcher");
}

long LinuxHost::HeldKib() const {
  const std::string watcher = std::to_string(watcher_);
  std::istringstream processes(watcher + ' ' + ReadFile("/proc/" + watcher + "/task/" + watcher + "/children"));
  long sum = 0;
  for (std::string process; processes >> process;) {
    const std::string rollup = ReadFile("/proc/" + process + "/smaps_rollup");
    sum += std::atol(rollup.c_str() + rollup.find("\nPss:") + 5);
  }
  return sum;
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
  size_t count = 0;
  for (const std::string &event : Events()) count += event.find(part) != std::string::npos ? 1 : 0;
  return count;
}

bool LinuxHost::Tells(const std::string &part, size_t count, double seconds) const {
  return WaitUntil([&] { return CountOf(part) >= count; }, seconds);
}

std::string LinuxHost::Check() const {
  const std::string out = root_ / "/check";
  Shell("CORVANE_ROOT=" + root_.Path() + " " RYNCTL_PROGRAM " check --color never >" + out + " 2>&1");
  return ReadFile(out);
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
