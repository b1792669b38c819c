// Reads the host tree. Stateless: any thread.
#include "hosted/host/hostTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"

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

}  // namespace

std::string HostComponent(const char *name) {
  if (name == nullptr) return "%00";
  if (*name == '\0') return "%";
  std::string component;
  for (const char *at = name; *at != '\0'; ++at) {
    const auto code = static_cast<unsigned char>(*at);
    const bool control = code < 0x20 || code == 0x7f;
    if (!control && *at != '/' && *at != '%' && !(*at == '.' && at == name)) {
      component += *at;
      continue;
    }
    constexpr char kDigits[] = "0123456789ABCDEF";
    component += {'%', kDigits[code >> 4], kDigits[code & 15]};
  }
  return component;
}

std::string HostTreePath(std::string_view path) {
  return RootPath(kHostTree).append("/").append(path);
}

int ReadHostText(std::string_view path, std::string *text) {
  const int error = ReadAll(HostTreePath(path), text);
  // No file can have a name that is too long.
  if (error == ENOENT || error == ENAMETOOLONG) return ENOENT;
  if (error != 0) return ReadFailed(path, error, std::strerror(error));
  if (text->ends_with('\n')) text->pop_back();
  if (text->find('\n') != std::string::npos) return ReadFailed(path, EINVAL, "it holds more than one line");
  if (text->find('\0') != std::string::npos) return ReadFailed(path, EINVAL, "it holds a NUL");
  return 0;
}

int ReadHostIntegers(std::string_view path, int64_t least, int64_t most, std::span<int64_t> values) {
  std::string text;
  if (const int error = ReadHostText(path, &text); error != 0) return error;
  if (ParseIntegers(text, least, most, values)) return 0;
  Log("Cannot read %s: \"%.100s\" is not %zu integer%s from %lld to %lld", HostTreePath(path).c_str(), text.c_str(),
      values.size(), values.size() == 1 ? "" : "s", static_cast<long long>(least), static_cast<long long>(most));
  return EINVAL;
}

int ReadHostInteger(std::string_view path, int64_t least, int64_t most, int64_t *value) {
  return ReadHostIntegers(path, least, most, {value, 1});
}

bool ParseIntegers(std::string_view text, int64_t least, int64_t most, std::span<int64_t> values) {
  constexpr std::string_view kBlanks = " \t";
  std::vector<int64_t> parsed;
  while (parsed.size() < values.size()) {
    if (!parsed.empty()) {
      const size_t blanks = std::min(text.find_first_not_of(kBlanks), text.size());
      if (blanks == 0) return false;
      text.remove_prefix(blanks);
    }
    // from_chars takes a minus alone.
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || value < least || value > most) return false;
    parsed.push_back(value);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
  }
  if (!text.empty()) return false;
  std::copy(parsed.begin(), parsed.end(), values.begin());
  return true;
}

}  // namespace hosted
