// Where the hosted platform keeps its sockets and files. Any thread.
#include "hosted/paths.h"

#include "platform/system.h"

namespace hosted {

std::string RootPath(const char *path) {
  return std::string(Hyk_Root()) + path;
}

std::string KernelSocketPath(unsigned id) {
  std::string path = RootPath(kContextFolder) + "/kernel-";
  if (id < 10) path += '0';
  return path + std::to_string(id);
}

}  // namespace hosted
