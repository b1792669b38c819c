// A datagram socket that log records are sent over. Any thread.
#pragma once

#include <sys/socket.h>

#include <atomic>

#include "base/unixAddress.h"
#include "hosted/log/stall.h"

namespace hosted {

/// How sending one record ended.
enum class SendResult { kSent, kNoListener, kFull, kTooLong };

/// The process's one connection to a listener. Made once and never destroyed, as threads may log while it exits.
class LogSocket {
 public:
  /// `path` without the root.
  explicit LogSocket(const char *path);
  /// Send a record, connecting again when the listener has gone. Waits for room for at most 100 ms, and not at all for
  /// a second after a wait in vain.
  SendResult Send(const msghdr &record);
  /// Send the first of `count` records that pass at once, by one call. How many did.
  size_t SendTogether(mmsghdr *records, size_t count);

 private:
  int Fd();
  bool Connect(int fd) const;

  base::UnixAddress address_;
  int addressError_;  ///< not 0 when the root is too long for a socket
  std::atomic<int> fd_{-1};
  Stall stall_;
};

}  // namespace hosted
