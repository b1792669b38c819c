// Writes the host tree: every file is replaced as a whole. Stateless: any thread.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "base/uniqueFd.h"
#include "hosted/flight/recorder.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

constexpr mode_t kFileMode = 0644;

/// Write all of `content` and sync it. 0 or an errno value.
int WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    content.remove_prefix(static_cast<size_t>(written));
  }
  return fchmod(fd, kFileMode) == 0 && fsync(fd) == 0 ? 0 : errno;
}

/// Make the rename last. Some file systems cannot sync a folder; the rename is as good as it gets then.
void SyncFolder(const std::string &folder) {
  const base::UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) fsync(fd.Get());
}

/// Write a file beside `path` and give it that name. 0 or an errno value.
int Replace(const std::string &path, const std::string &folder, std::string_view content) {
  // Names of the tree have no leading dot, so that this one never counts as a file of it. It is the same every time:
  // what a crash leaves behind is replaced, not collected. Whatever else stands there, such as a pipe, has no reader or
  // writer to wait for.
  const std::string temporary = folder + "/.new";
  // Guards the temporary files; one writer at a time is plenty. Nests in the order of the options.
  static std::mutex writing;
  const std::lock_guard lock(writing);
  unlink(temporary.c_str());
  const base::UniqueFd fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd) return errno;
  int error = WriteAll(fd.Get(), content);
  if (error == 0 && std::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    unlink(temporary.c_str());
  } else {
    SyncFolder(folder);
  }
  return error;
}

}  // namespace

int ReplaceFile(const std::string &path, std::string_view content) {
  const std::string folder = path.substr(0, path.rfind('/'));
  int error = MakeFolders(folder, 0755);
  if (error == 0) error = Replace(path, folder, content);
  if (error != 0) Log("Cannot write %s: %s", path.c_str(), std::strerror(error));
  return error;
}

int WriteHostText(std::string_view path, std::string_view text) {
  const int status = ReplaceFile(HostTreePath(path), std::string(text) + '\n');
  return RecordHost(flight::HostKind::kWrite, path, status, text);
}

}  // namespace hosted
