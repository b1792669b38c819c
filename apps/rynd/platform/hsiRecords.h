// The records of the sysinfo nodes that the daemon reads. Numbers are in the machine's byte order.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kHsiCpuInfoSize = 38;    ///< hardware/cpu/cpuInfo
constexpr size_t kHsiCpuInfoCores = 24;   ///< offset of the number of cores, 32 bits
constexpr size_t kHsiCpuInfoPcpus = 28;   ///< offset of the number of PCPUs, 32 bits
constexpr size_t kHsiCpuListSize = 132;   ///< hardware/cpu/cpuList, an instance a PCPU
constexpr size_t kHsiCpuListVendor = 24;  ///< offset of the vendor, NUL-terminated text

/// system/pageRetire/MPNStatus of a page: any of the two non-zero when the page is retired or about to be.
struct HSI_PageStatus {
  uint8_t first, second;
};
static_assert(sizeof(HSI_PageStatus) == 2);
