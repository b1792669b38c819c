#include "models/storage/diskIdentity.h"

#include <algorithm>
#include <array>
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

}  // namespace

DiskIdentity IdentifyDisk(const std::string &folder) {
  // In this order: names of SCSI, of NVMe namespaces, then serial numbers of virtio and of memory cards.
  constexpr std::array kFiles = {"/device/wwid", "/wwid", "/serial", "/device/serial"};
  for (const char *file : kFiles) {
    if (std::string name = Squeezed(ReadLine(folder + file)); !name.empty()) return {std::move(name), true};
  }
  return {folder.substr(folder.rfind('/') + 1), false};
}

bool IsPhysicalDisk(const std::string &path, const std::string &folder) {
  constexpr std::array<std::string_view, 2> kOthers = {"/devices/virtual/", "/devices/platform/floppy"};
  if (std::any_of(kOthers.begin(), kOthers.end(), [&](std::string_view start) { return path.starts_with(start); }))
    return false;
  // SCSI says what kind of device it is; 0 is a disk, 14 a simple and 20 a zoned one.
  const std::string type = ReadLine(folder + "/device/type");
  return path.find("/block/") == std::string::npos || path.find("/target") == std::string::npos || type.empty() ||
         type == "0" || type == "14" || type == "20";
}

}  // namespace rynlinuxd
