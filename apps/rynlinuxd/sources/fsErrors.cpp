// Damage that ext4 finds: fanotify's error events, and the record in sysfs. Needs CAP_SYS_ADMIN to mark a file system;
// on newer kernels for one that is mounted later, too.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/epoll.h>
#include <sys/fanotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <set>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "models/fsErrorModel.h"
#include "models/mountTable.h"
#include "sink/textFile.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kMountInfo[] = "/proc/self/mountinfo";
constexpr size_t kMostMountInfo = size_t{64} << 20;
constexpr int64_t kChangeNs = 2 * kSecondNs;
/// A file system shuts itself off after it has told of its error.
constexpr int64_t kAfterErrorNs = kSecondNs;
// Older headers lack these.
constexpr uint64_t kFsError = 0x8000;
constexpr unsigned kReportFid = 0x200;

/// The file system's UUID, from itself. Zeroes when it does not say.
std::array<uint8_t, 16> ReadUuid(int fd) {
  std::array<uint8_t, 16> uuid{};
  struct {
    uint8_t length;
    uint8_t bytes[16];
  } generic{};
  if (ioctl(fd, _IOR(0x15, 0, decltype(generic)), &generic) == 0 && generic.length == uuid.size()) {
    std::memcpy(uuid.data(), generic.bytes, uuid.size());
    return uuid;
  }
  // What ext4 alone has, since Linux 6.0.
  struct {
    uint32_t length, flags;
    uint8_t bytes[16];
  } own{sizeof own.bytes, 0, {}};
  constexpr unsigned long kGet = _IOC(_IOC_READ, 'f', 44, 8);
  if (ioctl(fd, kGet, &own) == 0 && own.length == uuid.size()) std::memcpy(uuid.data(), own.bytes, uuid.size());
  return uuid;
}

std::string ReadLabel(int fd) {
  std::array<char, 257> label{};
  constexpr unsigned long kGet = _IOC(_IOC_READ, 0x94, 49, 256);
  return ioctl(fd, kGet, label.data()) == 0 ? label.data() : "";
}

/// The number of errors that ext4 has recorded on `device`. False when it does not say.
bool ReadRecorded(const std::string &device, uint64_t *count) {
  std::array<char, 4096> target;
  const ssize_t length = readlink(("/sys/dev/block/" + device).c_str(), target.data(), target.size());
  if (length < 0) return false;
  const std::string path(target.data(), static_cast<size_t>(length));
  return ReadNumber("/sys/fs/ext4/" + path.substr(path.rfind('/') + 1) + "/errors_count", count);
}

std::vector<Mount> ReadExt4() {
  std::string text;
  if (ReadTextFile(kMountInfo, kMostMountInfo, &text) != 0) return {};
  std::vector<Mount> mounts = ParseMounts(text);
  std::erase_if(mounts, [](const Mount &mount) { return mount.type != "ext4"; });
  return mounts;
}

class FsErrors : public Source {
 public:
  const char *Name() const override { return "fs-errors"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    model_ = std::make_unique<FsErrorModel>(host);
    *reason = "no fanotify of file-system errors: it needs CAP_SYS_ADMIN and Linux 5.16";
    events_.Reset(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | kReportFid, O_RDONLY | O_CLOEXEC));
    if (!events_) return errno;
    if (const int error = MarkNew(); error == EINVAL || error == EPERM) return error;
    *reason = std::string(kMountInfo) + " cannot be read";
    mountInfo_.Reset(open(kMountInfo, O_RDONLY | O_CLOEXEC));
    if (!mountInfo_) return errno;
    if (const int error = host->Watch(mountInfo_.Get(), EPOLLPRI); error != 0) return error;
    return host->Watch(events_.Get(), EPOLLIN);
  }

  void Ready(int fd, uint32_t /*events*/, int64_t nowNs) override {
    if (fd == mountInfo_.Get()) {
      changeNs_ = std::min(changeNs_, nowNs + kChangeNs);
      return;
    }
    alignas(8) std::array<std::byte, 4096> buffer;
    for (ssize_t got = 0; (got = read(events_.Get(), buffer.data(), buffer.size())) > 0;) {
      for (const FsError &error : ParseFsErrors({buffer.data(), static_cast<size_t>(got)})) model_->Take(error);
    }
    changeNs_ = std::min(changeNs_, nowNs + kAfterErrorNs);
  }

  int64_t Due() const override { return changeNs_; }

  void OnDue(int64_t /*nowNs*/) override {
    changeNs_ = kNever;
    MarkNew();
  }

  void Retell(int64_t nowNs) override { OnDue(nowNs); }

 private:
  /// Mark what is mounted and was not marked, and look at the state of all. 0, or the last errno value.
  int MarkNew() {
    int last = 0;
    std::map<std::pair<int32_t, int32_t>, WatchedFs> watched;
    for (const Mount &mount : ReadExt4()) {
      const base::UniqueFd fd(open(mount.point.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
      struct statfs space {};
      if (!fd || fstatfs(fd.Get(), &space) != 0) {
        // It is still there, and what makes it fail may be what it tells next.
        for (const auto &[fsid, fs] : model_->Watched()) {
          if (fs.point == mount.point && fs.device == mount.device) watched.emplace(fsid, fs);
        }
        continue;
      }
      std::pair<int32_t, int32_t> fsid;
      std::memcpy(&fsid.first, &space.f_fsid, 4);
      std::memcpy(&fsid.second, reinterpret_cast<const std::byte *>(&space.f_fsid) + 4, 4);
      WatchedFs fs{mount.point, mount.device, ReadLabel(fd.Get()), ReadUuid(fd.Get())};
      const auto known = model_->Watched().find(fsid);
      // Its number is made of its UUID.
      if (known != model_->Watched().end() && fs.uuid == std::array<uint8_t, 16>{}) fs.uuid = known->second.uuid;
      const bool isNew = known == model_->Watched().end() || !(known->second == fs);
      if (isNew && fanotify_mark(events_.Get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, kFsError, fd.Get(), nullptr) != 0) {
        last = errno;
        // Said once, not at each change of the mounts.
        if (refused_.insert(mount.point).second)
          hosted::Log("Errors of %s are not watched: %s", mount.point.c_str(), std::strerror(last));
        if (known == model_->Watched().end()) continue;
      }
      TellState(fs, mount, (space.f_flags & ST_RDONLY) != 0);
      watched.emplace(fsid, fs);
    }
    model_->Watch(std::move(watched));
    return last;
  }

  void TellState(const WatchedFs &fs, const Mount &mount, bool isReadOnly) {
    uint64_t recorded = 0;
    const bool says = ReadRecorded(mount.device, &recorded);
    if (says) model_->TakeRecorded(fs, recorded);
    // Mounted so on purpose, unless there were errors.
    if (mount.isEmergency || !isReadOnly || (says && recorded > 0))
      model_->TakeReadOnly(fs, mount.isEmergency || isReadOnly);
  }

  base::UniqueFd events_, mountInfo_;
  std::unique_ptr<FsErrorModel> model_;
  std::set<std::string> refused_;
  int64_t changeNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakeFsErrors() {
  return std::make_unique<FsErrors>();
}

}  // namespace rynlinuxd
