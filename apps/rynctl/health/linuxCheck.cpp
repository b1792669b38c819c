// What rynlinuxd says of its sources, in the file that it writes at its start.
#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "hosted/paths.h"
#include "rynctl/health/healthChecks.h"

namespace rynctl {
namespace {

constexpr const char *kSubject = "linux sources";
constexpr const char *kFolder = "/var/lib/corvane/linux";
constexpr const char *kWatching = "watching";

/// It holds this lock for as long as it runs.
bool IsRunning(const std::string &folder) {
  const base::UniqueFd file(open((folder + "/.lock").c_str(), O_RDONLY | O_CLOEXEC));
  return file && flock(file.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

std::vector<HealthCheck> CheckLinuxSources() {
  const std::string folder = hosted::RootPath(kFolder);
  std::ifstream file(folder + "/status.json");
  // Hosts have it or not.
  if (!file) return {};
  if (!IsRunning(folder)) {
    return {{kSubject, HealthState::kWarn, "rynlinuxd does not run: nothing of this host is watched",
             "`systemctl start rynlinuxd`, or remove " + folder + " where it is not wanted"}};
  }
  const nlohmann::json status = nlohmann::json::parse(file, nullptr, false);
  if (!status.is_object()) {
    return {{kSubject, HealthState::kWarn, folder + "/status.json is damaged", "restart rynlinuxd"}};
  }
  std::string watching, missing;
  for (const auto &[name, state] : status.items()) {
    const std::string text = state.is_string() ? state.get<std::string>() : "?";
    if (text == kWatching) {
      watching += (watching.empty() ? "" : ", ") + name;
    } else {
      missing.append("; ").append(name).append(": ").append(text);
    }
  }
  const std::string text = (watching.empty() ? "none" : watching) + " watch" + missing;
  if (missing.empty()) return {{kSubject, HealthState::kOk, text, ""}};
  return {{kSubject, HealthState::kWarn, text, "rynlinuxd(8) says what each source needs"}};
}

}  // namespace rynctl
