#include "models/storage/diskModel.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <vector>

#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

constexpr char kKey[] = "disk ";

/// The path of the device behind a link of /sys/block such as "../devices/pci0000:00/.../block/sda"; "" for none. 0 or
/// an errno value.
int FollowLink(const std::string &link, std::string *path) {
  std::array<char, 4096> target;
  const ssize_t got = readlink(link.c_str(), target.data(), target.size());
  if (got < 0) return errno;
  const std::string text(target.data(), static_cast<size_t>(got));
  const size_t at = text.find("/devices/");
  *path = at == std::string::npos ? "" : text.substr(at);
  return 0;
}

}  // namespace

bool DiskModel::IsThere(const std::string &name) const {
  return std::any_of(disks_.begin(), disks_.end(), [&](const auto &entry) { return entry.second.name == name; });
}

void DiskModel::Tell(const DiskIdentity &disk, bool isInserted, bool isBaseline) {
  Report report{isInserted ? "ryn.hcm.event.disk.insertion" : "ryn.hcm.event.disk.removal",
                isInserted ? "disk %s inserted" : "disk %s removed",
                {Text(disk.name)}};
  // What has no permanent name is another disk in the next boot, whatever stands in the ledger.
  report.key = disk.isPermanent ? kKey + disk.name : "";
  report.state = isInserted ? "in" : "";
  report.isBaseline = isBaseline;
  if (!report.key.empty() || !isBaseline) reporter_->Tell(std::move(report));
}

void DiskModel::Add(const std::string &path) {
  const std::string folder = system_ + path;
  const auto known = disks_.find(path);
  if ((known != disks_.end() && known->second.isPermanent) || !IsPhysicalDisk(path, folder)) return;
  const std::optional<DiskIdentity> disk = IdentifyDisk(folder);
  // It came and went unseen.
  if (!disk || (known != disks_.end() && !disk->isPermanent)) return;
  const bool isNew = !IsThere(disk->name);
  disks_[path] = *disk;
  // What has no name of its own is taken as it is at every start.
  const bool isTaken = !hasLooked_ && !disk->isPermanent;
  if (isNew && !isTaken) Tell(*disk, true, isBaseline_);
}

void DiskModel::Remove(const std::string &path) {
  const auto found = disks_.find(path);
  if (found == disks_.end()) return;
  const DiskIdentity disk = found->second;
  disks_.erase(found);
  if (!IsThere(disk.name)) Tell(disk, false, false);
}

void DiskModel::Look(int64_t nowNs) {
  const std::string blocks = system_ + "/block/";
  std::vector<std::string> names;
  std::set<std::string> there;
  int error = ListFolder(blocks, &names);
  for (const std::string &name : names) {
    std::string path;
    const int followed = FollowLink(std::string(blocks).append(name), &path);
    if (followed != 0 && followed != ENOENT && followed != EINVAL) error = followed;
    if (!path.empty()) there.insert(path);
  }
  // Half of them would look as if the others had gone.
  lookNs_ = error == 0 ? INT64_MAX : nowNs + kAgainNs;
  if (error != 0) return;
  isBaseline_ = !hasLooked_ && ledger_->Below(kKey).empty();
  for (const std::string &path : there) Add(path);
  std::set<std::string> gone;
  for (const auto &[path, disk] : disks_) {
    if (!there.contains(path)) gone.insert(path);
  }
  for (const std::string &path : gone) Remove(path);
  if (!hasLooked_) probeNs_ = nowNs + kProbeNs;
  hasLooked_ = true;
  isBaseline_ = false;
}

void DiskModel::Change(const Uevent &event) {
  if (event.Value("SUBSYSTEM") != "block" || event.Value("DEVTYPE") != "disk" || event.IsSynthetic()) return;
  if (event.action == "add") Add(event.path);
  if (event.action == "remove") Remove(event.path);
}

void DiskModel::OnDue(int64_t nowNs) {
  if (nowNs >= lookNs_) Look(nowNs);
  if (nowNs < probeNs_) return;
  probeNs_ = INT64_MAX;
  for (const auto &[name, told] : ledger_->Below(kKey)) {
    if (!told.state.empty() && !IsThere(name)) Tell({name, true}, false, false);
  }
}

}  // namespace rynlinuxd
