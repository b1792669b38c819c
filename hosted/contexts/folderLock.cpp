// A lock between processes on the folder that a socket file stands in. Any thread.
#include "hosted/contexts/folderLock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "hosted/log/log.h"

namespace hosted {
namespace {

/// Whether nobody but this process's user can open the file, and thereby lock it.
bool IsOurs(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & 077) == 0;
}

}  // namespace

int FolderLock::Take(const std::string &path) {
  const size_t slash = path.rfind('/');
  const std::string file = (slash == std::string::npos ? "./" : path.substr(0, slash + 1)) + ".lock";
  file_.Reset(open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file_)
    return errno == EACCES || errno == EPERM || errno == ELOOP || errno == EISDIR || errno == ENXIO ? 0 : errno;
  if (!IsOurs(file_.Get())) return 0;
  constexpr int kTries = 400;
  constexpr int kPauseMilliseconds = 5;
  for (int tried = 0; tried < kTries; ++tried) {
    if (flock(file_.Get(), LOCK_EX | LOCK_NB) == 0) return 0;
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    poll(nullptr, 0, kPauseMilliseconds);
  }
  Log("Going on without the lock %s, which another process keeps", file.c_str());
  return 0;
}

}  // namespace hosted
