// Reaching the daemon's sockets from outside: connecting and sending, both bounded, with errors for people.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <span>
#include <string>

#include "base/uniqueFd.h"
#include "rynctl/stopSignals.h"

namespace rynctl {

/// How long to wait for a daemon that takes nothing, and whom to tell. One line is written to `err` after
/// `noticeAfter` of waiting, once in a run; `limit` (none: for ever) ends one wait.
struct Patience {
  std::ostream &err;
  std::optional<std::chrono::milliseconds> limit;
  std::chrono::milliseconds noticeAfter{5000};
  /// How long a daemon that does not serve its socket yet may take to start, counted from here on.
  std::chrono::milliseconds start{0};
  const StopSignals *signals = nullptr;  ///< end every wait, when given
  bool noticed = false;
  std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
};

/// Connect a new socket of `type` (SOCK_DGRAM and so on) to the daemon's socket at `path`; waits while its backlog is
/// full. "" and the socket (non-blocking, close-on-exec), or what went wrong and what to do.
std::string ConnectToDaemon(const std::string &path, int type, Patience *patience, base::UniqueFd *fd);

/// Send one record on a socket that ConnectToDaemon made; waits while the daemon's queue is full. "", or what went
/// wrong. `lost`, when it is given, says that the daemon behind the socket is gone, so that a new connection may help.
std::string SendToDaemon(int fd, const std::string &path, std::span<const std::byte> record, Patience *patience,
                         bool *lost);

/// Call `submit`, which bounds its wait itself and returns an errno value, and tell of the wait meanwhile: once, as a
/// record that is submitted again may be heard twice. "", or what went wrong at `path`.
std::string SubmitWithPatience(const std::string &path, Patience *patience, const std::function<int()> &submit);

}  // namespace rynctl
