// A Linux host in namespaces of its own: the daemon, a management agent and rynlinuxd, under which real things happen.
#pragma once

#include <gtest/gtest.h>

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
void Pause(double seconds);

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
  const Process &Watcher() const { return *watcher_; }
  const Collector &Log() const { return log_.Lines(); }
  TestRoot &Root() { return root_; }

  /// "NAME TEXT" of each event so far.
  std::vector<std::string> Events() const;
  size_t CountOf(const std::string &part) const;
  /// Wait until `count` events hold `part`; shows all of them where they never do.
  testing::AssertionResult Tells(const std::string &part, size_t count = 1, double seconds = 30) const;
  /// The last event that holds `part`, or "".
  std::string LastOf(const std::string &part) const;
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
  std::optional<Process> watcher_;
};

}  // namespace testing_support
