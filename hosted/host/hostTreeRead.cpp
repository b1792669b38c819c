// Reads single files of the host tree. Stateless: any thread.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/uniqueFd.h"
#include "hosted/flight/recorder.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"

namespace hosted {
namespace {

/// Bytes; a longer file holds no value of the tree. The longest text of an observation fits, as the configuration store
/// writes it: up to six bytes for one.
constexpr size_t kMaxValue = size_t{1} << 20;

int ReadFailed(std::string_view path, int error, const char *reason) {
  Log("Cannot read %s: %s", HostTreePath(path).c_str(), reason);
  return error;
}

/// Read a whole file of at most kMaxValue bytes. 0 or an errno value.
int ReadAll(const std::string &path, std::string *content) {
  // A pipe in place of a file must not hold up the reader.
  const base::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return errno;
  struct stat status {};
  if (fstat(fd.Get(), &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  content->clear();
  std::array<char, 1024> part;
  while (true) {
    const ssize_t got = read(fd.Get(), part.data(), part.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    content->append(part.data(), static_cast<size_t>(got));
    if (content->size() > kMaxValue) return EFBIG;
  }
}

/// ReadHostText.
int ReadText(std::string_view path, std::string *text) {
  const int error = ReadAll(HostTreePath(path), text);
  // No file can have a name that is too long.
  if (error == ENOENT || error == ENAMETOOLONG) return ENOENT;
  if (error != 0) return ReadFailed(path, error, std::strerror(error));
  if (text->ends_with('\n')) text->pop_back();
  if (text->find('\n') != std::string::npos) return ReadFailed(path, EINVAL, "it holds more than one line");
  if (text->find('\0') != std::string::npos) return ReadFailed(path, EINVAL, "it holds a NUL");
  return 0;
}

}  // namespace

int ReadHostText(std::string_view path, std::string *text) {
  const int status = ReadText(path, text);
  return RecordHost(flight::HostKind::kText, path, status, *text);
}

int HostPathExists(std::string_view path) {
  const int status = access(HostTreePath(path).c_str(), F_OK) == 0 ? 0 : errno;
  return RecordHost(flight::HostKind::kExists, path, status);
}

}  // namespace hosted
