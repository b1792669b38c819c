// The disks of the host, and which of them come and go. One thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include "models/storage/diskIdentity.h"
#include "models/storage/uevent.h"
#include "sink/ledger.h"
#include "sink/report.h"

namespace rynlinuxd {

/// A disk is one by its identity: a second path to it is not a second disk.
class DiskModel {
 public:
  /// What the ledger knows and the first look does not find is waited for, since drivers find their disks one by one.
  static constexpr int64_t kProbeNs = 60'000'000'000;
  static constexpr int64_t kAgainNs = 1'000'000'000;  ///< until disks are looked at again that could not be

  /// `system` is the folder /sys, or a test's; the others are borrowed.
  DiskModel(std::string system, const Ledger *ledger, Reporter *reporter)
      : system_(std::move(system)), ledger_(ledger), reporter_(reporter) {}

  /// Look at all disks, for the first time or because messages were lost.
  void Look(int64_t nowNs);
  void Change(const Uevent &event);
  /// When to call OnDue(); INT64_MAX: not at all.
  int64_t Due() const { return std::min(probeNs_, lookNs_); }
  /// What has not been found by now has been removed.
  void OnDue(int64_t nowNs);

 private:
  void Add(const std::string &path);
  void Remove(const std::string &path);
  bool IsThere(const std::string &name) const;
  void Tell(const DiskIdentity &disk, bool isInserted, bool isBaseline);

  const std::string system_;
  const Ledger *const ledger_;
  Reporter *const reporter_;
  std::map<std::string, DiskIdentity> disks_;  ///< by path: what a disk was called is not to be read when it has gone
  bool hasLooked_ = false, isBaseline_ = false;
  int64_t probeNs_ = INT64_MAX, lookNs_ = INT64_MAX;
};

}  // namespace rynlinuxd
