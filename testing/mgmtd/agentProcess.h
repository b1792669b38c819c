// The management agent as a process, and those who send to it. For tests and benchmarks.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "testing/processState.h"
#include "testing/testRoot.h"

namespace testing_support {

/// One running rynmgmtd below `root`; its log goes to `root`/mgmtd.log.
class AgentProcess : public Process {
 public:
  /// Returns when the agent serves both sockets, or has ended.
  explicit AgentProcess(const TestRoot &root, const std::vector<std::string> &arguments = {});
  /// Signal it, and wait for its end: the exit status, or 128 + the signal's number.
  int End(int signal);
};

std::string EventSocketOf(const TestRoot &root);
std::string StoreOf(const TestRoot &root);
/// What the agent below `root` answers; null when nobody does.
nlohmann::json Ask(const TestRoot &root, const nlohmann::json &question);
/// Send `bytes` as the daemon does: connect, send, close. False when that did not all succeed.
bool SendEvent(const TestRoot &root, const std::vector<std::byte> &bytes);
/// A connection that has sent `bytes` and stays.
base::UniqueFd HangingSender(const TestRoot &root, const std::vector<std::byte> &bytes);

}  // namespace testing_support
