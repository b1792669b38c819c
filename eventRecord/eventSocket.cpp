// The file is looked at and changed under its folder's lock.
#include "eventRecord/eventSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "hosted/contexts/folderLock.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"

namespace eventrecord {
namespace {

constexpr mode_t kSocketMode = 0660;
constexpr mode_t kFolderMode = 0755;

}  // namespace

int EventSocket::Open() {
  const std::string folder = std::filesystem::path(path_).parent_path();
  if (const int error = folder.empty() ? 0 : hosted::MakeFolders(folder, kFolderMode)) return error;
  if (const int error = hosted::ServeUnixSocket(path_, SOCK_STREAM, kSocketMode, &fd_)) return error;
  if (fcntl(fd_.Get(), F_SETFL, O_NONBLOCK) != 0 || lstat(path_.c_str(), &own_) != 0) return errno;
  return 0;
}

void EventSocket::Remove() {
  if (!fd_ || removed_) return;
  removed_ = true;
  hosted::FolderLock lock;  // best effort; without it another agent could start between the look and the removal
  lock.Take(path_);
  struct stat now {};
  if (lstat(path_.c_str(), &now) == 0 && now.st_dev == own_.st_dev && now.st_ino == own_.st_ino) {
    unlink(path_.c_str());
  }
}

std::string WhyNotServed(const std::string &path, int error, const std::string &orElse) {
  switch (error) {
    case EADDRINUSE:
      return "a live management agent serves " + path + " (stop it first" + orElse + ")";
    case EACCES:
    case EPERM:
      return "no permission for " + path + " (run as root, or give a folder of your own with --root)";
    case EEXIST:
      return path + " is no socket (move it away)";
    case ENAMETOOLONG:
      return "socket path is too long: " + path + " (give a shorter --root)";
    default:
      return "cannot serve " + path + ": " + std::strerror(error);
  }
}

}  // namespace eventrecord
