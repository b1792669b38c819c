#include "sources/ueventSocket.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace rynlinuxd {
namespace {

constexpr uint32_t kKernelGroup = 1;
/// A storm of devices, as when an adapter with a thousand disks is found.
constexpr int kReceiveBuffer = 1 << 21;

}  // namespace

int UeventSocket::Open() {
  base::UniqueFd made(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
  if (!made) return errno;
  // Best effort: with a smaller one all devices are looked at anew more often.
  setsockopt(made.Get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = kKernelGroup;
  if (bind(made.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return errno;
  socket_ = std::move(made);
  return 0;
}

bool UeventSocket::Receive(const std::function<void(const Uevent &)> &take) {
  constexpr int kMostReads = 256;
  // The kernel makes none above 2048 bytes and its head.
  std::array<std::byte, 8192> buffer;
  bool isWhole = true;
  for (int i = 0; i < kMostReads; ++i) {
    sockaddr_nl sender{};
    socklen_t size = sizeof sender;
    const ssize_t got =
        recvfrom(socket_.Get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr *>(&sender), &size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == ENOBUFS) {
      isWhole = false;
      continue;
    }
    if (got < 0) break;
    // Programs with rights may send to the kernel's group too.
    if (sender.nl_pid != 0) continue;
    if (const auto event = ParseUevent({buffer.data(), static_cast<size_t>(got)})) take(*event);
  }
  return isWhole;
}

}  // namespace rynlinuxd
