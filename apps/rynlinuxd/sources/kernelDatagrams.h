// What has come from the kernel over a netlink socket. One thread.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace rynlinuxd {

/// Hand on what waits at the netlink socket `fd`, some hundred datagrams at most, of the kernel's alone: programs may
/// send to such a socket too. A datagram that does not fit into `buffer` is cut. False when the kernel had to drop
/// some.
bool ReceiveFromKernel(int fd, std::span<std::byte> buffer,
                       const std::function<void(std::span<const std::byte>)> &take);

}  // namespace rynlinuxd
