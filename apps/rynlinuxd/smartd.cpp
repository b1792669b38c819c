#include "smartd.h"

#include <poll.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "hosted/paths.h"
#include "models/storage/diskIdentity.h"
#include "models/storage/smartWarning.h"
#include "sink/clock.h"
#include "sink/ledger.h"
#include "sink/sink.h"
#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kPatienceNs = 5'000'000'000;

/// The folder in sysfs of the disk `name`. smartd calls one of NVMe by its controller, which may have several.
std::string FolderOf(const std::string &name) {
  const std::string controller = "/sys/class/nvme/" + name;
  std::vector<std::string> disks;
  if (ListFolder(controller, &disks) != 0) return "/sys/class/block/" + name;
  std::erase_if(disks, [&](const std::string &entry) { return !entry.starts_with(name + 'n'); });
  return disks.size() == 1 ? controller + '/' + disks.front() : "";
}

std::string IdentifyFile(const std::string &device) {
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(device.c_str(), nullptr), &std::free);
  if (!real) return "";
  const std::string path = real.get();
  const std::optional<DiskIdentity> disk = IdentifyDisk(FolderOf(path.substr(path.rfind('/') + 1)));
  return disk && disk->isPermanent ? disk->name : "";
}

}  // namespace

int TellSmartWarning(bool isDry, std::string *error) {
  const auto value = [](const char *name) {
    const char *text = std::getenv(name);
    return std::string(text == nullptr ? "" : text);
  };
  std::optional<Report> report = ReadSmartWarning(value, IdentifyFile);
  if (!report) {
    *error = "SMARTD_FAILTYPE and SMARTD_DEVICE are not set: smartd sets them for the program behind its -M exec";
    return EINVAL;
  }
  // One of its own, which knows of nothing: each call is told.
  Ledger ledger;
  Sink sink(
      &ledger, [] {}, isDry);
  sink.Tell(std::move(*report));
  const int64_t endNs = MonotonicNs() + kPatienceNs;
  while (!sink.IsSent() && MonotonicNs() < endNs) {
    sink.Connect(MonotonicNs());
    sink.Flush();
    constexpr int kLookMs = 50;
    if (!sink.IsSent()) poll(nullptr, 0, kLookMs);
  }
  if (sink.IsSent()) return 0;
  *error = "the daemon does not take it: nobody reads " + hosted::KernelSocketPath(0);
  return ETIMEDOUT;
}

}  // namespace rynlinuxd
