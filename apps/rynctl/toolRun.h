// For tests: the tool run in their own process, to its end or in the background.
#pragma once

#include <string>
#include <thread>
#include <vector>

namespace rynctl {

/// What a run left.
struct ToolResult {
  int status = -1;
  std::string out;
  std::string err;  ///< without the line that names the tests' root, where it comes first
};

/// Run "rynctl WORDS..." to its end.
ToolResult RunTool(const std::vector<std::string> &words);

/// Remove every socket and file that an earlier test left below the process's root.
void CleanRoot();

/// A run in a thread of its own.
class BackgroundTool {
 public:
  explicit BackgroundTool(std::vector<std::string> words);
  ~BackgroundTool();

  /// Send `signal` to the run's thread, which must be waiting for it.
  void Signal(int signal);
  /// Wait for the run's end.
  const ToolResult &Result();

 private:
  ToolResult result_;  ///< the thread's until it is joined
  std::thread thread_;
};

}  // namespace rynctl
