// The subjects of "rynctl check".
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace rynctl {

enum class HealthState { kOk = 0, kWarn = 1, kFail = 2 };

/// What is known of one subject.
struct HealthCheck {
  std::string subject;
  HealthState state;
  std::string text;
  std::string action;  ///< what to do; "" when nothing is to be done
};

/// Look at everything; `err` is told when the daemon makes this tool wait. Takes a few seconds at most.
std::vector<HealthCheck> RunHealthChecks(std::ostream &err);

/// What the daemon's statistics say. For RunHealthChecks and its tests.
std::vector<HealthCheck> CheckStatistics(const nlohmann::json &statistics);
/// The management agent's socket, and who serves it, with what the statistics say of it.
HealthCheck CheckManagementAgent(const nlohmann::json &statistics);
/// The flight recorder, by the daemon's statistics and its files.
HealthCheck CheckFlightRecorder(const nlohmann::json &statistics);
/// The files of the host tree: which can't be read, which hold what they may not.
std::vector<HealthCheck> CheckHostTree();
/// Which of the host's own interfaces rynlinuxd watches; nothing where it never ran.
std::vector<HealthCheck> CheckLinuxSources();
/// Whether an observation of a program reaches the daemon.
HealthCheck CheckRoundTrip(std::ostream &err);

}  // namespace rynctl
