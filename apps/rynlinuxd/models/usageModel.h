// How full file systems are, and what of it is to be told. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "models/mountTable.h"
#include "sink/ledger.h"
#include "sink/report.h"

namespace rynlinuxd {

/// What a file system says of its space, in blocks.
struct SpaceUse {
  uint64_t blocks = 0, free = 0;
  uint64_t available = 0;  ///< to whoever is not root
};

/// Two levels, each left again only when the usage is clearly below it.
class UsageModel {
 public:
  enum class Level { kFine, kWarning, kError };
  // Percent in use of a disk; percent left of a ramdisk.
  static constexpr unsigned kDiskWarning = 95, kDiskError = 99, kDiskWarningEnds = 93, kDiskErrorEnds = 98;
  static constexpr unsigned kRamdiskWarning = 10, kRamdiskError = 2, kRamdiskWarningEnds = 12, kRamdiskErrorEnds = 3;

  explicit UsageModel(Reporter *reporter) : reporter_(reporter) {}

  /// Go on from what an earlier run told.
  void Restore(const Ledger &ledger);
  /// `mount` was looked at; `uuid` is that of a vfat, "" when it is not known.
  void Take(const Mount &mount, const SpaceUse &usage, const std::string &uuid);
  /// Whether `mount`, a remote one, answers.
  void TakeAnswer(const Mount &mount, bool isAnswering);
  /// These are all mounts that there are, those that cannot be written among them: what was told of others has ended.
  void Keep(const std::vector<Mount> &mounts);

 private:
  struct Known {
    Level level = Level::kFine;
    bool isFullVfat = false;
    bool isSilent = false;
    bool IsFine() const { return level == Level::kFine && !isFullVfat && !isSilent; }
  };
  void TakeDisk(const Mount &mount, const SpaceUse &usage, Known *known);
  void TakeRamdisk(const Mount &mount, const SpaceUse &usage, Known *known);
  void TakeVfat(const Mount &mount, const SpaceUse &usage, const std::string &uuid, Known *known);
  void Tell(Report report, const std::string &key, const char *state);

  Reporter *const reporter_;
  std::map<std::string, Known> known_;  ///< those that are not fine, by mount point
};

/// Percent of a disk that is in use, rounded up, as df shows it. 0 of one without blocks.
unsigned PercentUsed(const SpaceUse &usage);
/// Percent of a ramdisk that is left, rounded down; 100 of one without a limit.
unsigned PercentLeft(const SpaceUse &usage);

}  // namespace rynlinuxd
