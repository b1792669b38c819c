#include "hosted/host/machine.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <string_view>

#include "hosted/flight/recorder.h"

namespace hosted {
namespace {

/// The first line of a file that begins with `front`, without its end; empty when there is none.
std::string FirstLine(const std::string &path, std::string_view front) {
  // No stream: its library would be an eighth of the daemon's memory.
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "re"), std::fclose);
  std::array<char, 4096> text;  // a longer line is read as two
  while (file != nullptr && std::fgets(text.data(), text.size(), file.get()) != nullptr) {
    const std::string_view line = text.data();
    if (line.starts_with(front)) return std::string(line.substr(0, line.find('\n')));
  }
  return "";
}

std::string ReadVendor() {
  const std::string line = FirstLine("/proc/cpuinfo", "vendor_id");
  const size_t colon = line.find(": ");
  return colon == std::string::npos ? "" : line.substr(colon + 2);
}

}  // namespace

CpuCounts MachineCpuCounts() {
  const int64_t pcpus = std::max<int64_t>(sysconf(_SC_NPROCESSORS_CONF), 1);
  std::set<std::string> cores;  // the PCPUs of each
  CpuCounts counts;
  for (int64_t cpu = 0; cpu < pcpus; ++cpu) {
    std::string siblings =
        FirstLine("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/thread_siblings_list", "");
    if (siblings.empty()) continue;  // offline
    cores.insert(std::move(siblings));
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
