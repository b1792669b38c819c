// What the tests of contexts share: records, good and bad, and a context that is read by hand.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstddef>
#include <string>
#include <vector>

#include "hosted/testSupport.h"
#include "platform/ryn.h"

namespace hosted {

using Bytes = std::vector<std::byte>;

/// One record of exactly `size` bytes.
inline Bytes RecordOfSize(size_t size, const std::string &id = "ryn.big") {
  return RecordOf(id, {}, std::string(size - RecordOf(id, {}, "").size(), 'x'));
}

inline Bytes BadRecord() {
  Bytes record = RecordOf("ryn.bad");
  record[20] = std::byte{1};
  return record;
}

/// A context opened with a listener at the system log, and what reads from it.
class ContextTest : public testing::Test {
 protected:
  ~ContextTest() override {
    if (handle_ != nullptr) RynLib_Close(handle_);
  }

  /// Read with a buffer of `size`. The status; the record is in `record_`.
  int Read(int fd, size_t size = 8192) {
    record_.assign(size, std::byte{0xee});
    size_t length = size + 1;
    const int status = RynLib_ReadFromFd(fd, record_.data(), size, &length);
    record_.resize(length);
    return status;
  }
  /// What one read takes.
  Bytes Take(int fd, size_t size = 8192) {
    EXPECT_EQ(Read(fd, size), 0);
    return record_;
  }
  static short PollEvents(int fd, int milliseconds = 0) {
    pollfd polled{fd, POLLIN, 0};
    poll(&polled, 1, milliseconds);
    return polled.revents;
  }

  LogListener log_;
  RynLibHandle handle_ = nullptr;
  int fd_ = -1;
  Bytes record_;
};

/// Kernel context 7, and a sender to it.
class KernelContextTest : public ContextTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(RynLib_AsyncContextOpen(7, &handle_), 0);
    ASSERT_EQ(RynLib_HandleToFd(handle_, &fd_), 0);
    ASSERT_EQ(ConnectUnixSocket(KernelSocketPath(7), SOCK_DGRAM, &sender_), 0);
    constexpr int kRoom = 400'000;
    setsockopt(sender_.Get(), SOL_SOCKET, SO_SNDBUF, &kRoom, sizeof kRoom);
  }
  base::UniqueFd sender_;
};

}  // namespace hosted
