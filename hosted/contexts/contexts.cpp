// Opening, resetting and closing observation contexts. The poll loop's thread only.
#include "hosted/contexts/contexts.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "base/unixListener.h"
#include "hosted/contexts/contextCounters.h"
#include "hosted/contexts/descriptorCloser.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/contexts/folderLock.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

/// The sockets of the open contexts by their id; a reader has a descriptor only.
constinit auto sockets = [] {
  std::array<int, kRynUserContext + 1> none{};
  none.fill(-1);
  return none;
}();

/// Run an operation; a failure to allocate inside of it becomes its status.
template <typename Operation>
int Guard(const Operation &operation) try {
  return operation();
} catch (const std::bad_alloc &) {
  return ENOMEM;
}

/// Tell why a context can't be opened; returns `error`.
int OpenFailed(const std::string &path, int error) {
  LogAndTell("Cannot open %s: %s", path.c_str(),
             error == EADDRINUSE     ? "another process serves it"
             : error == EEXIST       ? "a file that is no socket is in the way"
             : error == ENAMETOOLONG ? "the path has more than 107 characters"
                                     : std::strerror(error));
  return error;
}

/// Bind the socket of `context` to its path. 0, or an errno value, which was told.
int OpenContext(int type, mode_t mode, mode_t folderMode, RynLibContext *context) {
  const std::string &path = context->path;
  int error = ServeUnixSocket(path, type, mode, &context->fd);
  if (error == ENOENT || error == ENOTDIR) {  // mostly its folder is there
    const std::string folder = path.substr(0, path.rfind('/'));
    if (const int failed = MakeFolders(folder, folderMode); failed != 0) return OpenFailed(folder, failed);
    error = ServeUnixSocket(path, type, mode, &context->fd);
  }
  if (error != 0) return OpenFailed(path, error);
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return OpenFailed(path, errno);
  context->device = status.st_dev;
  context->inode = status.st_ino;
  return 0;
}

/// A context that is not open yet.
std::unique_ptr<RynLibContext> MakeContext(uint32_t id, std::string path, const char *name) {
  auto context = std::make_unique<RynLibContext>();
  context->id = id;
  context->path = std::move(path);
  std::snprintf(context->name.data(), context->name.size(), "%s", name);
  return context;
}

/// Note an open context and give it to the caller of the library.
RynLibHandle HandOut(std::unique_ptr<RynLibContext> context) {
  sockets[context->id] = context->fd.Get();
  return context.release();
}

/// Remove the context's socket file if it is still its own. The socket is open, so that no other file can have its
/// inode number. 0 or an errno value.
int RemoveSocketFile(const RynLibContext &context) {
  // With its folder the file has gone.
  if (access(context.path.substr(0, context.path.rfind('/')).c_str(), F_OK) != 0 && errno == ENOENT) return 0;
  FolderLock lock;
  if (const int error = lock.Take(context.path); error != 0) return error;
  struct stat status {};
  if (lstat(context.path.c_str(), &status) != 0) return errno == ENOENT ? 0 : errno;
  if (status.st_dev != context.device || status.st_ino != context.inode) return 0;
  return unlink(context.path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

/// The most datagrams that a socket's queue holds; senders that wait refill it while it is drained.
size_t QueueLimit() {
  constexpr size_t kWhenUnknown = 4096;
  std::FILE *file = std::fopen("/proc/sys/net/unix/max_dgram_qlen", "re");
  if (file == nullptr) return kWhenUnknown;
  char text[32] = "";
  const bool read = std::fgets(text, sizeof text, file) != nullptr;
  std::fclose(file);
  const long limit = read ? std::strtol(text, nullptr, 10) : 0;
  // The queue is full when it holds more than the limit.
  return limit > 0 ? static_cast<size_t>(limit) + 1 : kWhenUnknown;
}

/// Discard what is in the queue of a kernel context's socket. 0 or an errno value.
int DrainKernelSocket(uint32_t id, int fd, size_t *records, size_t *bytes) {
  if (DropHeldRecord(id, bytes)) ++*records;
  for (size_t left = QueueLimit(); left > 0; --left) {
    const ssize_t got = recv(fd, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
    ++*records;
    *bytes += static_cast<size_t>(got);
  }
  return 0;
}

}  // namespace

uint32_t FindContext(int fd) {
  return static_cast<uint32_t>(std::find(sockets.begin(), sockets.begin() + kRynUserContext, fd) - sockets.begin());
}

}  // namespace hosted

int RynLib_AsyncContextOpen(uint32_t id, RynLibHandle *handle) {
  *handle = nullptr;
  if (id >= kRynAsyncContexts) return EINVAL;
  return hosted::Guard([&] {
    const std::string path = hosted::KernelSocketPath(id);
    auto context = hosted::MakeContext(id, path, path.substr(path.rfind('/') + 1).c_str());
    if (const int error = hosted::OpenContext(SOCK_DGRAM, 0600, 0700, context.get()); error != 0) return error;
    *handle = hosted::HandOut(std::move(context));
    return 0;
  });
}

int RynLib_UserContextOpen(uint32_t id, RynLibHandle *handle) {
  *handle = nullptr;
  if (id != kRynUserContext) return EINVAL;
  return hosted::Guard([&] {
    auto context = hosted::MakeContext(id, hosted::RootPath(hosted::kUserSocket), "user");
    if (const int error = hosted::OpenContext(SOCK_SEQPACKET, 0660, 0755, context.get()); error != 0) return error;
    // Accepted connections inherit it: packets then carry credentials, which tell an empty one from the end.
    constexpr int kOn = 1;
    setsockopt(context->fd.Get(), SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn);
    // A caller that is gone again by the time it is accepted must not hold up the poll loop.
    fcntl(context->fd.Get(), F_SETFL, O_NONBLOCK);
    context->acceptor = std::make_unique<base::Acceptor>();
    *handle = hosted::HandOut(std::move(context));
    return 0;
  });
}

int RynLib_HandleToFd(RynLibHandle handle, int *fd) {
  if (handle == nullptr) return EINVAL;
  *fd = handle->fd.Get();
  return 0;
}

int RynLib_HandleToName(RynLibHandle handle, char *name) {
  if (handle == nullptr) return EINVAL;
  std::memcpy(name, handle->name.data(), kRynLibNameSize);
  return 0;
}

int RynLib_Reset(RynLibHandle handle) {
  if (handle == nullptr) return EINVAL;
  size_t records = 0;
  size_t bytes = 0;
  int error = 0;
  if (handle->id == kRynUserContext) {
    hosted::DrainUserConnections(&records, &bytes);
  } else {
    error = hosted::DrainKernelSocket(handle->id, handle->fd.Get(), &records, &bytes);
  }
  hosted::CountReset(handle->id, records, bytes);
  hosted::Log("Reset of %s discarded %zu records, %zu bytes", handle->name.data(), records, bytes);
  return error;
}

int RynLib_Close(RynLibHandle handle) {
  if (handle == nullptr) return EINVAL;
  const std::unique_ptr<RynLibContext> context(handle);
  using hosted::sockets;
  sockets[handle->id] = -1;
  size_t bytes = 0;
  hosted::DropHeldRecord(handle->id, &bytes);
  if (std::ranges::count(sockets, -1) == std::ssize(sockets)) hosted::TellLastDiscards();
  const int error = hosted::Guard([&] { return hosted::RemoveSocketFile(*context); });
  // Callers that nobody has accepted are closed with it, and with them what their packets carry.
  if (handle->acceptor != nullptr && !base::RefusesDescriptors(context->fd.Get())) {
    hosted::CloseElsewhere(context->fd.Release());
  }
  return error;
}
