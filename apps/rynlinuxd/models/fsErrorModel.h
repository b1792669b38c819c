// Damage of file systems, as they report it themselves. One thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "sink/report.h"

namespace rynlinuxd {

/// One error of a file system.
struct FsError {
  std::pair<int32_t, int32_t> fsid{};  ///< as statfs has it
  int32_t error = 0;                   ///< errno value
  uint32_t count = 0;                  ///< of errors since the last event
};

/// The errors among the fanotify events of one read. What is cut short ends the reading.
std::vector<FsError> ParseFsErrors(std::span<const std::byte> events);

/// A watched file system.
struct WatchedFs {
  std::string point{}, device{};
  std::string label{};             ///< "" for none
  std::array<uint8_t, 16> uuid{};  ///< zeroes: it has none
  bool operator==(const WatchedFs &) const = default;
};

class FsErrorModel {
 public:
  explicit FsErrorModel(Reporter *reporter) : reporter_(reporter) {}
  /// These are watched now, by their fsid.
  void Watch(std::map<std::pair<int32_t, int32_t>, WatchedFs> watched) { watched_ = std::move(watched); }
  const std::map<std::pair<int32_t, int32_t>, WatchedFs> &Watched() const { return watched_; }
  void Take(const FsError &error);
  /// `count` errors stand in the file system's own record; 0: it was repaired.
  void TakeRecorded(const WatchedFs &fs, uint64_t count);
  /// Whether it has shut itself off from writing though it was mounted writable.
  void TakeReadOnly(const WatchedFs &fs, bool isReadOnly);

 private:
  Reporter *const reporter_;
  std::map<std::pair<int32_t, int32_t>, WatchedFs> watched_;
};

/// "01234567-89ab-..." of a UUID.
std::string UuidText(const std::array<uint8_t, 16> &uuid);

}  // namespace rynlinuxd
