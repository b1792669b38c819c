#include "correlators/rows/volumeOfPath.h"

#include <cxxabi.h>

#include <string_view>

#include "platform/hykCtlStorage.h"
#include "platform/volumesDirectory.h"

namespace rynd {
namespace {

/// Whether the host has a file system called `volume`; false when that can't be found out, whatever is thrown.
bool IsVolume(std::string_view volume) {
  try {
    for (const HykCtl::Storage::FileSystem &fileSystem : HykCtl::Storage::StorageInfoImpl().GetFileSystems()) {
      if (volume == fileSystem.GetLabel() || volume == fileSystem.GetUuid()) return true;
    }
  } catch (const abi::__forced_unwind &) {
    throw;
  } catch (...) {
  }
  return false;
}

}  // namespace

std::string VolumeOfPath(const char *path) {
  const std::string_view whole(path == nullptr ? "" : path);
  if (!whole.starts_with(kVolumesDirectory)) return "(invalid)";
  const std::string_view behind = whole.substr(std::string_view(kVolumesDirectory).size());
  const std::string_view volume = behind.substr(0, behind.find('/'));
  return IsVolume(volume) ? std::string(volume) : "(unknown)";
}

}  // namespace rynd
