// Starts the flight recorder as the host's settings say. Initial thread; the settings are looked at again by the
// recorder's own.
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "flight/format.h"
#include "hosted/flight/recorder.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"
#include "platform/flight.h"
#include "platform/hsi.h"
#include "platform/system.h"

namespace hosted {
namespace {

constexpr char kOptions[] = "sysinfo/config/intOpts";
constexpr char kMegabytes[] = "sysinfo/config/intOpts/Flight/Megabytes";
constexpr int64_t kMostMegabytes = 65536;
constexpr size_t kMostSettings = 256;  // that a host has by far not

/// Read all options, so that the recording holds them from its first file on.
void LookAtOptions() {
  std::vector<std::string> groups, names;
  std::string value;
  size_t left = kMostSettings;
  ListHostFolder(kOptions, &groups);
  for (const std::string &group : groups) {
    const std::string folder = std::string(kOptions) + "/" + HostComponent(group.c_str());
    ListHostFolder(folder, &names);
    for (const std::string &name : names) {
      if (left-- == 0) return;
      ReadHostText(folder + "/" + HostComponent(name.c_str()), &value);
    }
  }
}

std::string BootId() {
  std::FILE *file = std::fopen("/proc/sys/kernel/random/boot_id", "re");
  if (file == nullptr) return "";
  std::array<char, 37> text{};
  const bool isRead = std::fgets(text.data(), text.size(), file) != nullptr;
  std::fclose(file);
  return isRead ? text.data() : "";
}

void Start(const char *version) {
  int64_t megabytes = 0;
  // A value that is none was logged with what it should be.
  if (ReadHostInteger(kMegabytes, 0, kMostMegabytes, &megabytes) != 0 || megabytes == 0) return;
  char kernelDate[kHsiBuildDateSize] = "";
  const char *build = "";
  HSI_CheckSig(kernelDate, sizeof kernelDate, &build);
  const std::string failure =
      StartRecorder({RootPath(flight::kRingFolder), RootPath(flight::kUnsavedFolder), static_cast<uint64_t>(megabytes),
                     version, build, Hyk_Root(), BootId(), LookAtOptions});
  if (!failure.empty()) Log("Nothing is recorded: %s", failure.c_str());
}

}  // namespace
}  // namespace hosted

void Hyk_FlightStart(const char *version) try { hosted::Start(version); } catch (const std::exception &failure) {
  hosted::Log("Nothing is recorded: %s", failure.what());
}

void Hyk_FlightStop(int status) {
  hosted::StopRecorder(status);
}
