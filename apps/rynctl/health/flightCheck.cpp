// The flight recorder as "rynctl check" sees it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "flight/format.h"
#include "flight/reader.h"
#include "hosted/paths.h"
#include "rynctl/health/healthChecks.h"
#include "rynctl/health/statistics.h"

namespace rynctl {
namespace {

constexpr const char *kRecorderSubject = "flight recorder";
constexpr uint64_t kMiB = uint64_t{1} << 20;

std::string SettingPath() {
  return hosted::RootPath(hosted::kHostTree) + "/sysinfo/config/intOpts/Flight/Megabytes";
}

/// ", N MiB held, the oldest DURATION old", as far as this user may look.
std::string Held(uint64_t nowUs) {
  const std::string folder = hosted::RootPath(flight::kRingFolder);
  std::vector<std::string> files;
  if (flight::ListRing(folder, &files) != 0) return "";
  uint64_t bytes = 0;
  for (const std::string &file : files) {
    std::error_code gone;
    const uint64_t size = std::filesystem::file_size(file, gone);
    bytes += gone ? 0 : size;
  }
  std::string held = ", " + std::to_string(bytes / kMiB) + " MiB held";
  std::string error;
  const std::unique_ptr<flight::Reader> reader = flight::Reader::Open(folder, &error);
  flight::Entry oldest;
  if (reader == nullptr || !reader->Next(&oldest)) return held;
  return held + ", the oldest entry of " + DurationText(nowUs - std::min(nowUs, oldest.wallUs)) + " ago";
}

}  // namespace

HealthCheck CheckFlightRecorder(const nlohmann::json &statistics) {
  const nlohmann::json &flight = statistics.at("flight");
  if (flight.at("on")) {
    const uint64_t lost = flight.at("lost");
    std::string text = "on, a ring of " + flight.at("megabytes").dump() + " MiB" + Held(statistics.at("nowUs"));
    if (lost == 0) return {kRecorderSubject, HealthState::kOk, text, ""};
    text += ", " + std::to_string(lost) + " entries lost";
    return {kRecorderSubject, HealthState::kWarn, text,
            "the disk was too slow for it: a larger Flight/Megabytes helps"};
  }
  int64_t wanted = 0;
  std::ifstream(SettingPath()) >> wanted;
  if (wanted != 0) {
    return {kRecorderSubject, HealthState::kWarn, "off, although " + SettingPath() + " wants it",
            "the daemon's log says why; restart rynd afterwards"};
  }
  return {kRecorderSubject, HealthState::kOk, "off; it begins when " + SettingPath() + " holds 64 and rynd restarts",
          ""};
}

}  // namespace rynctl
