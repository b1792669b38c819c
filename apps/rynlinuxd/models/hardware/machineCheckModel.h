// Errors that the processors and their memory report, from the kernel's trace records. One thread.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "models/hardware/traceRecords.h"
#include "sink/report.h"

namespace rynlinuxd {

/// One of the kernel's two records is read: where it tells machine checks, memory errors are among them.
class MachineCheckModel {
 public:
  /// Errors of one record of memory errors that are told; the daemon's counters hold no more.
  static constexpr uint64_t kMostErrors = 255;

  explicit MachineCheckModel(Reporter *reporter) : reporter_(reporter) {}
  /// Read machine checks, whose file "format" holds `format`. False when it is not understood.
  bool ReadMachineChecks(std::string_view format);
  /// Read memory errors instead.
  bool ReadMemoryErrors(std::string_view format);
  /// Take a page of the ring buffer.
  void Take(std::span<const std::byte> page);

 private:
  void TakeMachineCheck(std::span<const std::byte> record);
  void TakeMemoryError(std::span<const std::byte> record);

  Reporter *const reporter_;
  bool isMemory_ = false;
  std::optional<TraceFormat> format_;
};

}  // namespace rynlinuxd
