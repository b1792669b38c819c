// What a disk is called for good, from sysfs. Stateless: any thread.
#pragma once

#include <optional>
#include <string>

namespace rynlinuxd {

struct DiskIdentity {
  std::string name{};        ///< such as "naa.5000c50015ea71ac", or the kernel's name where the disk has no other
  bool isPermanent = false;  ///< the disk keeps it wherever it is plugged in
};

/// Of the disk whose folder is `folder`, such as /sys/block/sda. Nothing of one that vanishes while it is read, or
/// cannot be read: part of what it says may be another's name.
std::optional<DiskIdentity> IdentifyDisk(const std::string &folder);

/// Whether the device whose path below /sys is `path` and whose folder is `folder` is a disk of its own: not made of
/// others, and neither an optical nor a floppy drive.
bool IsPhysicalDisk(const std::string &path, const std::string &folder);

}  // namespace rynlinuxd
