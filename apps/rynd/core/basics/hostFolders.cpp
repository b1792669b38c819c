#include "core/basics/hostFolders.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/system.h"
#include "platform/volumesDirectory.h"

namespace rynd {
namespace {

constexpr char kScratch[] = "/scratch";

}  // namespace

base::UniqueFd OpenVolumesFolder() {
  const std::string path = std::string(Hyk_Root()) + kVolumesDirectory;
  return base::UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::string ScratchTarget() {
  char target[4095];
  const ssize_t length = readlink((std::string(Hyk_Root()) + kScratch).c_str(), target, sizeof target);
  return length < 0 ? kScratch : std::string(target, static_cast<size_t>(length));
}

}  // namespace rynd
