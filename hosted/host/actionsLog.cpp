// Appends to the record of actions that were carried out. Any thread.
#include "hosted/host/actionsLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>

#include "base/uniqueFd.h"
#include "hosted/flight/recorder.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

/// Append `text` so that it neither ends a field nor a line.
void AppendEscaped(std::string_view text, std::string *line) {
  for (const char c : text) {
    switch (c) {
      case '\\':
        line->append("\\\\");
        break;
      case '\t':
        line->append("\\t");
        break;
      case '\n':
        line->append("\\n");
        break;
      default:
        line->push_back(c);
    }
  }
}

std::string MicrosecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::to_string(int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000);
}

/// Open the file for appending: no other file in its place, and none that would have its writer wait. 0 or an errno
/// value.
int Open(const std::string &path, base::UniqueFd *fd, off_t *size) {
  fd->Reset(open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!*fd) return errno;
  struct stat status {};
  if (fstat(fd->Get(), &status) != 0) return errno;
  *size = status.st_size;
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

/// Append to the file with one write; a line that does not fit whole is taken back. 0 or an errno value.
int AppendLine(const std::string &path, std::string line) {
  if (const int error = MakeFolders(path.substr(0, path.rfind('/')), 0755); error != 0) return error;
  base::UniqueFd fd;
  off_t size = 0;
  if (const int error = Open(path, &fd, &size); error != 0) return error;
  // Half a line that a crash has left is not glued to this one.
  char last = '\n';
  if (size > 0 && pread(fd.Get(), &last, 1, size - 1) == 1 && last != '\n') line.insert(0, 1, '\n');
  const ssize_t written = write(fd.Get(), line.data(), line.size());
  if (written < 0) return errno;
  if (static_cast<size_t>(written) == line.size()) return 0;
  return ftruncate(fd.Get(), size) == 0 ? ENOSPC : errno;
}

}  // namespace

int RecordAction(std::string_view operation, const std::vector<ActionField> &fields) {
  std::string line;
  for (const ActionField &field : fields) {
    line += '\t';
    if (const int64_t *integer = std::get_if<int64_t>(&field)) {
      line += std::to_string(*integer);
    } else {
      AppendEscaped(std::get<std::string_view>(field), &line);
    }
  }
  line += '\n';
  const std::string path = RootPath(kActionsLog);
  // Guards the order, as a line's time is taken and the line written before the next, and what is behind a line that is
  // taken back. Nothing nests in it.
  static std::mutex order;
  int error = 0;
  {
    const std::lock_guard lock(order);
    error = AppendLine(path, MicrosecondsNow().append("\t").append(operation).append(line));
  }
  if (error != 0) Log("Cannot write %s: %s", path.c_str(), std::strerror(error));
  return RecordHost(flight::HostKind::kAction, operation, error, std::string_view(line).substr(0, line.size() - 1));
}

}  // namespace hosted
