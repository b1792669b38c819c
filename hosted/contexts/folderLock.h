// A lock between processes on the folder that a socket file stands in.
#pragma once

#include <string>

#include "base/uniqueFd.h"

namespace hosted {

/// Held from Take until it goes: whoever looks at a socket file and then replaces or removes it holds this meanwhile.
/// It is a file ".lock" in the folder that nobody but its owner can open, and stays there.
class FolderLock {
 public:
  /// Lock the folder that `path` stands in. 0 or an errno value. It is 0 without the lock when the file is another
  /// user's, or when another process of this one keeps it for 2 s: nobody else can hold up a start or a stop.
  int Take(const std::string &path);

 private:
  base::UniqueFd file_;
};

}  // namespace hosted
