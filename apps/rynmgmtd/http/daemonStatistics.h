// What the daemon has counted, asked for over its trace socket.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace mgmtd {

/// Asks at most every 5 s, and waits at most 1 s for the answer: a daemon that hangs holds up nobody who asks for more
/// than it. One thread.
class DaemonStatistics {
 public:
  /// `path` of the trace socket.
  explicit DaemonStatistics(std::string path) : path_(std::move(path)) {}
  /// The daemon's own object; null when it is not there or does not answer.
  const nlohmann::json &Get();

 private:
  nlohmann::json Fetch() const;

  const std::string path_;
  nlohmann::json last_;
  std::chrono::steady_clock::time_point asked_{};
};

}  // namespace mgmtd
