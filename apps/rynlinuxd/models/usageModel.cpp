#include "models/usageModel.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace rynlinuxd {
namespace {

using Level = UsageModel::Level;

/// Keys of what is told of a mount point, which follows.
constexpr char kFull[] = "full ", kVfat[] = "vfat ", kSilent[] = "silent ";
constexpr const char *kStates[] = {"", "warning", "error"};

const char *StateOf(Level level) {
  return kStates[static_cast<size_t>(level)];
}

/// The level of `value`, the higher the worse, which was `before`.
Level Judge(unsigned value, Level before, unsigned warning, unsigned error, unsigned warningEnds, unsigned errorEnds) {
  if (value >= error || (before == Level::kError && value >= errorEnds)) return Level::kError;
  if (value >= warning || (before != Level::kFine && value >= warningEnds)) return Level::kWarning;
  return Level::kFine;
}

/// used * 100 / of, also of huge ones.
unsigned Percent(uint64_t part, uint64_t of, bool roundsUp) {
  if (of == 0) return 0;
  if (part >= of) return 100;
  constexpr uint64_t kHuge = UINT64_MAX / 200;
  while (of > kHuge) {
    of >>= 1;
    part >>= 1;
  }
  return static_cast<unsigned>((part * 100 + (roundsUp ? of - 1 : 0)) / of);
}

}  // namespace

unsigned PercentUsed(const SpaceUse &usage) {
  const uint64_t used = usage.blocks - std::min(usage.free, usage.blocks);
  return Percent(used, used + usage.available, true);
}

unsigned PercentLeft(const SpaceUse &usage) {
  return usage.blocks == 0 ? 100 : Percent(usage.available, usage.blocks, false);
}

void UsageModel::Tell(Report report, const std::string &key, const char *state) {
  report.key = key;
  report.state = state;
  report.isOpen = *state != '\0';
  reporter_->Tell(std::move(report));
}

void UsageModel::TakeDisk(const Mount &mount, const SpaceUse &usage, Known *known) {
  const unsigned used = PercentUsed(usage);
  known->level = Judge(used, known->level, kDiskWarning, kDiskError, kDiskWarningEnds, kDiskErrorEnds);
  constexpr Severity kSeverities[] = {Severity::kInfo, Severity::kWarning, Severity::kError};
  const std::string share = std::to_string(used) + " % of it is in use";
  Tell(External(kSeverities[static_cast<size_t>(known->level)], "file system " + mount.point,
                known->level == Level::kFine ? "it has room again: " + share : "it is nearly full: " + share),
       kFull + mount.point, StateOf(known->level));
}

void UsageModel::TakeRamdisk(const Mount &mount, const SpaceUse &usage, Known *known) {
  if (usage.blocks == 0) return;
  const unsigned left = PercentLeft(usage);
  const auto used = [](unsigned percent) { return 100 - percent; };
  known->level = Judge(used(left), known->level, used(kRamdiskWarning), used(kRamdiskError), used(kRamdiskWarningEnds),
                       used(kRamdiskErrorEnds));
  const std::string percent = std::to_string(left);
  if (known->level == Level::kFine) {
    return Tell(External(Severity::kInfo, "ramdisk " + mount.point, "it has room again: " + percent + " % are left"),
                kFull + mount.point, "");
  }
  const bool isError = known->level == Level::kError;
  Tell({isError ? "ryn.velfs.ramdisk.usage.error" : "ryn.velfs.ramdisk.usage.warning",
        "ramdisk %s has %s percent left",
        {Text(mount.point), Text(percent)}},
       kFull + mount.point, StateOf(known->level));
}

void UsageModel::TakeVfat(const Mount &mount, const SpaceUse &usage, const std::string &uuid, Known *known) {
  known->isFullVfat = usage.blocks != 0 && usage.available == 0;
  if (known->isFullVfat) {
    Tell({"ryn.vfat.filesystem.full", "%s (%s) is full", {Text(mount.point), Text(uuid.empty() ? mount.source : uuid)}},
         kVfat + mount.point, "full");
  } else {
    Tell(External(Severity::kInfo, "file system " + mount.point, "it is not full any more"), kVfat + mount.point, "");
  }
}

void UsageModel::Restore(const Ledger &ledger) {
  for (const auto &[point, told] : ledger.Below(kFull)) {
    for (const Level level : {Level::kWarning, Level::kError}) {
      if (told.state == StateOf(level)) known_[point].level = level;
    }
  }
  for (const auto &[point, told] : ledger.Below(kVfat)) {
    if (!told.state.empty()) known_[point].isFullVfat = true;
  }
  for (const auto &[point, told] : ledger.Below(kSilent)) {
    if (!told.state.empty()) known_[point].isSilent = true;
  }
}

void UsageModel::Take(const Mount &mount, const SpaceUse &usage, const std::string &uuid) {
  Known &known = known_[mount.point];
  if (mount.kind == MountKind::kRamdisk) {
    TakeRamdisk(mount, usage, &known);
  } else {
    TakeDisk(mount, usage, &known);
    if (mount.type == "vfat") TakeVfat(mount, usage, uuid, &known);
  }
  // Hosts have mounts by the thousand: those that are fine are not held.
  if (known.IsFine()) known_.erase(mount.point);
}

void UsageModel::TakeAnswer(const Mount &mount, bool isAnswering) {
  Known &known = known_[mount.point];
  known.isSilent = !isAnswering;
  if (known.IsFine()) known_.erase(mount.point);
  Tell(External(isAnswering ? Severity::kInfo : Severity::kWarning, "file system " + mount.point,
                isAnswering ? "it answers again" : mount.source + " does not answer"),
       kSilent + mount.point, isAnswering ? "" : "silent");
}

void UsageModel::Keep(const std::vector<Mount> &mounts) {
  std::unordered_map<std::string, bool> isReadOnly;
  for (const Mount &mount : mounts) isReadOnly[mount.point] = mount.isReadOnly;
  std::erase_if(known_, [&](const auto &entry) {
    const auto found = isReadOnly.find(entry.first);
    if (found != isReadOnly.end() && !found->second) return false;
    Report gone = External(Severity::kInfo, "file system " + entry.first,
                           found == isReadOnly.end() ? "it is not mounted any more" : "it cannot be written any more");
    // Once, whatever was told of it.
    gone.ends = {kVfat + entry.first, kSilent + entry.first};
    Tell(std::move(gone), kFull + entry.first, "");
    return true;
  });
}

}  // namespace rynlinuxd
