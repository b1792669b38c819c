#include "rynctl/health/healthChecks.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "hosted/paths.h"
#include "librynsubmit/rynsubmit.h"
#include "rynctl/daemonSocket.h"
#include "rynctl/health/socketOwner.h"
#include "rynctl/health/statistics.h"

namespace rynctl {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kLimit(3000);
constexpr uint64_t kSecondUs = 1'000'000;
constexpr uint64_t kWatchdogWindowUs = 8 * kSecondUs;  ///< an uplink's window, and a second for the timer

uint64_t Sum(const json &list) {
  uint64_t sum = 0;
  for (const json &entry : list) sum += entry.get<uint64_t>();
  return sum;
}

std::string Count(uint64_t count, const std::string &noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

HealthCheck CheckAgents(const json &statistics) {
  const uint64_t wanted = statistics.at("agentsWanted");
  uint64_t alive = 0;
  std::string ended;
  for (const json &agent : statistics.at("agents")) {
    if (agent.at("alive")) {
      ++alive;
    } else {
      ended += (ended.empty() ? "; ended: " : ", ") + agent.at("name").get<std::string>();
    }
  }
  const std::string text = std::to_string(alive) + " of " + std::to_string(wanted) + " run" + ended;
  if (alive >= wanted) return {"agents", HealthState::kOk, text, ""};
  return {"agents", HealthState::kFail, text, "look for their exceptions in the daemon's log, then restart rynd"};
}

/// The kernel's contexts: their sockets must be where senders look for them.
HealthCheck CheckContexts(const json &statistics) {
  unsigned there = 0;
  unsigned hidden = 0;
  constexpr unsigned kContexts = 29;
  for (unsigned id = 0; id < kContexts; ++id) {
    struct stat status {};
    if (stat(hosted::KernelSocketPath(id).c_str(), &status) == 0) {
      ++there;
    } else if (errno == EACCES) {
      ++hidden;
    }
  }
  const uint64_t discarded = [&] {
    uint64_t sum = 0;
    for (const json &context : statistics.at("contexts")) sum += Sum(context.at("discarded"));
    return sum;
  }();
  const std::string bad = discarded == 0 ? "" : ", " + Count(discarded, "bad record") + " discarded";
  if (hidden > 0) {
    return {"contexts", HealthState::kOk, "opened by the daemon; their folder shows them to root alone" + bad, ""};
  }
  const std::string text = std::to_string(there) + " of " + std::to_string(kContexts) + " open" + bad;
  if (there == kContexts) return {"contexts", HealthState::kOk, text, ""};
  return {"contexts", HealthState::kFail, text, "something removed their sockets: restart rynd"};
}

HealthCheck CheckQueue(const json &events) {
  const uint64_t waiting = events.at("waiting");
  if (waiting == 0) return {"event queue", HealthState::kOk, "empty", ""};
  const uint64_t oldestUs = events.at("oldestWaitingUs");
  const HealthState state = oldestUs > 300 * kSecondUs ? HealthState::kFail : HealthState::kWarn;
  return {"event queue", state, Count(waiting, "event") + " waiting, the oldest for " + DurationText(oldestUs),
          "they are sent within 60 seconds once the management agent accepts; a restart of rynd loses them"};
}

HealthCheck CheckDrops(const json &events) {
  const json &dropped = events.at("dropped");
  const uint64_t all = Sum(dropped);
  if (all == 0) return {"rate limit", HealthState::kOk, "no event was dropped", ""};
  const uint64_t byRate = dropped.at("rate");
  return {
      "rate limit", HealthState::kWarn,
      Count(all, "event") + " dropped since the start, " + std::to_string(byRate) + " by the limit of 1000 a minute",
      "`rynctl trace` shows which ids flood"};
}

HealthCheck CheckLog(const json &log) {
  const uint64_t dropped = log.at("dropped");
  if (dropped == 0) return {"log", HealthState::kOk, "no line was dropped", ""};
  return {"log", HealthState::kWarn, Count(dropped, "line") + " dropped: the system log took them too slowly",
          "see whether the system log (journald, syslog) works"};
}

HealthCheck CheckUplinks(const json &statistics) {
  const uint64_t nowUs = statistics.at("nowUs");
  std::string names;
  for (const json &uplink : statistics.at("waitingUplinks")) {
    const uint64_t sinceUs = uplink.at("sinceUs");
    if (nowUs < sinceUs + kWatchdogWindowUs) continue;
    names += (names.empty() ? "" : ", ") + uplink.at("uplink").get<std::string>() + " (for " +
             DurationText(nowUs - sinceUs) + ")";
  }
  if (names.empty()) return {"uplinks", HealthState::kOk, "none waits for its watchdog", ""};
  return {"uplinks", HealthState::kWarn, "silent since their watchdog fired: " + names,
          "look at these NICs by hand; restart rynd to hear of them again"};
}

/// The last error number and what it means.
std::string ErrorText(int error) {
  return std::strerror(error);
}

}  // namespace

std::vector<HealthCheck> CheckStatistics(const json &statistics) {
  const json &events = statistics.at("events");
  const std::string version = statistics.at("version");
  HealthCheck daemon{"daemon", HealthState::kOk, "rynd " + version + ", process " + statistics.at("pid").dump(), ""};
  if (version != RYND_VERSION) {
    daemon.state = HealthState::kWarn;
    daemon.text += "; this tool is " RYND_VERSION;
    daemon.action = "restart rynd if it was upgraded";
  }
  return {daemon,
          CheckAgents(statistics),
          CheckContexts(statistics),
          CheckManagementAgent(statistics),
          CheckQueue(events),
          CheckDrops(events),
          CheckLog(statistics.at("log")),
          CheckUplinks(statistics)};
}

HealthCheck CheckManagementAgent(const json &statistics) {
  constexpr const char *kSubject = "management agent";
  const std::string path = hosted::RootPath(hosted::kEventSocket);
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return {kSubject, HealthState::kWarn, "none: nothing serves " + path,
            "start one, or `rynctl listen` to see the events; they wait meanwhile"};
  }
  const SocketOwner owner = FindSocketOwner(path);
  if (!owner.isServed) {
    return {kSubject, HealthState::kWarn, "gone: " + path + " is left behind", "start it again; events wait meanwhile"};
  }
  const uint64_t silentUs = statistics.is_object() ? statistics.at("events").at("notAcceptingUs").get<uint64_t>() : 0;
  if (silentUs > 2 * kSecondUs) {
    return {kSubject, HealthState::kFail,
            owner.name + " has accepted no connection for " + DurationText(silentUs) + ": no event goes out",
            "see why it hangs, or end it: everything that posts waits for it"};
  }
  return {kSubject, HealthState::kOk, owner.name + " serves the events", ""};
}

