#include "statusFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "hosted/paths.h"
#include "hosted/store/flatJson.h"

namespace rynlinuxd {

int RunLock::Take() {
  const std::string folder = hosted::RootPath(kFolder);
  if (const int error = hosted::MakeFolders(folder, 0755); error != 0) return error;
  base::UniqueFd file(open((folder + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file || flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return errno;
  file_ = std::move(file);
  return 0;
}

int WriteStatus(const std::vector<SourceState> &states) {
  hosted::FlatJson members;
  for (const SourceState &state : states) members.emplace_back(state.name, StateText(state));
  return hosted::ReplaceFile(hosted::RootPath(kFolder) + "/status.json", hosted::FormatFlatJson(members) + '\n');
}

std::string StateText(const SourceState &state) {
  if (state.error == 0) return "watching";
  return "not watched: " + state.reason + " (" + std::strerror(state.error) + ")";
}

}  // namespace rynlinuxd
