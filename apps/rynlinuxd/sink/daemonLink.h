// The connection to the daemon's kernel context, which never blocks, and the watch on the daemon's coming and going.
// One thread.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "base/uniqueFd.h"

namespace rynlinuxd {

class DaemonLink {
 public:
  /// Connect to the daemon that serves the context now, if it is another one than before. 0, or an errno value.
  int Connect();
  bool IsConnected() const { return static_cast<bool>(socket_); }
  /// Which daemon it is connected to: another text for each one that was started.
  const std::string &Daemon() const { return daemon_; }
  /// Send one record. 0; EAGAIN while the context's queue is full; else the connection is gone.
  int Send(std::span<const std::byte> record);
  /// Bytes that were sent and that the daemon has not read; 0 without a connection.
  int Unread() const;
  int Socket() const { return socket_.Get(); }

  /// Becomes readable when the context's socket file changes; -1 while its folder cannot be watched.
  int Notifier() const { return notifier_.Get(); }
  /// Watch the folder, if it is there.
  void WatchFolder();
  /// Take in what the notifier has told: true when the daemon of this connection has gone, which ends it.
  bool TakeNotice();

 private:
  base::UniqueFd socket_, notifier_;
  std::string daemon_;
};

}  // namespace rynlinuxd
