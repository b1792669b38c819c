// How full file systems are: the list of mounts, which the kernel tells changes of, and a look at each of them now and
// then. Needs no right; what this program's user cannot reach is not looked at.
#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/uniqueFd.h"
#include "loop/options.h"
#include "models/usageModel.h"
#include "sink/textFile.h"
#include "sources/remoteLook.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kMountInfo[] = "/proc/self/mountinfo";
constexpr size_t kMostMountInfo = size_t{64} << 20;
/// Changes of the list are gathered for so long.
constexpr int64_t kChangeNs = 2 * kSecondNs;

/// The name below /dev/disk/by-uuid that leads to `device`; "" for none.
std::string UuidOf(const std::string &device) {
  constexpr const char *kFolder = "/dev/disk/by-uuid";
  struct stat wanted {
  }, other{};
  DIR *folder = stat(device.c_str(), &wanted) == 0 ? opendir(kFolder) : nullptr;
  if (folder == nullptr) return "";
  std::string uuid;
  while (const dirent *entry = readdir(folder)) {
    const std::string path = std::string(kFolder) + '/' + entry->d_name;
    if (stat(path.c_str(), &other) == 0 && S_ISBLK(other.st_mode) && other.st_rdev == wanted.st_rdev)
      uuid = entry->d_name;
  }
  closedir(folder);
  return uuid;
}

class FileSystems : public Source {
 public:
  const char *Name() const override { return "filesystems"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    host_ = host;
    model_ = std::make_unique<UsageModel>(host);
    *reason = std::string(kMountInfo) + " cannot be read";
    mountInfo_.Reset(open(kMountInfo, O_RDONLY | O_CLOEXEC));
    if (!mountInfo_) return errno;
    if (const int error = host->Watch(mountInfo_.Get(), EPOLLPRI); error != 0) return error;
    model_->Restore(host->GetLedger());
    LookAtAll(nowNs);
    return 0;
  }

  void Ready(int fd, uint32_t /*events*/, int64_t nowNs) override {
    if (fd == remote_.Descriptor()) return remote_.Ready(nowNs);
    changeNs_ = std::min(changeNs_, nowNs + kChangeNs);
  }

  int64_t Due() const override { return std::min({lookNs_, changeNs_, remote_.Due()}); }

  void OnDue(int64_t nowNs) override {
    remote_.OnDue(nowNs);
    if (nowNs >= lookNs_ || nowNs >= changeNs_) LookAtAll(nowNs);
  }

  void Retell(int64_t nowNs) override { LookAtAll(nowNs); }

 private:
  void LookAtAll(int64_t nowNs) {
    lookNs_ = nowNs + host_->GetOptions().pollS * kSecondNs;
    changeNs_ = kNever;
    std::string text;
    if (ReadTextFile(kMountInfo, kMostMountInfo, &text) != 0) return;
    std::vector<Mount> mounts = ParseMounts(text);
    std::erase_if(mounts, [](const Mount &mount) { return mount.kind == MountKind::kIgnored; });
    model_->Keep(mounts);
    std::vector<Mount> remote;
    for (const Mount &mount : mounts) {
      if (mount.isReadOnly) continue;
      if (mount.kind == MountKind::kRemote) {
        remote.push_back(mount);
        continue;
      }
      SpaceUse usage;
      if (LookAt(mount, &usage) == 0) Take(mount, usage);
    }
    remote_.Begin(std::move(remote), host_, nowNs);
  }

  void Take(const Mount &mount, const SpaceUse &usage) {
    model_->Take(mount, usage, mount.type == "vfat" && usage.available == 0 ? UuidOf(mount.source) : "");
  }

  Host *host_ = nullptr;
  base::UniqueFd mountInfo_;
  std::unique_ptr<UsageModel> model_;
  RemoteLook remote_{[this](const Mount &mount, const Look &look) {
    if (look.error == 0 || look.error == ETIMEDOUT) model_->TakeAnswer(mount, look.error == 0);
    if (look.error == 0) Take(mount, look.usage);
  }};
  int64_t lookNs_ = kNever, changeNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakeFileSystems() {
  return std::make_unique<FileSystems>();
}

}  // namespace rynlinuxd
