#include "core/basics/hostFolders.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/flight.h"
#include "platform/system.h"
#include "platform/volumesDirectory.h"

namespace rynd {
namespace {

constexpr char kScratch[] = "/scratch";

}  // namespace

base::UniqueFd OpenVolumesFolder() {
  const std::string path = std::string(Hyk_Root()) + kVolumesDirectory;
  base::UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Hyk_RecordLookup("root/hyfs/volumes", folder ? 0 : errno, "");
  return folder;
}

std::string ScratchTarget() {
  char target[4095];
  const ssize_t length = readlink((std::string(Hyk_Root()) + kScratch).c_str(), target, sizeof target);
  std::string found = length < 0 ? kScratch : std::string(target, static_cast<size_t>(length));
  Hyk_RecordLookup("root/scratch", 0, found.c_str());
  return found;
}

}  // namespace rynd
