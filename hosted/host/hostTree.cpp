// Paths and numbers of the host tree. Stateless: any thread.
#include "hosted/host/hostTree.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <vector>

#include "hosted/log/log.h"
#include "hosted/paths.h"

namespace hosted {

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
