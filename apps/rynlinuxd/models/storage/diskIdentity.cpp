#include "models/storage/diskIdentity.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

/// Vendors fill names up with blanks, and put them into the middle too: one for each run of them.
std::string Squeezed(std::string_view text) {
  std::string squeezed;
  for (const char c : text) {
    const bool isBlank = c == ' ' || c == '\t';
    if (!isBlank || (!squeezed.empty() && squeezed.back() != ' ')) squeezed += isBlank ? ' ' : c;
  }
  while (squeezed.ends_with(' ')) squeezed.pop_back();
  return squeezed;
}

/// Whether nothing of the disk had vanished by now: of a device and of that which it is a part of these go first.
bool IsWhole(const std::string &folder) {
  return access((folder + "/uevent").c_str(), F_OK) == 0 && access((folder + "/device/uevent").c_str(), F_OK) == 0;
}

}  // namespace

std::optional<DiskIdentity> IdentifyDisk(const std::string &folder) {
  // In this order: names of SCSI, of NVMe namespaces, then serial numbers of virtio and of memory cards.
  constexpr std::array kFiles = {"/device/wwid", "/wwid", "/serial", "/device/serial"};
  constexpr size_t kMost = 4096;
  DiskIdentity disk{folder.substr(folder.rfind('/') + 1), false};
  for (const char *file : kFiles) {
    std::string text;
    const int error = ReadTextFile(folder + file, kMost, &text);
    // A SCSI device that knows no such name answers EINVAL.
    if (error != 0 && error != ENOENT && error != EINVAL) return std::nullopt;
    const std::string name = Squeezed(std::string_view(text).substr(0, text.find('\n')));
    if (error != 0 || name.empty()) continue;
    disk = {name, true};
    break;
  }
  if (!IsWhole(folder)) return std::nullopt;
  return disk;
}

bool IsPhysicalDisk(const std::string &path, const std::string &folder) {
  constexpr std::array<std::string_view, 2> kOthers = {"/devices/virtual/", "/devices/platform/floppy"};
  if (std::any_of(kOthers.begin(), kOthers.end(), [&](std::string_view start) { return path.starts_with(start); }))
    return false;
  // SCSI says what kind of device it is; 0 is a disk, 14 a simple and 20 a zoned one.
  if (path.find("/block/") == std::string::npos || path.find("/target") == std::string::npos) return true;
  constexpr size_t kMost = 4096;
  std::string text;
  const int error = ReadTextFile(folder + "/device/type", kMost, &text);
  const std::string type = text.substr(0, text.find('\n'));
  return error == ENOENT || (error == 0 && (type == "0" || type == "14" || type == "20"));
}

}  // namespace rynlinuxd
