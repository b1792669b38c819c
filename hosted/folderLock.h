// A lock between processes on the folder that a socket file stands in.
#pragma once

#include <string>

#include "base/uniqueFd.h"

namespace hosted {

/// Held from Take until it goes: whoever looks at a socket file and then replaces or removes it holds this meanwhile.
class FolderLock {
 public:
  /// Lock the folder that `path` stands in. 0, ETIMEDOUT when another process keeps it for 5 s, or an errno value.
  int Take(const std::string &path);

 private:
  base::UniqueFd folder_;
};

}  // namespace hosted
