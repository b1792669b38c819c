// A lock between processes on the folder that a socket file stands in.
#pragma once

#include <string>

#include "base/uniqueFd.h"

namespace hosted {

/// Held from Take until it goes: whoever looks at a socket file and then replaces or removes it holds this meanwhile.
class FolderLock {
 public:
  /// Lock the folder that `path` stands in. 0 or an errno value. After 2 s in vain it is 0 without the lock: only a
  /// process that means harm keeps it that long, and its aim would be that nothing starts.
  int Take(const std::string &path);

 private:
  base::UniqueFd folder_;
};

}  // namespace hosted
