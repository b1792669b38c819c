// What was told last of each object, across restarts of this program and of the daemon. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "sink/report.h"

namespace rynlinuxd {

/// The last told state of one object.
struct Told {
  std::string state;
  int64_t atS = 0;          ///< when, in seconds of the boot clock; 0 in an earlier boot
  bool isBaseline = false;  ///< taken over without telling it
  bool isStale = false;     ///< told to a daemon that has gone; not kept in the file
};

/// A file of flat JSON, replaced whole: "boot", "run", "daemon" and, below "told ", the objects.
class Ledger {
 public:
  static constexpr size_t kMostObjects = 32768;
  /// A state that was told so shortly before its daemon went may not have become an event: it is told again.
  static constexpr int64_t kUnsureS = 30;
  /// How the run ended that wrote the file.
  enum class Run { kNone, kRunning, kEnded, kHostStopped };

  /// Read the file at `path`, which is written from now on; "" for none. One that can't be read counts as missing.
  void Load(std::string path, std::string bootId);
  /// False when there was no file.
  bool Existed() const { return previous_ != Run::kNone; }
  /// How the run before this one ended, and whether it was in an earlier boot.
  Run Previous() const { return previous_; }
  bool IsNewBoot() const { return isNewBoot_; }

  /// Null when nothing is known of `key`.
  const Told *Find(const std::string &key) const;
  /// What was told of the objects whose keys begin with `prefix`, by the rest of the key.
  std::map<std::string, Told> Below(const std::string &prefix) const;
  /// Whether `report`, which may be a state, has to be told at `nowS` (seconds of the boot clock). A baseline of a new
  /// object is taken over.
  bool Admit(const Report &report, int64_t nowS);
  /// `report` was told.
  void RecordTold(const Report &report, int64_t nowS);
  /// Which daemon the states were told to.
  const std::string &Daemon() const { return daemon_; }
  void SetDaemon(std::string daemon);
  /// Every state was told to a daemon that has gone.
  void MarkStale();
  void SetRun(Run run);

  bool IsDirty() const { return isDirty_; }
  /// Write the file when anything has changed.
  void Save();

 private:
  void Set(const std::string &key, Told told);
  void Parse(std::string_view text, const std::string &bootId);

  std::string path_, bootId_, daemon_;
  std::map<std::string, Told> told_;
  Run run_ = Run::kNone;
  Run previous_ = Run::kNone;
  bool isNewBoot_ = false;
  bool isDirty_ = false;
};

}  // namespace rynlinuxd
