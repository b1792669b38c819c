// For tests: outputs that take nothing any more once they are full.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "base/uniqueFd.h"

namespace testing_support {

/// The end to write to, and the one that nobody reads.
struct Unread {
  enum class Kind { kPipe, kSocket, kTerminal };
  explicit Unread(Kind kind) {
    int ends[2] = {-1, -1};
    if (kind == Kind::kPipe) {
      EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    } else if (kind == Kind::kSocket) {
      EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    } else {
      ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
      EXPECT_EQ(grantpt(ends[0]) + unlockpt(ends[0]), 0);
      ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    read.Reset(ends[0]);
    write.Reset(ends[1]);
  }
  /// Write until it takes no more.
  void Fill() const {
    fcntl(write.Get(), F_SETFL, O_NONBLOCK);
    const std::string text(4096, '.');
    while (::write(write.Get(), text.data(), text.size()) > 0) continue;
    fcntl(write.Get(), F_SETFL, 0);
  }
  base::UniqueFd write, read;
};

}  // namespace testing_support
