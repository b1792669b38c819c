#include "sources/kernelDatagrams.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>

namespace rynlinuxd {

bool ReceiveFromKernel(int fd, std::span<std::byte> buffer,
                       const std::function<void(std::span<const std::byte>)> &take) {
  // Others are served in between, and a flood still gets its buffer emptied.
  constexpr int kMostReads = 256;
  bool isWhole = true;
  for (int i = 0; i < kMostReads; ++i) {
    sockaddr_nl sender{};
    socklen_t size = sizeof sender;
    const ssize_t got =
        recvfrom(fd, buffer.data(), buffer.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&sender), &size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == ENOBUFS) {
      isWhole = false;
      continue;
    }
    if (got < 0) break;
    if (sender.nl_pid == 0) take({buffer.data(), static_cast<size_t>(got)});
  }
  return isWhole;
}

}  // namespace rynlinuxd
