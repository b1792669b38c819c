// Programs that crash: from the kernel's process events and what was read of the program meanwhile. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>

#include "sink/report.h"

namespace rynlinuxd {

/// What one process event says, of the two kinds that matter.
struct ProcessEvent {
  bool isExit = false;  ///< else the beginning of a core dump
  int32_t thread = 0, process = 0;
  uint32_t exitCode = 0;
};

/// Read one datagram of the process connector. Nothing for other events, and for what is cut short.
std::optional<ProcessEvent> ParseProcessEvent(std::span<const std::byte> datagram);

/// What can be read of a program only while it dumps core. Parts that could not be read are empty.
struct CrashFacts {
  std::string name{};
  std::optional<uint64_t> coreLimit{};  ///< bytes; UINT64_MAX: none
  bool isDumpable = true;
  std::string corePattern{};  ///< of the kernel
  bool usesPid = false;       ///< core_uses_pid
  std::string folder{};       ///< the program works in
  std::string executable{}, host{};
  std::optional<uint32_t> user{}, group{};
  uint64_t atS = 0;  ///< wall-clock seconds
};

/// The value of "Max core file size" in /proc/PID/limits; nothing when it is not there.
std::optional<uint64_t> ParseCoreLimit(const std::string &limits);

/// Where the core goes, for people: the file as far as it can be told, or the program that it is given to.
std::string CorePlace(const CrashFacts &facts, const ProcessEvent &exit);

class CrashModel {
 public:
  static constexpr size_t kMostDumping = 1024;
  /// `reporter` is borrowed.
  explicit CrashModel(Reporter *reporter) : reporter_(reporter) {}
  void Dumping(const ProcessEvent &event, CrashFacts facts);
  /// Its end, which says whether there is a core.
  void Exit(const ProcessEvent &event);

 private:
  struct Crash {
    ProcessEvent event;
    CrashFacts facts;
  };
  Reporter *const reporter_;
  std::deque<Crash> dumping_;  ///< the oldest first
};

}  // namespace rynlinuxd
