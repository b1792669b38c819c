#include "sink/textFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>

#include "base/uniqueFd.h"

namespace rynlinuxd {

int ReadTextFile(const std::string &path, size_t most, std::string *text) {
  const base::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return errno;
  text->clear();
  std::array<char, 16384> part;
  while (true) {
    const ssize_t got = read(fd.Get(), part.data(), part.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    text->append(part.data(), static_cast<size_t>(got));
    if (text->size() > most) return EFBIG;
  }
}

std::string ReadLine(const std::string &path) {
  constexpr size_t kMost = 65536;
  std::string text;
  if (ReadTextFile(path, kMost, &text) != 0) return "";
  return text.substr(0, text.find('\n'));
}

bool ReadNumber(const std::string &path, uint64_t *number) {
  const std::string line = ReadLine(path);
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), *number);
  return error == std::errc() && end == line.data() + line.size();
}

int ListFolder(const std::string &path, std::vector<std::string> *names) {
  names->clear();
  DIR *folder = opendir(path.c_str());
  if (folder == nullptr) return errno;
  errno = 0;
  while (const dirent *entry = readdir(folder)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
    errno = 0;
  }
  const int error = errno;
  closedir(folder);
  return error;
}

}  // namespace rynlinuxd
