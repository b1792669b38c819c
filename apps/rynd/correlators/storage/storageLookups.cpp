#include "correlators/storage/storageLookups.h"

#include <cxxabi.h>

#include <cerrno>
#include <cstdio>
#include <set>

#include "base/uniqueFd.h"
#include "core/basics/hostFolders.h"
#include "core/basics/reason.h"
#include "platform/hostMgmtStorage.h"
#include "platform/volumesDirectory.h"

namespace rynd {
namespace {

using HostMgmt::HostFactory;

/// What `lookUp` returns, or nothing when it throws.
template <typename LookUp>
auto Try(const LookUp &lookUp) -> std::optional<decltype(lookUp())> {
  try {
    return lookUp();
  } catch (const abi::__forced_unwind &) {
    throw;
  } catch (const std::exception &failure) {
    Reason("look-up failed: %s", failure.what());
    return std::nullopt;
  } catch (...) {
    return std::nullopt;
  }
}

std::vector<HostMgmt::Storage::Partition> PartitionsOf(const char *device) {
  const auto lun = HostFactory::GetHost()->GetStorageInfo()->GetLunByName(device, true);
  const auto *disk = dynamic_cast<const HostMgmt::Storage::DiskLun *>(lun.get());
  return disk == nullptr ? std::vector<HostMgmt::Storage::Partition>() : disk->GetPartitions();
}

/// The volume on a partition. 0, ENOENT when there is none, or another errno value.
int VolumeOn(int directory, const char *device, int32_t partition, std::string *volume) {
  char request[kVolumesQueryRequestSize] = {};
  // The device without a name is not the one whose name is empty.
  const int length = device == nullptr ? snprintf(request, sizeof request, "%c:%d", '\0', partition)
                                       : snprintf(request, sizeof request, "%s:%d", device, partition);
  // A name that is cut off would ask about another device.
  if (length < 0 || static_cast<size_t>(length) >= sizeof request) return ENAMETOOLONG;
  char answer[kVolumesQueryAnswerSize] = {};
  const int error = VolumesDirectoryQuery(directory, kVolumesQueryPartitionVolume, request, answer);
  if (error == 0) *volume = answer;
  return error;
}

std::string ListVolumes(int directory, const char *device) {
  std::string text;
  std::set<std::string> listed;
  for (const HostMgmt::Storage::Partition &partition : PartitionsOf(device)) {
    if (partition.number == 0) continue;
    std::string volume;
    const int error = VolumeOn(directory, device, partition.number, &volume);
    if (error == ENOENT) continue;
    if (error != 0) break;
    if (!listed.insert(volume).second) continue;
    text.append(text.empty() ? "\"" : ", \"").append(volume).append("\"");
  }
  return text;
}

}  // namespace

std::optional<int32_t> RedundancyStatus(const char *device) {
  return Try(
      [&] { return HostFactory::GetHost()->GetStorageInfo()->GetLunByName(device, true)->GetRedundancyStatus(); });
}

std::optional<std::string> DeviceOfPath(const char *path) {
  return Try([&] { return HostFactory::GetHost()->GetStorageInfo()->GetPathByName(path)->GetDeviceName(); });
}

std::optional<std::string> DatastoreList(const char *device) {
  const base::UniqueFd directory = OpenVolumesFolder();
  if (!directory) {
    Reason("%s cannot be opened: the datastores are not known", kVolumesDirectory);
    return std::nullopt;
  }
  return Try([&] { return ListVolumes(directory.Get(), device); });
}

std::string DatastoresOrUnknown(const char *device) {
  return DatastoreList(device).value_or("Unknown");
}

}  // namespace rynd
