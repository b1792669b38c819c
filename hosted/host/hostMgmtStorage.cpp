// The storage devices and paths of the host tree: storage/devices/NAME is a folder, storage/paths/NAME holds the name
// of a device. Any thread.
#include "platform/hostMgmtStorage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <span>
#include <utility>

#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "platform/hostMgmt.h"

namespace HostMgmt {
namespace {

[[noreturn]] void Fail(const std::string &what, int error) {
  throw Lib::HostMgmtException(what + ": " + std::strerror(error));
}

constexpr int64_t kMostRedundant = 3;  ///< the highest redundancy status

std::string DevicePath(const std::string &component) {
  return "storage/devices/" + component;
}

/// The integer in the file `name` of a device, or `missing` when there is no such file.
int64_t DeviceInteger(const std::string &component, const char *name, int64_t least, int64_t most, int64_t missing) {
  int64_t value = 0;
  const int error = hosted::ReadHostInteger(DevicePath(component) + "/" + name, least, most, &value);
  if (error == ENOENT) return missing;
  if (error != 0) Fail("cannot read the " + std::string(name) + " of the storage device " + component, error);
  return value;
}

}  // namespace

namespace Storage {

Lun::Lun(std::string component) : component_(std::move(component)) {}
Lun::~Lun() = default;

int32_t Lun::GetRedundancyStatus() const {
  return static_cast<int32_t>(DeviceInteger(component_, "redundancy", 0, kMostRedundant, 0));
}

std::vector<Partition> DiskLun::GetPartitions() const {
  const std::string folder = DevicePath(component_) + "/partitions";
  std::vector<std::string> names;
  const int error = hosted::ListHostFolder(folder, &names);
  if (error != 0) Fail("cannot list the partitions of the storage device " + component_, error);
  std::vector<Partition> partitions;
  for (const std::string &name : names) {
    int64_t number = 0;
    const bool isNumber = hosted::ParseIntegers(name, 0, std::numeric_limits<int32_t>::max(), {&number, 1});
    if (isNumber && std::to_string(number) == name) {  // "01" is no other name of 1
      partitions.push_back({static_cast<int32_t>(number)});
      continue;
    }
    hosted::Log("Left out %s/%s: it is no number of a partition", hosted::HostTreePath(folder).c_str(),
                hosted::HostComponent(name.c_str()).c_str());
  }
  std::ranges::sort(partitions, {}, &Partition::number);
  return partitions;
}

Path::Path(std::string deviceName) : deviceName_(std::move(deviceName)) {}

std::unique_ptr<Lun> StorageInfo::GetLunByName(const char *name, bool /*current*/) const {
  // Kept: nothing is remembered here, so that every look-up is current.
  const std::string component = hosted::HostComponent(name);
  if (const int error = hosted::HostPathExists(DevicePath(component)); error != 0) {
    Fail("cannot find the storage device " + component, error);
  }
  if (DeviceInteger(component, "disk", 0, 1, 1) == 0) return std::make_unique<Lun>(component);
  return std::make_unique<DiskLun>(component);
}

std::unique_ptr<Path> StorageInfo::GetPathByName(const char *name) const {
  const std::string component = hosted::HostComponent(name);
  std::string device;
  const int error = hosted::ReadHostText("storage/paths/" + component, &device);
  if (error != 0) Fail("cannot find the storage path " + component, error);
  return std::make_unique<Path>(device);
}

}  // namespace Storage

std::unique_ptr<Storage::StorageInfo> Host::GetStorageInfo() const {
  return std::make_unique<Storage::StorageInfo>();
}

std::unique_ptr<Host> HostFactory::GetHost() {
  return std::make_unique<Host>();
}

}  // namespace HostMgmt
