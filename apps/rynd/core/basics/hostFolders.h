// What the daemon itself looks up in the host's file system, below the platform's root. Any thread.
#pragma once

#include <string>

#include "base/uniqueFd.h"

namespace rynd {

/// Open the folder that volumes are mounted in. None when it can't be opened.
base::UniqueFd OpenVolumesFolder();

/// What the link "/scratch" leads to; that path itself when it can't be read.
std::string ScratchTarget();

}  // namespace rynd
