#include "rynctl/agent/agentControl.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "base/uniqueFd.h"
#include "base/unixAddress.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"

namespace rynctl {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLimit(3);

/// "" or why nobody can be asked at `path`.
std::string Connect(const std::string &path, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (base::MakeUnixAddress(path, &address) != 0) return "socket path is too long: " + path;
  fd->Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (*fd && connect(fd->Get(), address.Get(), base::UnixAddress::kLength) == 0) return "";
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
      return "no management agent serves " + path + " (start rynmgmtd, or give its root with --root)";
    case EACCES:
    case EPERM:
      return "no permission for " + path + " (become a member of the socket's group, corvane, or root)";
    case EAGAIN:
      return "the management agent does not answer: too many wait at " + path;
    default:
      return "cannot connect to " + path + ": " + std::strerror(errno);
  }
}

}  // namespace

std::string AskAgent(const nlohmann::ordered_json &question, nlohmann::ordered_json *answer) {
  base::UniqueFd fd;
  if (std::string error = Connect(hosted::RootPath(mgmtd::kControlSocket), &fd); !error.empty()) return error;
  constexpr const char *kSilent = "the management agent does not answer (see its log: journalctl -u rynmgmtd)";
  const std::string line = question.dump() + "\n";
  if (send(fd.Get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) return kSilent;
  std::string text;
  const Clock::time_point end = Clock::now() + kLimit;
  while (true) {
    pollfd readable{fd.Get(), POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0 || (poll(&readable, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)) return kSilent;
    char part[64 * 1024];
    const ssize_t count = recv(fd.Get(), part, sizeof part, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count <= 0) break;
    text.append(part, static_cast<size_t>(count));
  }
  *answer = nlohmann::ordered_json::parse(text, nullptr, false);
  if (!answer->is_object()) return kSilent;
  return answer->value("error", "");
}

}  // namespace rynctl
