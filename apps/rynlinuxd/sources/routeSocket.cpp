#include "sources/routeSocket.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "sources/kernelDatagrams.h"

namespace rynlinuxd {
namespace {

/// One for all, since it is used for the time of a call alone. A message that does not fit is cut; the kernel makes
/// none that long.
std::span<std::byte> Buffer() {
  constexpr size_t kBuffer = 32768;
  static std::array<std::byte, kBuffer> buffer;
  return buffer;
}

int OpenRoute(uint32_t groups, int flags, base::UniqueFd *out) {
  base::UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
  if (!fd) return errno;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (bind(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return errno;
  *out = std::move(fd);
  return 0;
}

}  // namespace

int RouteSocket::Open(uint32_t groups, int bufferSize) {
  if (const int error = OpenRoute(groups, SOCK_NONBLOCK, &socket_); error != 0) return error;
  setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
  return 0;
}

bool RouteSocket::Receive(const std::function<void(std::span<const std::byte>)> &take) {
  return ReceiveFromKernel(socket_.Get(), Buffer(), take);
}

int RouteSocket::ReadAll(std::span<const std::byte> request, const Parse &parse) {
  base::UniqueFd socket;
  if (const int error = OpenRoute(0, 0, &socket); error != 0) return error;
  const timeval limit{2, 0};
  setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (send(socket.Get(), request.data(), request.size(), 0) < 0) return errno;
  const std::span<std::byte> buffer = Buffer();
  bool isInterrupted = false;
  while (true) {
    const ssize_t got = recv(socket.Get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    const DatagramEnd end = parse({buffer.data(), static_cast<size_t>(got)});
    if (end.error != 0) return end.error;
    isInterrupted = isInterrupted || end.isInterrupted;
    if (end.isDone) return isInterrupted ? EINTR : 0;
  }
}

}  // namespace rynlinuxd
