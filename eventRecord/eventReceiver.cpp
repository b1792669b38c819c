// One poll loop over the listening socket and all of its connections.
#include "eventRecord/eventReceiver.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace eventrecord {

int EventReceiver::Serve(const sigset_t *mask, int wakeFd) {
  std::vector<pollfd> fds;
  const bool room = HasRoom(Clock::now());
  fds.push_back({room ? listenFd_ : -1, POLLIN, 0});
  for (const Connection &connection : connections_) fds.push_back({connection.fd.Get(), POLLIN, 0});
  fds.push_back({wakeFd, POLLIN, 0});
  const timespec timeout = Timeout(room);
  const bool endless = connections_.empty() && room;
  if (ppoll(fds.data(), fds.size(), endless ? nullptr : &timeout, mask) < 0) return errno;

  size_t slot = 0;
  const Clock::time_point now = Clock::now();
  for (Connection &connection : connections_) {
    if (fds[++slot].revents != 0) Receive(&connection);
    if (!connection.ended && now - connection.heard >= silence_) {
      connection.ended = true;
      connection.cut = "connection hangs";
    }
  }
  if (fds[0].revents != 0) Accept();
  return HandOutEnded() ? 0 : ECANCELED;
}

void EventReceiver::Drain(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kPatience(300);
  // Who has not connected yet is refused and keeps its record; who has is still accepted.
  shutdown(listenFd_, SHUT_RD);
  const Clock::time_point end = Clock::now() + limit;
  while (true) {
    Accept();
    std::vector<pollfd> fds;
    bool lively = false;
    for (Connection &connection : connections_) {
      Receive(&connection);
      lively = lively || (!connection.ended && Clock::now() - connection.heard < kPatience);
      fds.push_back({connection.fd.Get(), POLLIN, 0});
    }
    const bool last = !lively || Clock::now() >= end;
    for (Connection &connection : connections_) {
      if (last && !connection.ended) connection.cut = "receiving was stopped";
      connection.ended = connection.ended || last;
    }
    if (!HandOutEnded() || last) return;
    poll(fds.data(), fds.size(), 10);
  }
}

/// Take every caller that waits, and what it has sent already: most senders are done by then.
void EventReceiver::Accept() {
  while (!stopped_ && HasRoom(Clock::now())) {
    if (connections_.size() >= maxConnections_) {
      pollfd caller{listenFd_, POLLIN, 0};
      if (poll(&caller, 1, 0) != 1) return;
      MakeRoom();
    }
    base::UniqueFd fd(accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd) {
      if (errno == ECONNABORTED || errno == EINTR) continue;
      // Out of descriptors: the caller waits in the backlog.
      if (errno == EMFILE || errno == ENFILE) pausedUntil_ = Clock::now() + kGrace;
      return;
    }
    connections_.push_back({std::move(fd), Clock::now()});
    Receive(&connections_.back());
  }
}

bool EventReceiver::HasRoom(Clock::time_point now) const {
  if (now < pausedUntil_) return false;
  if (connections_.size() < maxConnections_) return true;
  return std::ranges::any_of(connections_, [now](const Connection &connection) {
    return connection.ended || now - connection.heard >= kGrace;
  });
}

/// Hand out those that have ended; if there is none, the one that has been silent for longest ends.
void EventReceiver::MakeRoom() {
  if (std::ranges::none_of(connections_, &Connection::ended)) {
    const auto silent = std::ranges::min_element(connections_, {}, &Connection::heard);
    silent->ended = true;
    silent->cut = "connection hangs, and others wait";
  }
  HandOutEnded();
}

/// Read what there is on a connection and note its end.
void EventReceiver::Receive(Connection *connection) const {
  std::byte chunk[16 * 1024];
  while (!connection->ended) {
    const ssize_t count = recv(connection->fd.Get(), chunk, sizeof chunk, 0);
    if (count < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) return;
      connection->ended = true;
      connection->cut = std::string("connection failed: ") + std::strerror(errno);
      return;
    }
    connection->ended = count == 0;
    connection->heard = Clock::now();
    const size_t kept = std::min(static_cast<size_t>(count), kMaxRecord - connection->bytes.size());
    connection->bytes.insert(connection->bytes.end(), chunk, chunk + kept);
    if (kept < static_cast<size_t>(count)) {
      connection->ended = true;
      connection->cut = "longer than 1 MiB";
    }
  }
}

bool EventReceiver::HandOutEnded() {
  // Who sends one after the other has sent the former ones by now: they must not be overtaken.
  auto last = connections_.end();
  for (auto connection = connections_.begin(); connection != connections_.end(); ++connection) {
    if (connection->ended) last = connection;
  }
  if (last == connections_.end()) return !stopped_;
  for (auto connection = connections_.begin(); connection != last; ++connection) Receive(&*connection);
  for (auto connection = connections_.begin(); connection != connections_.end();) {
    if (!connection->ended) {
      ++connection;
      continue;
    }
    const Connection done = std::move(*connection);
    connection = connections_.erase(connection);
    // A connection without a byte is someone who looked whether the socket is alive.
    stopped_ = stopped_ || (!done.bytes.empty() && !onRecord_(done.bytes, done.cut));
    if (stopped_) return false;
  }
  return !stopped_;
}

/// Until the first connection has been silent for too long, or makes room for others.
timespec EventReceiver::Timeout(bool room) const {
  const Clock::time_point now = Clock::now();
  const Clock::duration patience = room ? silence_ : std::min<Clock::duration>(silence_, kGrace);
  Clock::duration left = patience;
  for (const Connection &connection : connections_) left = std::min(left, connection.heard + patience - now);
  if (now < pausedUntil_) left = std::min<Clock::duration>(left, pausedUntil_ - now);
  const auto nanoseconds = std::max<int64_t>(0, std::chrono::nanoseconds(left).count());
  return {static_cast<time_t>(nanoseconds / 1'000'000'000), static_cast<long>(nanoseconds % 1'000'000'000)};
}

}  // namespace eventrecord
