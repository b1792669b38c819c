// The kernel's messages about links and addresses (rtnetlink), and readings of all of them. Needs no right. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "base/uniqueFd.h"
#include "models/netlinkBytes.h"

namespace rynlinuxd {

class RouteSocket {
 public:
  /// Reads one datagram's messages.
  using Parse = std::function<DatagramEnd(std::span<const std::byte>)>;

  /// Hear messages of `groups` (RTMGRP_...), with a buffer of so many bytes. 0 or an errno value.
  int Open(uint32_t groups, int bufferSize);
  int Descriptor() const { return socket_.Get(); }
  /// Hand on what has come, some hundred datagrams at most, of the kernel's alone. False when some were lost: what is
  /// handed on is older than a reading of all that begins afterwards.
  bool Receive(const std::function<void(std::span<const std::byte>)> &take);
  /// Send `request` and have every datagram of the answer parsed. On a socket of its own: the other one may be full. 0;
  /// EINTR when the answer is not of one moment; or another errno value.
  int ReadAll(std::span<const std::byte> request, const Parse &parse);

 private:
  base::UniqueFd socket_;
};

}  // namespace rynlinuxd
