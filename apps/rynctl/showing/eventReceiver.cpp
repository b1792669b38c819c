// One poll loop over the listening socket and all of its connections.
#include "rynctl/showing/eventReceiver.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rynctl {

int EventReceiver::Serve(const sigset_t *mask, int wakeFd) {
  std::vector<pollfd> fds;
  const bool room = connections_.size() < maxConnections_;
  fds.push_back({room ? listenFd_ : -1, POLLIN, 0});
  for (const Connection &connection : connections_) fds.push_back({connection.fd.Get(), POLLIN, 0});
  fds.push_back({wakeFd, POLLIN, 0});
  const timespec timeout = Timeout();
  if (ppoll(fds.data(), fds.size(), connections_.empty() ? nullptr : &timeout, mask) < 0) return errno;

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
  const Clock::time_point end = Clock::now() + limit;
  do {
    Accept();
    for (Connection &connection : connections_) {
      Receive(&connection);
      if (!connection.ended) connection.cut = "receiving was stopped";
      connection.ended = true;
    }
    if (connections_.empty() || !HandOutEnded()) return;
  } while (Clock::now() < end);
}

/// Take every caller that waits, and what it has sent already: most senders are done by then.
void EventReceiver::Accept() {
  while (connections_.size() < maxConnections_) {
    base::UniqueFd fd(accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd) {
      if (errno == ECONNABORTED || errno == EINTR) continue;
      // Out of descriptors: the caller waits in the backlog until one of these connections ends.
      if (errno == EMFILE || errno == ENFILE) maxConnections_ = std::max<size_t>(1, connections_.size());
      return;
    }
    connections_.push_back({std::move(fd), Clock::now()});
    Receive(&connections_.back());
  }
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
  for (auto connection = connections_.begin(); connection != connections_.end();) {
    if (!connection->ended) {
      ++connection;
      continue;
    }
    const Connection done = std::move(*connection);
    connection = connections_.erase(connection);
    // A connection without a byte is someone who looked whether the socket is alive.
    if (!done.bytes.empty() && !onRecord_(done.bytes, done.cut)) return false;
  }
  return true;
}

/// Until the first connection has been silent for too long.
timespec EventReceiver::Timeout() const {
  Clock::duration left = silence_;
  const Clock::time_point now = Clock::now();
  for (const Connection &connection : connections_) left = std::min(left, connection.heard + silence_ - now);
  const auto nanoseconds = std::max<int64_t>(0, std::chrono::nanoseconds(left).count());
  return {static_cast<time_t>(nanoseconds / 1'000'000'000), static_cast<long>(nanoseconds % 1'000'000'000)};
}

}  // namespace rynctl
