#include "rynctl/health/socketOwner.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace rynctl {
namespace {

namespace fs = std::filesystem;

/// The inode of the socket that listens at `path`; "" when none does.
std::string ListeningInode(const std::string &path) {
  constexpr unsigned long kAccepts = 0x10000;  // __SO_ACCEPTCON
  std::ifstream table("/proc/net/unix");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string address, references, protocol, flags, type, state, inode, name;
    fields >> address >> references >> protocol >> flags >> type >> state >> inode;
    std::getline(fields >> std::ws, name);
    if (name == path && (std::strtoul(flags.c_str(), nullptr, 16) & kAccepts) != 0) return inode;
  }
  return "";
}

/// True when the process whose folder this is holds the socket.
bool Holds(const fs::path &process, const std::string &link) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end; entry.increment(error)) {
    std::error_code gone;
    if (fs::read_symlink(entry->path(), gone) == link) return true;
  }
  return false;
}

}  // namespace

SocketOwner FindSocketOwner(const std::string &path) {
  const std::string inode = ListeningInode(path);
  if (inode.empty()) return {};
  const std::string link = "socket:[" + inode + "]";
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string pid = entry->path().filename();
    if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
    if (!Holds(entry->path(), link)) continue;
    std::string name;
    std::ifstream comm(entry->path() / "comm");
    std::getline(comm, name);
    return {true, name.append(" (process ").append(pid).append(")")};
  }
  return {true, "a process of another user"};
}

bool WaitForText(int fd, const std::string &text, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::string read;
  for (;;) {
    if (read.find(text) != std::string::npos) return true;
    if (read.size() > text.size()) read.erase(0, read.size() - text.size());
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd set{fd, POLLIN, 0};
    if (left.count() <= 0 || poll(&set, 1, static_cast<int>(left.count())) == 0) return false;
    char part[16 * 1024];
    const ssize_t count = recv(fd, part, sizeof part, MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return false;
    if (count > 0) read.append(part, static_cast<size_t>(count));
  }
}

}  // namespace rynctl
