// Queries about the volumes of the host, asked of a descriptor of the directory that they are mounted in.
// Declarations only; a platform library provides them. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr char kVolumesDirectory[] = "/hyfs/volumes/";
constexpr uint32_t kVolumesQueryPartitionVolume = 3038;  ///< from "DEVICE:PARTITION" to the name of the volume on it
constexpr size_t kVolumesQueryRequestSize = 128;         ///< bytes of a request, its NUL included
constexpr size_t kVolumesQueryAnswerSize = 256;          ///< bytes of an answer, its NUL included

/// Ask query `code` of the open directory `directoryFd`; in a request a NUL in DEVICE's place means the device without
/// a name. 0 with the NUL-terminated answer, or an errno value: ENOENT when the partition holds no volume.
int VolumesDirectoryQuery(int directoryFd, uint32_t code, const char request[kVolumesQueryRequestSize],
                          char answer[kVolumesQueryAnswerSize]);
