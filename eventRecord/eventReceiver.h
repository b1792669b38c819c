// The management agent's end of the event socket: many connections, each carrying one record up to its end.
#pragma once

#include <poll.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <list>
#include <span>
#include <string>
#include <vector>

#include "base/uniqueFd.h"

namespace eventrecord {

/// Accepts connections and hands out each one's record when it ends. No connection waits for another: one that goes
/// silent or sends too much is cut off, and what it sent is handed out. One thread.
class EventReceiver {
 public:
  static constexpr size_t kMaxRecord = 1024 * 1024;  ///< bytes of one connection that are kept
  /// Above its limit of connections the one that has been silent for longest gives way, once it has been so for this
  /// long; until then the next ones wait in the listening socket's backlog, where none is lost.
  static constexpr std::chrono::milliseconds kGrace{100};

  /// Receives one record; `cut` is "" or why it was cut off before its end. False ends the receiving.
  using OnRecord = std::function<bool(std::span<const std::byte> record, const std::string &cut)>;

  /// `listenFd` is borrowed and does not block. A connection is cut off after `silence` without a byte.
  EventReceiver(int listenFd, std::chrono::milliseconds silence, OnRecord onRecord, size_t maxConnections = 256)
      : listenFd_(listenFd), silence_(silence), onRecord_(std::move(onRecord)), maxConnections_(maxConnections) {}

  /// Wait once, with `mask` as the signal mask while waiting, and serve what is ready; `wakeFd` (-1: none) ends the
  /// wait too. Records whose connections end in one round are handed out in the order of acceptance. 0; EINTR after a
  /// signal; ECANCELED when OnRecord wants no more; or another errno value when waiting fails.
  int Serve(const sigset_t *mask, int wakeFd = -1);

  /// Refuse whoever connects from now on, and take in and hand out what all others send, those in the backlog too, to
  /// their ends; for `limit` at most. Who is silent by then, or was before, is cut off.
  void Drain(std::chrono::milliseconds limit);

 private:
  using Clock = std::chrono::steady_clock;
  struct Connection {
    base::UniqueFd fd;
    Clock::time_point heard;
    std::vector<std::byte> bytes{};
    bool ended = false;
    std::string cut{};
  };

  void Accept();
  bool HasRoom(Clock::time_point now) const;
  void MakeRoom();
  void Receive(Connection *connection) const;
  bool HandOutEnded();
  timespec Timeout(bool room) const;

  const int listenFd_;
  const std::chrono::milliseconds silence_;
  const OnRecord onRecord_;
  const size_t maxConnections_;
  Clock::time_point pausedUntil_{};    ///< the process had no descriptor left: accept nobody until then
  bool stopped_ = false;               ///< OnRecord wants no more
  std::list<Connection> connections_;  ///< in the order of acceptance
};

}  // namespace eventrecord
