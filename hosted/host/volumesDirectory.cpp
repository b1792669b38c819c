// The volumes of the host tree's devices: storage/devices/NAME/partitions/N holds the name of the volume on it. Any
// thread.
#include "platform/volumesDirectory.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "hosted/host/hostTree.h"

int VolumesDirectoryQuery(int directoryFd, uint32_t code, const char request[kVolumesQueryRequestSize],
                          char answer[kVolumesQueryAnswerSize]) {
  if (directoryFd < 0) return EBADF;
  if (code != kVolumesQueryPartitionVolume) return ENOTTY;
  const bool isNull = request[0] == '\0';
  const char *const start = isNull ? request + 1 : request;
  const std::string_view text(start, strnlen(start, kVolumesQueryRequestSize - (isNull ? 1 : 0)));
  const size_t colon = text.rfind(':');  // a device's name may hold one itself
  int64_t number = 0;
  if (colon == std::string_view::npos || (isNull && colon != 0) ||
      !hosted::ParseIntegers(text.substr(colon + 1), 0, std::numeric_limits<int32_t>::max(), {&number, 1})) {
    return EINVAL;
  }
  const std::string device = hosted::HostComponent(isNull ? nullptr : std::string(text.substr(0, colon)).c_str());
  std::string volume;
  const int error =
      hosted::ReadHostText("storage/devices/" + device + "/partitions/" + std::to_string(number), &volume);
  if (error != 0) return error;
  if (volume.empty()) return ENOENT;
  if (volume.size() >= kVolumesQueryAnswerSize) return ENAMETOOLONG;
  std::memcpy(answer, volume.c_str(), volume.size() + 1);
  return 0;
}
