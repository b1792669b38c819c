// A stop or reboot of the host: when this program is told to end, what systemd has queued. Needs no right.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "models/hostStop.h"
#include "sink/clock.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kRunning[] = "/run/systemd/system";
constexpr char kSystemctl[] = "systemctl";
constexpr int64_t kPatienceNs = 2 * kSecondNs;

/// Start "systemctl list-jobs" with its output in `out`. 0 or an errno value.
int Ask(pid_t *process, base::UniqueFd *out) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  out->Reset(ends[0]);
  const base::UniqueFd writeEnd(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.Get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::array<std::string, 4> words{kSystemctl, "list-jobs", "--no-legend", "--full"};
  char *argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
  const int error = posix_spawnp(process, kSystemctl, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

/// The list of jobs, as far as it comes in time.
std::string ReadJobs() {
  pid_t process = -1;
  base::UniqueFd out;
  if (const int error = Ask(&process, &out); error != 0) return "";
  constexpr size_t kMost = 1 << 20;
  std::string text;
  const int64_t endNs = MonotonicNs() + kPatienceNs;
  while (text.size() < kMost) {
    const int64_t leftMs = (endNs - MonotonicNs()) / 1'000'000;
    pollfd ready{out.Get(), POLLIN, 0};
    if (leftMs <= 0 || poll(&ready, 1, static_cast<int>(leftMs)) <= 0) break;
    std::array<char, 4096> part;
    const ssize_t got = read(out.Get(), part.data(), part.size());
    if (got <= 0) break;
    text.append(part.data(), static_cast<size_t>(got));
  }
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  return text;
}

class HostStop : public Source {
 public:
  const char *Name() const override { return "stop"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    host_ = host;
    *reason = std::string(kRunning) + " is not there: systemd does not run this host";
    struct stat status {};
    return stat(kRunning, &status) == 0 ? 0 : errno;
  }

  void OnStop() override {
    const StopKind kind = ParseStopJobs(ReadJobs());
    if (kind == StopKind::kReboot) host_->Tell({"ryn.user.host.stop.reboot", "host is rebooting", {}});
    if (kind == StopKind::kShutdown) host_->Tell({"ryn.user.host.stop.shutdown", "host is shutting down", {}});
  }

 private:
  Host *host_ = nullptr;
};

}  // namespace

std::unique_ptr<Source> MakeHostStop() {
  return std::make_unique<HostStop>();
}

}  // namespace rynlinuxd
