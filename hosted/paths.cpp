// Where the hosted platform keeps its sockets and files, and how their folders are made. Any thread.
#include "hosted/paths.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/system.h"

namespace hosted {
namespace {

/// Make one folder with exactly `mode`, whatever the umask; one that is there stays as it is. 0 or an errno value.
int MakeFolder(const std::string &path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return chmod(path.c_str(), mode) == 0 ? 0 : errno;
  if (errno != EEXIST) return errno;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

}  // namespace

std::string RootPath(const char *path) {
  return std::string(Hyk_Root()) + path;
}

std::string KernelSocketPath(unsigned id) {
  std::string path = RootPath(kContextFolder) + "/kernel-";
  if (id < 10) path += '0';
  return path + std::to_string(id);
}

int MakeFolders(const std::string &path, mode_t mode) {
  // Mostly it is there, with all above it.
  const int error = MakeFolder(path, mode);
  const size_t slash = path.rfind('/');
  if (error != ENOENT || slash == 0 || slash == std::string::npos) return error;
  if (const int above = MakeFolders(path.substr(0, slash), 0755); above != 0) return above;
  return MakeFolder(path, mode);
}

}  // namespace hosted
