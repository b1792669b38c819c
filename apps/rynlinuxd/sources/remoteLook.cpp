#include "sources/remoteLook.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace rynlinuxd {

int LookAt(const Mount &mount, SpaceUse *usage) {
  // Such a descriptor neither starts an automatic mount nor touches the device.
  const base::UniqueFd fd(open(mount.point.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return errno;
  struct stat status {};
  struct statfs space {};
  if (fstat(fd.Get(), &status) != 0 || fstatfs(fd.Get(), &space) != 0) return errno;
  const std::string device = std::to_string(major(status.st_dev)) + ':' + std::to_string(minor(status.st_dev));
  // Parts of one btrfs have devices of their own.
  if (device != mount.device && mount.type != "btrfs") return ESTALE;
  *usage = {space.f_blocks, space.f_bfree, space.f_bavail};
  return 0;
}

RemoteLook::~RemoteLook() {
  EndProcess();
}

void RemoteLook::Begin(std::vector<Mount> mounts, Host *host, int64_t nowNs) {
  Reap();
  if (process_ >= 0) return;
  std::erase_if(mounts, [&](const Mount &mount) {
    return std::any_of(stuck_.begin(), stuck_.end(), [&](const Stuck &stuck) { return stuck.point == mount.point; });
  });
  host_ = host;
  mounts_ = std::move(mounts);
  next_ = 0;
  if (stuck_.size() < kMostStuck) StartProcess(nowNs);
}

void RemoteLook::StartProcess(int64_t nowNs) {
  if (next_ >= mounts_.size()) return;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  base::UniqueFd writeEnd(ends[1]);
  results_.Reset(ends[0]);
  process_ = fork();
  if (process_ == 0) {
    for (size_t i = next_; i < mounts_.size(); ++i) {
      Look look;
      look.error = LookAt(mounts_[i], &look.usage);
      if (write(writeEnd.Get(), &look, sizeof look) != static_cast<ssize_t>(sizeof look)) break;
    }
    _exit(0);
  }
  if (process_ < 0 || host_->Watch(results_.Get(), EPOLLIN) != 0) return EndProcess();
  deadlineNs_ = nowNs + kPatienceNs;
}

void RemoteLook::Ready(int64_t nowNs) {
  Look look;
  const ssize_t got = read(results_.Get(), &look, sizeof look);
  if (got < 0 && errno == EINTR) return;
  if (got != static_cast<ssize_t>(sizeof look)) return EndProcess();
  onLook_(mounts_[next_++], look);
  deadlineNs_ = nowNs + kPatienceNs;
  if (next_ == mounts_.size()) EndProcess();
}

void RemoteLook::OnDue(int64_t nowNs) {
  if (nowNs < deadlineNs_) return;
  const Mount &silent = mounts_[next_++];
  stuck_.push_back({process_, silent.point});
  onLook_(silent, {ETIMEDOUT, {}});
  EndProcess();
  if (stuck_.size() < kMostStuck) StartProcess(nowNs);
}

/// The process is not waited for: it may be where no signal reaches it.
void RemoteLook::EndProcess() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    const bool isStuck =
        std::any_of(stuck_.begin(), stuck_.end(), [&](const Stuck &stuck) { return stuck.process == process_; });
    if (!isStuck && waitpid(process_, nullptr, WNOHANG) == 0) stuck_.push_back({process_, ""});
  }
  process_ = -1;
  deadlineNs_ = kNever;
  results_.Reset();
}

void RemoteLook::Reap() {
  std::erase_if(stuck_, [](const Stuck &stuck) { return waitpid(stuck.process, nullptr, WNOHANG) != 0; });
}

}  // namespace rynlinuxd
