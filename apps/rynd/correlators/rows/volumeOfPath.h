// The volume that a path leads through, as events show it. Any thread.
#pragma once

#include <string>

namespace rynd {

/// The first component of `path` below the volumes' folder when one of the host's file systems has it as its label or
/// UUID; "(unknown)" when none has, or the host's file systems can't be read; "(invalid)" for a path outside of that
/// folder, and for null. Asks kernel control, which may block.
std::string VolumeOfPath(const char *path);

}  // namespace rynd