HealthCheck CheckRoundTrip(std::ostream &err) {
  constexpr const char *kSubject = "round trip";
  constexpr const char *kId = "ryn.user.rynctl.check";
  Patience patience{err, kLimit, kLimit};
  base::UniqueFd feed;
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  if (const std::string error = ConnectToDaemon(path, SOCK_STREAM, &patience, &feed); !error.empty()) {
    return {kSubject, HealthState::kFail, error, "see the daemon's line above"};
  }
  rynsubmit *connection = nullptr;
  const int limitMs = static_cast<int>(kLimit.count());
  int status = rynsubmit_connect(limitMs, &connection);
  const std::string mark =
      std::to_string(getpid()) + "-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
  const rynsubmit_argument argument = rynsubmit_string(mark.c_str());
  if (status == 0) status = rynsubmit_submit(connection, kId, "is the daemon there?", &argument, 1);
  rynsubmit_close(connection);
  if (status == EACCES) {
    return {kSubject, HealthState::kWarn, "this user may not submit: " + hosted::RootPath(hosted::kUserSocket),
            "become a member of the socket's group (corvane), or root"};
  }
  if (status != 0) {
    return {kSubject, HealthState::kFail, "an observation of a program is not taken: " + ErrorText(status),
            "eight programs at once are served: `rynctl stats` counts them"};
  }
  if (!WaitForText(feed.Get(), mark, kLimit)) {
    return {kSubject, HealthState::kFail, "an observation was taken and does not come out on the trace feed",
            "an agent that hangs holds everything up: `rynctl stats` shows where bytes wait"};
  }
  return {kSubject, HealthState::kOk, "an observation of this program came through", ""};
}

std::vector<HealthCheck> RunHealthChecks(std::ostream &err) {
  Patience patience{err, kLimit, kLimit};
  json statistics;
  std::vector<HealthCheck> checks;
  const std::string error = FetchStatistics(&patience, &statistics);
  if (error.empty()) {
    checks = CheckStatistics(statistics);
    if (statistics.contains("flight")) checks.push_back(CheckFlightRecorder(statistics));
    checks.push_back(CheckRoundTrip(err));
  } else {
    checks.push_back(
        {"daemon", HealthState::kFail, error, "`systemctl status rynd`; start it with `systemctl start rynd`"});
    checks.push_back(CheckManagementAgent(nullptr));
  }
  for (HealthCheck &check : CheckHostTree()) checks.push_back(std::move(check));
  for (HealthCheck &check : CheckLinuxSources()) checks.push_back(std::move(check));
  return checks;
}

}  // namespace rynctl
