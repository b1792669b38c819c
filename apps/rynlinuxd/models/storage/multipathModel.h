// Devices with several paths, and what becomes of them when paths fail. One thread; told the time in nanoseconds of the
// monotonic clock.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "models/storage/dmDevice.h"
#include "models/storage/uevent.h"
#include "sink/ledger.h"
#include "sink/report.h"

namespace rynlinuxd {

/// The kernel's messages say which path failed and came back. Whether requests wait while there is none is not among
/// them, nor is a change of the table: what is to be asked for stands in Questions(), and answers are handed in.
class MultipathModel {
 public:
  static constexpr int64_t kOrderNs = 200'000'000;  ///< in which messages find their order
  static constexpr int64_t kPollNs = 1'000'000'000, kSlowPollNs = 10'000'000'000;

  /// `system` is the folder /sys, or a test's; the others are borrowed.
  MultipathModel(std::string system, const Ledger *ledger, Reporter *reporter)
      : system_(std::move(system)), ledger_(ledger), reporter_(reporter) {}

  void Change(const Uevent &event, int64_t nowNs);
  /// The devices to be asked for by number, since the last call.
  std::vector<std::string> TakeQuestions();
  /// The device mapper's answer about the device `number`; none when it is not a multipath device, or has gone. One
  /// that messages have overtaken is asked for again. `nowS` is on the boot clock.
  void Answer(const std::string &number, const std::optional<DmDevice> &device, int64_t nowNs, int64_t nowS);
  /// When to call OnDue(); INT64_MAX: not at all.
  int64_t Due() const;
  void OnDue(int64_t nowNs);
  /// Tell every state again.
  void Retell();
  /// Messages were lost: ask for everything that is known. What is not is to be asked for by the caller.
  void AskForAll();

 private:
  struct Path {
    std::string name{};
    bool isActive = true;
  };
  struct Device {
    std::string name{};
    std::map<std::string, Path> paths{};  ///< by number
    int64_t valid = 0;
    bool isQueueing = false;
    bool isMultipath = false;            ///< the mapper said so
    int64_t zeroNs = INT64_MAX;          ///< since when there is no path
    int64_t pollNs = INT64_MAX;          ///< when to ask again
    uint64_t sequence = 0;               ///< of the last message
    std::map<uint64_t, Uevent> early{};  ///< messages that came before those in front of them
    int64_t orderNs = INT64_MAX;         ///< when those are not waited for any more
    uint64_t messages = 0, askedAt = 0;
  };

  void Ask(const std::string &number);
  void TakeReady(Device *device, int64_t nowNs);
  void Apply(Device *device, const Uevent &event, int64_t nowNs);
  void SetValid(Device *device, int64_t valid, int64_t nowNs);
  void TakePaths(Device *device, const DmDevice &found, bool isNew);
  void TellPath(const Device &device, const Path &path, bool isBaseline);
  void TellApd(const Device &device, int64_t nowNs);
  void Forget(const std::string &number);
  std::string NameOf(const std::string &number) const;

  const std::string system_;
  const Ledger *const ledger_;
  Reporter *const reporter_;
  std::map<std::string, Device> devices_;  ///< by number; what is no multipath device is there too
  std::set<std::string> questions_;
};

}  // namespace rynlinuxd
