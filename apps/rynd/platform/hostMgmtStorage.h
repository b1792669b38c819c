// Host management: the host's storage devices, their partitions, and the paths that lead to them.
// Declarations only; a platform library provides them. Any thread; an object belongs to one at a time. Every operation
// throws HostMgmt::Lib::HostMgmtException when it fails, also when there is no such device or path.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace HostMgmt {

namespace Storage {

/// A storage device. A disk device is a DiskLun, which a run-time type test tells.
class Lun {
 public:
  explicit Lun(std::string component);
  virtual ~Lun();
  Lun(const Lun &) = delete;
  Lun &operator=(const Lun &) = delete;
  /// How many ways still lead to the device, as a code of the library's; 0 when there is nothing to say.
  int32_t GetRedundancyStatus() const;

 protected:
  std::string component_;  ///< what the platform files the device under
};

/// A partition of a disk device; number 0 is the whole device.
struct Partition {
  int32_t number;
};

class DiskLun : public Lun {
 public:
  using Lun::Lun;
  /// The partitions by rising number.
  std::vector<Partition> GetPartitions() const;
};

/// One path to a device.
class Path {
 public:
  explicit Path(std::string deviceName);
  const std::string &GetDeviceName() const { return deviceName_; }

 private:
  std::string deviceName_;
};

class StorageInfo {
 public:
  /// The device called `name` (null: the device without a name); `current`: as it is now, not as it was last seen.
  std::unique_ptr<Lun> GetLunByName(const char *name, bool current) const;
  /// The path called `name` (null: the path without a name).
  std::unique_ptr<Path> GetPathByName(const char *name) const;
};

}  // namespace Storage

class Host {
 public:
  std::unique_ptr<Storage::StorageInfo> GetStorageInfo() const;
};

class HostFactory {
 public:
  /// The host that this program runs on.
  static std::unique_ptr<Host> GetHost();
};

}  // namespace HostMgmt
