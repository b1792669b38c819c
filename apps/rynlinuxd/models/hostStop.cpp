#include "models/hostStop.h"

#include <algorithm>
#include <array>

namespace rynlinuxd {
namespace {

struct Target {
  std::string_view unit;
  StopKind kind;
};
constexpr auto kTargets = std::to_array<Target>({
    {"reboot.target", StopKind::kReboot},
    {"kexec.target", StopKind::kReboot},
    {"soft-reboot.target", StopKind::kReboot},
    {"poweroff.target", StopKind::kShutdown},
    {"halt.target", StopKind::kShutdown},
});

std::string_view TakeWord(std::string_view *line) {
  line->remove_prefix(std::min(line->find_first_not_of(' '), line->size()));
  const size_t end = std::min(line->find(' '), line->size());
  const std::string_view word = line->substr(0, end);
  line->remove_prefix(end);
  return word;
}

}  // namespace

StopKind ParseStopJobs(std::string_view jobs) {
  while (!jobs.empty()) {
    const size_t end = std::min(jobs.find('\n'), jobs.size());
    std::string_view line = jobs.substr(0, end);
    jobs.remove_prefix(std::min(end + 1, jobs.size()));
    TakeWord(&line);
    const std::string_view unit = TakeWord(&line);
    if (TakeWord(&line) != "start") continue;
    for (const Target &target : kTargets) {
      if (unit == target.unit) return target.kind;
    }
  }
  return StopKind::kNone;
}

}  // namespace rynlinuxd
