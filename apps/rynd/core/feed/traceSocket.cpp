#include "core/feed/traceSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "base/acceptor.h"
#include "base/unixAddress.h"
#include "base/unixListener.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "core/feed/traceFeed.h"
#include "platform/system.h"

namespace rynd {
namespace {

constexpr char kTraceSocketPath[] = "/var/run/corvane/rynd-trace.sock";
constexpr int kBacklog = 4096;
constexpr mode_t kMode = 0660;

int listener = -1;
/// The file that was made for it, and where: kept, as a stop may find no memory.
struct stat ownFile {};
std::string ownPath;

/// 0 or an errno value.
int Listen(const std::string &path, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (const int status = base::MakeUnixAddress(path, &address); status != 0) return status;
  unlink(path.c_str());
  fd->Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!*fd) return errno;
  if (const int status = base::BindListener(fd->Get(), path, address, kMode); status != 0) return status;
  return lstat(path.c_str(), &ownFile) == 0 && listen(fd->Get(), kBacklog) == 0 ? 0 : errno;
}

}  // namespace

int OpenTraceSocket() {
  std::string path = std::string(Hyk_Root()) + kTraceSocketPath;
  base::UniqueFd fd;
  listener = -1;
  if (const int status = Listen(path, &fd); status != 0) {
    Log("Cannot open the trace socket %s: %s\n", path.c_str(), strerror(status));
    return -1;
  }
  ownPath = std::move(path);
  return listener = fd.Release();
}

void CloseTraceSocket() {
  const base::UniqueFd open(std::exchange(listener, -1));
  if (!open) return;
  // Its inode number is no other file's while it is open, and no other daemon makes one while this has its contexts.
  struct stat file {};
  if (lstat(ownPath.c_str(), &file) != 0 || file.st_dev != ownFile.st_dev || file.st_ino != ownFile.st_ino) return;
  unlink(ownPath.c_str());
}

int TraceListener() {
  return listener;
}

void AcceptTraceClient(int listenFd) {
  static base::Acceptor acceptor;
  base::UniqueFd client(acceptor.Accept(listenFd));
  const int acceptStatus = client ? 0 : errno;
  if (acceptStatus == EAGAIN) return;  // accepted already, while the poll loop waited for an agent
  const int status = client ? Feed().AddClient(std::move(client)) : 0;
  // Whoever is refused comes again: told once, until somebody is served.
  static bool isTold = false;
  const bool isServed = acceptStatus == 0 && status == 0;
  if (!isServed) Stats().trace.refused.Add();
  if (isServed == !isTold) return;
  isTold = !isServed;
  if (acceptStatus != 0) Log("Trace accept() failed: %s", strerror(acceptStatus));
  if (status == EUSERS) Log("%zu trace clients are connected; more are refused.\n", TraceFeed::kMaxClients);
  if (status != 0 && status != EUSERS) Log("pthread_create failed: %s", strerror(status));
}

}  // namespace rynd
