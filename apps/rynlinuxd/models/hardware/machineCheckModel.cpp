#include "models/hardware/machineCheckModel.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace rynlinuxd {
namespace {

constexpr std::array kMachineCheckFields = {"mcgcap", "status", "addr", "cpu", "bank", "cpuvendor"};
constexpr std::array kMemoryErrorFields = {"error_type", "error_count", "address"};

constexpr uint64_t kUncorrected = uint64_t{1} << 61, kAddressValid = uint64_t{1} << 58;
constexpr uint64_t kDeferred = uint64_t{1} << 44;  ///< not corrected either, on AMD's
// Of the status: how many errors there were, on Intel's.
constexpr int kCountAt = 38;
constexpr uint64_t kCountMask = (1 << 15) - 1;
/// As the kernel numbers them.
enum Vendor : uint64_t { kIntel = 0, kAmd = 2, kHygon = 9 };
enum MemoryErrorType : uint64_t { kCorrected = 0, kInformation = 4 };

std::string Hex(uint64_t value) {
  std::array<char, 20> text;
  std::snprintf(text.data(), text.size(), "%#lx", value);
  return text.data();
}

}  // namespace

bool MachineCheckModel::ReadMachineChecks(std::string_view format) {
  isMemory_ = false;
  format_ = TraceFormat::Parse(format, kMachineCheckFields);
  return format_.has_value();
}

bool MachineCheckModel::ReadMemoryErrors(std::string_view format) {
  isMemory_ = true;
  format_ = TraceFormat::Parse(format, kMemoryErrorFields);
  return format_.has_value();
}

void MachineCheckModel::Take(std::span<const std::byte> page) {
  if (!format_) return;
  const bool isWhole = ForEachTraceRecord(page, [this](std::span<const std::byte> record) {
    if (TraceRecordId(record) != format_->Id()) return;
    isMemory_ ? TakeMemoryError(record) : TakeMachineCheck(record);
  });
  if (!isWhole) {
    reporter_->Tell(External(Severity::kWarning, "machine checks", "the kernel reported more than could be read"));
  }
}

void MachineCheckModel::TakeMachineCheck(std::span<const std::byte> record) {
  const auto field = [&](const char *name) { return format_->Read(record, name); };
  const uint64_t status = field("status"), cpu = field("cpu"), vendor = field("cpuvendor");
  const uint64_t address = (status & kAddressValid) != 0 ? field("addr") : 0;
  const bool isDeferred = (vendor == kAmd || vendor == kHygon) && (status & kDeferred) != 0;
  if ((status & kUncorrected) != 0 || isDeferred) {
    std::string text = "an error was not corrected: bank " + std::to_string(field("bank")) + ", status " + Hex(status);
    if (address != 0) text += ", address " + Hex(address);
    return reporter_->Tell(External(Severity::kError, "CPU " + std::to_string(cpu), text));
  }
  const uint64_t counted = vendor == kIntel ? (status >> kCountAt) & kCountMask : 0;
  constexpr uint64_t kUnsaid = 0;
  reporter_->Tell({"ryn.cpu.mce.log4",
                   "corrected: %#lx status %#lx %#lx %#lx CPU %lu address %#lx %#lx errors %lu",
                   {Number(kUnsaid), Number(status), Number(kUnsaid), Number(kUnsaid), Number(cpu), Number(address),
                    Number(kUnsaid), Number(std::max<uint64_t>(counted, 1))}});
}

void MachineCheckModel::TakeMemoryError(std::span<const std::byte> record) {
  const uint64_t type = format_->Read(record, "error_type"), address = format_->Read(record, "address");
  const uint64_t count = format_->Read(record, "error_count");
  if (type == kInformation) return;
  if (type != kCorrected) {
    return reporter_->Tell(
        External(Severity::kError, "memory", "an error was not corrected, at address " + Hex(address)));
  }
  // Drivers that do not know where it was say 0.
  if (address == 0) {
    return reporter_->Tell(
        External(Severity::kWarning, "memory", std::to_string(count) + " corrected errors at an address unknown"));
  }
  for (uint64_t i = 0; i < std::min(count, kMostErrors); ++i) {
    reporter_->Tell({"ryn.cpu.mem.ce.log", "corrected error at %#lx", {Number(address)}});
  }
}

}  // namespace rynlinuxd
