// A lock between processes on the folder that a socket file stands in. Any thread.
#include "hosted/contexts/folderLock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include <cerrno>

#include "hosted/log/log.h"

namespace hosted {

int FolderLock::Take(const std::string &path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  folder_.Reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_) return errno;
  // Anybody who may read the folder can lock it.
  constexpr int kTries = 400;
  constexpr int kPauseMilliseconds = 5;
  for (int tried = 0; tried < kTries; ++tried) {
    if (flock(folder_.Get(), LOCK_EX | LOCK_NB) == 0) return 0;
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    poll(nullptr, 0, kPauseMilliseconds);
  }
  Log("Going on without the lock on %s, which another process keeps", folder.c_str());
  return 0;
}

}  // namespace hosted
