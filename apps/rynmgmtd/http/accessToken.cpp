// The secret that a client shows. Stateless but for the token: any thread.
#include "mgmtd/http/accessToken.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/uniqueFd.h"

namespace mgmtd {
namespace {

constexpr size_t kFewest = 16;
constexpr size_t kMost = 1024;

}  // namespace

std::string AccessToken::Read(const std::string &path, AccessToken *out) {
  const std::string file = "the token file " + path;
  const base::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0) return "cannot read " + file + ": " + std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return file + " is no plain file";
  if ((status.st_mode & S_IRWXO) != 0) return file + " may be read or written by others: chmod o= " + path;
  std::array<char, kMost + 2> bytes{};
  const ssize_t count = read(fd.Get(), bytes.data(), bytes.size());
  if (count < 0) return "cannot read " + file + ": " + std::strerror(errno);
  std::string token(bytes.data(), static_cast<size_t>(count));
  token.resize(std::min(token.find('\n'), token.size()));
  if (token.size() < kFewest || token.size() > kMost) {
    return file + " holds no token: its first line must have " + std::to_string(kFewest) + " to " +
           std::to_string(kMost) + " characters";
  }
  for (const char c : token) {
    if (c <= ' ' || c > '~') return file + " holds no token: a blank or a character that is not ASCII";
  }
  out->token_ = token;
  return "";
}

bool AccessToken::IsShownBy(std::string_view authorization) const {
  constexpr std::string_view kScheme = "bearer ";
  if (!Wanted()) return true;
  if (authorization.size() < kScheme.size() || strncasecmp(authorization.data(), kScheme.data(), kScheme.size()) != 0) {
    return false;
  }
  const std::string_view shown = authorization.substr(kScheme.size());
  volatile unsigned char difference = shown.size() == token_.size() ? 0 : 1;
  for (size_t i = 0; i < token_.size(); ++i) {
    const char other = i < shown.size() ? shown[i] : '\0';
    difference = static_cast<unsigned char>(difference | (token_[i] ^ other));
  }
  return difference == 0;
}

}  // namespace mgmtd
