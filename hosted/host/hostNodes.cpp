// Sysinfo's nodes of the host's clock, processors and memory pages: each reads a file of the host tree, or has a
// default while there is none. Stateless: any thread.
#include "hosted/host/hostNodes.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "hosted/host/hostTree.h"
#include "hosted/host/machine.h"
#include "hosted/log/log.h"
#include "platform/hsiRecords.h"

namespace hosted {
namespace {

constexpr int64_t kMaxInteger = std::numeric_limits<int64_t>::max();

/// Read integers as ReadHostIntegers does; `values` stay as they are while the file is missing.
int ReadOrKeep(std::string_view path, int64_t least, int64_t most, std::span<int64_t> values) {
  const int error = ReadHostIntegers(path, least, most, values);
  return error == ENOENT ? 0 : error;
}

void PutCount(int64_t value, size_t offset, void *record) {
  const auto count = static_cast<uint32_t>(value);
  std::memcpy(static_cast<char *>(record) + offset, &count, sizeof count);
}

}  // namespace

int GetClockReportInterval(const HSI_ParamList *instance, void *output, size_t size) {
  if (instance != nullptr) return EINVAL;
  int64_t value = 0;
  const int error = ReadHostInteger("sysinfo/system/ntpclock/rynReportInterval", std::numeric_limits<int64_t>::min(),
                                    kMaxInteger, &value);
  return error != 0 ? error : PutInteger(value, output, size);
}

int GetRetireThreshold(const HSI_ParamList *instance, void *output, size_t size) {
  if (instance != nullptr || size != sizeof(uint64_t)) return EINVAL;
  int64_t value = 1000;
  const int error = ReadOrKeep("sysinfo/system/pageRetire/threshold", 0, kMaxInteger, {&value, 1});
  return error != 0 ? error : PutInteger(value, output, size);
}

int GetPageStatus(const HSI_ParamList *instance, void *output, size_t size) {
  int64_t page = 0;
  if (size != sizeof(HSI_PageStatus)) return EINVAL;
  if (const int error = IntegerParam(instance, &page); error != 0) return error;
  std::array<char, 2 + 16 + 1> name;
  std::snprintf(name.data(), name.size(), "0x%llx", static_cast<unsigned long long>(page));
  std::array<int64_t, sizeof(HSI_PageStatus)> values = {0, 0};
  const std::string path = std::string("sysinfo/system/pageRetire/MPNStatus/") + name.data();
  if (const int error = ReadOrKeep(path, 0, std::numeric_limits<uint8_t>::max(), values); error != 0) return error;
  const HSI_PageStatus status = {static_cast<uint8_t>(values[0]), static_cast<uint8_t>(values[1])};
  std::memcpy(output, &status, sizeof status);
  return 0;
}

int GetCpuInfo(const HSI_ParamList *instance, void *output, size_t size) {
  if (instance != nullptr || size != kHsiCpuInfoSize) return EINVAL;
  std::array<int64_t, 2> counts{};
  int error =
      ReadHostIntegers("sysinfo/hardware/cpu/cpuInfo", 0, std::numeric_limits<uint32_t>::max(), std::span(counts));
  if (error == ENOENT) {
    const CpuCounts machine = MachineCpuCounts();
    counts = {machine.cores, machine.pcpus};
    error = 0;
  }
  if (error != 0) return error;
  std::memset(output, 0, size);
  PutCount(counts[0], kHsiCpuInfoCores, output);
  PutCount(counts[1], kHsiCpuInfoPcpus, output);
  return 0;
}

int GetCpuList(const HSI_ParamList *instance, void *output, size_t size) {
  int64_t pcpu = 0;
  if (size != kHsiCpuListSize) return EINVAL;
  if (const int error = IntegerParam(instance, &pcpu); error != 0) return error;
  if (pcpu < 0) return ENOENT;
  constexpr char kPath[] = "sysinfo/hardware/cpu/vendor";
  std::string vendor;
  const int error = ReadHostText(kPath, &vendor);
  if (error == ENOENT) vendor = MachineCpuVendor();
  if (error != 0 && error != ENOENT) return error;
  if (vendor.size() >= kHsiCpuListSize - kHsiCpuListVendor) {
    Log("Cannot read %s: the vendor has more than %zu bytes", HostTreePath(kPath).c_str(),
        kHsiCpuListSize - kHsiCpuListVendor - 1);
    return EINVAL;
  }
  std::memset(output, 0, size);
  std::memcpy(static_cast<char *>(output) + kHsiCpuListVendor, vendor.data(), vendor.size());
  return 0;
}

int GetOfflineEnabled(const HSI_ParamList *instance, void *output, size_t size) {
  if (instance != nullptr || size != sizeof(uint8_t)) return EINVAL;
  int64_t value = 0;
  const int error = ReadOrKeep("sysinfo/sched/offline/enabled", 0, 1, {&value, 1});
  if (error == 0) *static_cast<uint8_t *>(output) = static_cast<uint8_t>(value);
  return error;
}

}  // namespace hosted
