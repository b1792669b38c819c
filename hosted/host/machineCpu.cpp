#include "hosted/host/machine.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "hosted/flight/recorder.h"

namespace hosted {
namespace {

std::string ReadVendor() {
  constexpr std::string_view kKey = "vendor_id";
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(": ");
    if (line.starts_with(kKey) && colon != std::string::npos) return line.substr(colon + 2);
  }
  return "";
}

}  // namespace

CpuCounts MachineCpuCounts() {
  const int64_t pcpus = std::max<int64_t>(sysconf(_SC_NPROCESSORS_CONF), 1);
  std::set<std::string> cores;  // the PCPUs of each
  CpuCounts counts;
  for (int64_t cpu = 0; cpu < pcpus; ++cpu) {
    std::ifstream file("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/thread_siblings_list");
    std::string siblings;
    if (!std::getline(file, siblings)) continue;  // offline
    cores.insert(siblings);
    ++counts.pcpus;
  }
  counts.cores = static_cast<int64_t>(cores.size());
  if (counts.pcpus == 0) counts = {pcpus, pcpus};
  RecordHost(flight::HostKind::kText, "machine/cpuCounts", 0,
             std::to_string(counts.cores) + " " + std::to_string(counts.pcpus));
  return counts;
}

std::string MachineCpuVendor() {
  std::string vendor = ReadVendor();
  RecordHost(flight::HostKind::kText, "machine/cpuVendor", 0, vendor);
  return vendor;
}

}  // namespace hosted
