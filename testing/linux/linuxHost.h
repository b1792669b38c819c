// A Linux host in namespaces of its own: the daemon, a management agent and rynlinuxd, under which real things happen.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "testing/daemon.h"

namespace testing_support {

/// Why there can be no namespaces here, or "": this process is in new ones, of mounts and of the network unless
/// `keepsNetwork`, and so is what it starts.
std::string EnterNamespaces(bool keepsNetwork = false);
#define ENTER_NAMESPACES(...)                                                                      \
  if (const std::string missing = testing_support::EnterNamespaces(__VA_ARGS__); !missing.empty()) \
  GTEST_SKIP() << missing

/// Run a shell command; its success.
bool Shell(const std::string &command);

class LinuxHost {
 public:
  /// Start the daemon; and rynlinuxd with `arguments`, waiting until it watches.
  explicit LinuxHost(std::vector<std::string> arguments);
  ~LinuxHost();

  void StartDaemon();
  /// With SIGKILL nobody is told.
  void EndDaemon(int signal);
  void StartWatcher();
  void EndWatcher(int signal);
  pid_t Watcher() const { return watcher_; }
  /// Memory that rynlinuxd and its processes hold, what is shared with others by their parts, in KiB.
  long HeldKib() const;
  const Collector &Log() const { return log_.Lines(); }
  TestRoot &Root() { return root_; }

  /// "NAME TEXT" of each event so far.
  std::vector<std::string> Events() const;
  size_t CountOf(const std::string &part) const;
  /// Wait until `count` events hold `part`.
  bool Tells(const std::string &part, size_t count = 1, double seconds = 30) const;
  /// What `rynctl check` says.
  std::string Check() const;
  /// Whether this source does.
  bool Watches(const std::string &source) const;
  /// All events, for a failed expectation.
  std::string All() const;

 private:
  TestRoot root_;
  LogListener log_{root_ / "/dev/log"};
  EventListener events_{root_ / "/var/run/corvane/mgmtd-kprob.sock"};
  std::vector<std::string> arguments_;
  std::optional<Daemon> daemon_;
  pid_t watcher_ = -1;
};

}  // namespace testing_support
