// What host management and the volumes' directory know about a storage device or path. A failure of theirs, whatever is
// thrown, is an empty result. Any thread; a look-up may block. Names may be null, as an observation's texts may.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rynd {

/// The device's redundancy status: 0 says nothing; see storagePaths.h for 1 to 3.
std::optional<int32_t> RedundancyStatus(const char *device);
/// The name of the device that `path` leads to.
std::optional<std::string> DeviceOfPath(const char *path);

/// The names of the volumes on a device's partitions, each in double quotes, joined by ", "; "" when there is none.
std::optional<std::string> DatastoreList(const char *device);
/// The same, "Unknown" when it can't be found out.
std::string DatastoresOrUnknown(const char *device);

}  // namespace rynd
