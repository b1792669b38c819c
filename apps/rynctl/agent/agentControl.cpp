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

AgentAnswer AskAgent(const nlohmann::ordered_json &question) {
  AgentAnswer result;
  base::UniqueFd fd;
  result.error = Connect(hosted::RootPath(mgmtd::kControlSocket), &fd);
  if (!result.error.empty()) return result;
  const std::string line = question.dump() + "\n";
  result.there = send(fd.Get(), line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
  result.error = "the management agent does not answer (see its log: journalctl -u rynmgmtd)";
  std::string text;
  const Clock::time_point end = Clock::now() + kLimit;
  while (result.there) {
    pollfd readable{fd.Get(), POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0 || (poll(&readable, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)) return result;
    char part[64 * 1024];
    const ssize_t count = recv(fd.Get(), part, sizeof part, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count <= 0) break;
    text.append(part, static_cast<size_t>(count));
  }
  result.answer = nlohmann::ordered_json::parse(text, nullptr, false);
  if (!result.answer.is_object()) return result;
  result.error = result.answer.value("error", "");
  return result;
}

}  // namespace rynctl
