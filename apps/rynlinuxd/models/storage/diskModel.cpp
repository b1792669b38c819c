#include "models/storage/diskModel.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>

namespace rynlinuxd {
namespace {

constexpr char kKey[] = "disk ";

/// The path of the device behind a link of /sys/block such as "../devices/pci0000:00/.../block/sda"; "" for none.
std::string PathBehind(const std::string &link) {
  std::array<char, 4096> target;
  const ssize_t got = readlink(link.c_str(), target.data(), target.size());
  if (got <= 0) return "";
  const std::string text(target.data(), static_cast<size_t>(got));
  const size_t at = text.find("/devices/");
  return at == std::string::npos ? "" : text.substr(at);
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
  if (disks_.contains(path) || !IsPhysicalDisk(path, folder)) return;
  DiskIdentity disk = IdentifyDisk(folder);
  const bool isNew = !IsThere(disk.name);
  disks_[path] = disk;
  if (isNew) Tell(disk, true, isBaseline_);
}

void DiskModel::Remove(const std::string &path) {
  const auto found = disks_.find(path);
  if (found == disks_.end()) return;
  const DiskIdentity disk = found->second;
  disks_.erase(found);
  if (!IsThere(disk.name)) Tell(disk, false, false);
}

void DiskModel::Look(int64_t nowNs) {
  const std::string blocks = system_ + "/block";
  DIR *folder = opendir(blocks.c_str());
  if (folder == nullptr) return;
  // The first run that knows of disks takes them as they are; so is one that has no name of its own at every start.
  isBaseline_ = !hasLooked_ && ledger_->Below(kKey).empty();
  std::set<std::string> there;
  while (const dirent *entry = readdir(folder)) {
    const std::string path = PathBehind(blocks + '/' + entry->d_name);
    if (path.empty()) continue;
    there.insert(path);
    const bool isNameless = !hasLooked_ && !IdentifyDisk(system_ + path).isPermanent;
    if (!isNameless) {
      Add(path);
    } else if (IsPhysicalDisk(path, system_ + path)) {
      disks_[path] = {path.substr(path.rfind('/') + 1), false};
    }
  }
  closedir(folder);
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
  if (nowNs < probeNs_) return;
  probeNs_ = INT64_MAX;
  for (const auto &[name, told] : ledger_->Below(kKey)) {
    if (!told.state.empty() && !IsThere(name)) Tell({name, true}, false, false);
  }
}

}  // namespace rynlinuxd
