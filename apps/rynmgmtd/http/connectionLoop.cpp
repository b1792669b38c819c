// Connections, each a small machine of its own. Run: one thread; what reaches it from others comes through the mail.
#include "mgmtd/http/connectionLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace mgmtd {
namespace {

constexpr uint64_t kListener = 0;
constexpr uint64_t kWake = 1;
constexpr auto kTick = std::chrono::milliseconds(250);
constexpr auto kDrain = std::chrono::milliseconds(1000);
constexpr size_t kMostDrained = 64 * 1024;
constexpr std::string_view kHeadEnd = "\r\n\r\n";

}  // namespace

ConnectionLoop::ConnectionLoop(base::UniqueFd listener, Calls calls, LoopLimits limits)
    : calls_(std::move(calls)),
      limits_(limits),
      listener_(std::move(listener)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      lastId_(kWake) {
  Watch(listener_.Get(), kListener, EPOLLIN, true);
  Watch(wake_.Get(), kWake, EPOLLIN, true);
}

void ConnectionLoop::Watch(int fd, uint64_t id, uint32_t events, bool add) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  epoll_ctl(epoll_.Get(), add ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, &event);
}

void ConnectionLoop::Run() {
  for (;;) {
    {
      const std::lock_guard lock(mailMutex_);
      if (stopped_) break;
    }
    std::array<epoll_event, 64> events{};
    const int timeout = connections_.empty() ? -1 : static_cast<int>(kTick.count());
    const int count = epoll_wait(epoll_.Get(), events.data(), static_cast<int>(events.size()), timeout);
    bool callers = false;
    for (int i = 0; i < count; ++i) {
      const epoll_event event = events[static_cast<size_t>(i)];
      const uint64_t id = event.data.u64;  // the kernel's structure is packed: no reference to its parts
      if (id == kListener) {
        callers = true;
      } else if (id == kWake) {
        TakeMail();
      } else if (const Entry entry = connections_.find(id); entry != connections_.end()) {
        Serve(entry, event.events);
      }
    }
    // Behind the others: an accepted connection may be the end of a stalled one.
    if (callers) AcceptAll();
    if (Clock::now() - ticked_ >= kTick) Tick();
  }
  connections_.clear();
  open_ = streaming_ = 0;
}

void ConnectionLoop::Stop() {
  {
    const std::lock_guard lock(mailMutex_);
    stopped_ = true;
  }
  eventfd_write(wake_.Get(), 1);
}

void ConnectionLoop::Finish(uint64_t connection, Answer answer) {
  {
    const std::lock_guard lock(mailMutex_);
    answers_.emplace_back(connection, std::move(answer));
  }
  eventfd_write(wake_.Get(), 1);
}

void ConnectionLoop::Publish(StreamPart part) {
  {
    const std::lock_guard lock(mailMutex_);
    parts_.push_back(std::move(part));
  }
  eventfd_write(wake_.Get(), 1);
}

void ConnectionLoop::Wake(const Marks &newest) {
  {
    const std::lock_guard lock(mailMutex_);
    news_ = newest;
  }
  eventfd_write(wake_.Get(), 1);
}

void ConnectionLoop::TakeMail() {
  eventfd_t count = 0;
  eventfd_read(wake_.Get(), &count);
  std::vector<std::pair<uint64_t, Answer>> answers;
  std::vector<StreamPart> parts;
  {
    const std::lock_guard lock(mailMutex_);
    answers.swap(answers_);
    parts.swap(parts_);
    if (news_) {
      newest_ = *std::exchange(news_, std::nullopt);
      for (const Marks &from : atEnd_) asked_.erase(from);
      atEnd_.clear();
    }
  }
  for (auto &[id, answer] : answers) {
    if (const Entry entry = connections_.find(id); entry != connections_.end()) GiveAnswer(entry, std::move(answer));
  }
  for (const StreamPart &part : parts) GivePart(part);
  AskForMore();
}

void ConnectionLoop::AcceptAll() {
  for (int i = 0; i < 64; ++i) {
    base::UniqueFd fd(acceptor_.Accept(listener_.Get()));
    if (!fd) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EMFILE || errno == ENFILE) CloseStalled();
      return;
    }
    constexpr int kOff = 0;
    setsockopt(fd.Get(), SOL_SOCKET, SO_KEEPALIVE, &kOff, sizeof kOff);
    if (connections_.size() >= limits_.connections) CloseStalled();
    if (connections_.size() >= limits_.connections) continue;
    const uint64_t id = ++lastId_;
    Connection connection;
    connection.fd = std::move(fd);
    connection.since = connection.moved = Clock::now();
    Watch(connection.fd.Get(), id, EPOLLIN, true);
    const Entry entry = connections_.emplace(id, std::move(connection)).first;
    open_ = connections_.size();
    Read(entry);  // most requests are there already
  }
}

void ConnectionLoop::Serve(Entry entry, uint32_t events) {
  if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
    Close(entry);
  } else if ((events & EPOLLOUT) != 0) {
    Write(entry);
  } else if ((events & EPOLLIN) != 0) {
    Read(entry);
  }
}

void ConnectionLoop::Read(Entry entry) {
  Connection &connection = entry->second;
  std::array<char, 16 * 1024> part;
  const ssize_t count = recv(connection.fd.Get(), part.data(), part.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  // A stream's client has nothing more to say; one that ends its side before its request is whole is gone.
  if (count <= 0 || connection.state == ConnectionState::kStreaming) return Close(entry);
  if (connection.state == ConnectionState::kDraining) {
    connection.drained += static_cast<size_t>(count);
    if (connection.drained > kMostDrained) Close(entry);
    return;
  }
  if (connection.state != ConnectionState::kReading) return;
  const size_t from = connection.in.size() < kHeadEnd.size() ? 0 : connection.in.size() - kHeadEnd.size();
  connection.in.append(part.data(), static_cast<size_t>(count));
  // No method begins otherwise: what speaks another protocol is not waited for.
  if (connection.in.front() < 'A' || connection.in.front() > 'Z') return Close(entry);
  const size_t end = connection.in.find(kHeadEnd, from);
  if (end == std::string::npos || end + kHeadEnd.size() > limits_.headBytes) {
    if (connection.in.size() > limits_.headBytes) Refuse(entry, "431 Request Header Fields Too Large");
    return;
  }
  connection.in.resize(end + kHeadEnd.size());
  connection.state = ConnectionState::kAnswering;
  connection.since = Clock::now();
  Watch(connection.fd.Get(), entry->first, 0, false);
  if (!calls_.request(entry->first, std::exchange(connection.in, {}))) Refuse(entry, "503 Service Unavailable");
}

void ConnectionLoop::Refuse(Entry entry, const char *status) {
  GiveAnswer(entry, {"HTTP/1.1 " + std::string(status) +
                         "\r\nRetry-After: 1\r\nConnection: close\r\nContent-Length: 0\r\n"
                         "X-Content-Type-Options: nosniff\r\n\r\n",
                     std::nullopt});
}

void ConnectionLoop::GiveAnswer(Entry entry, Answer answer) {
  Connection &connection = entry->second;
  if (answer.stream && streaming_ >= limits_.streams) return Refuse(entry, "503 Service Unavailable");
  connection.out = std::move(answer.bytes);
  connection.since = connection.moved = Clock::now();
  buffered_ += connection.out.size();
  if (answer.stream) {
    connection.state = ConnectionState::kStreaming;
    connection.at = *answer.stream;
    ++streaming_;
  } else {
    connection.state = ConnectionState::kWriting;
  }
  const uint64_t id = entry->first;
  Write(entry);
  if (buffered_ > limits_.bufferedBytes) CloseStalled();
  if (answer.stream && connections_.contains(id)) AskForMore();
}

void ConnectionLoop::Write(Entry entry) {
  Connection &connection = entry->second;
  const int fd = connection.fd.Get();
  while (connection.Left() > 0) {
    const ssize_t count =
        send(fd, connection.out.data() + connection.sent, connection.Left(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) break;
    if (count <= 0) return Close(entry);
    connection.sent += static_cast<size_t>(count);
    connection.moved = Clock::now();
    buffered_ -= static_cast<size_t>(count);
  }
  if (connection.Left() > 0) {
    return Watch(fd, entry->first, connection.state == ConnectionState::kStreaming ? EPOLLOUT | EPOLLIN : EPOLLOUT,
                 false);
  }
  connection.out = {};
  connection.sent = 0;
  Watch(fd, entry->first, EPOLLIN, false);
  if (connection.state == ConnectionState::kStreaming) return AskForMore();
  shutdown(fd, SHUT_WR);
  connection.state = ConnectionState::kDraining;
  connection.since = Clock::now();
}

/// Ask for what those have not been told yet who took all that was sent to them: once for all who stand at one place.
void ConnectionLoop::AskForMore() {
  if (streaming_ == 0) return;
  for (const auto &[id, connection] : connections_) {
    if (connection.state != ConnectionState::kStreaming || connection.Left() > 0) continue;
    if (SameMarks(connection.at, newest_) || asked_.contains(connection.at)) continue;
    if (calls_.more(connection.at)) asked_.insert(connection.at);
  }
}

void ConnectionLoop::GivePart(const StreamPart &part) {
  for (Entry entry = connections_.begin(); entry != connections_.end();) {
    const Entry current = entry++;  // a write may be its connection's end
    Connection &connection = current->second;
    if (connection.state != ConnectionState::kStreaming || connection.Left() > 0) continue;
    if (!SameMarks(connection.at, part.from)) continue;
    connection.at = part.to;
    connection.out = part.text;
    connection.moved = Clock::now();
    buffered_ += part.text.size();
    Write(current);
  }
  // Not before: each write asks on for whoever is done. Where nothing was found, nothing is asked for until there is
  // something new.
  if (SameMarks(part.from, part.to)) {
    atEnd_.insert(part.from);
  } else {
    asked_.erase(part.from);
  }
}

void ConnectionLoop::Tick() {
  const Clock::time_point now = ticked_ = Clock::now();
  for (Entry entry = connections_.begin(); entry != connections_.end();) {
    const Entry current = entry++;
    Connection &connection = current->second;
    const ConnectionState state = connection.state;
    const bool stalled = connection.Left() > 0 && now - connection.moved > limits_.stall;
    if (stalled || (state == ConnectionState::kReading && now - connection.since > limits_.head) ||
        (state == ConnectionState::kDraining && now - connection.since > kDrain)) {
      Close(current);
    } else if (state == ConnectionState::kStreaming && connection.Left() == 0 &&
               now - connection.moved > limits_.heartbeat) {
      connection.out = ":\n\n";
      buffered_ += connection.out.size();
      Write(current);
    }
  }
  AskForMore();
}

void ConnectionLoop::Close(Entry entry) {
  buffered_ -= entry->second.Left();
  if (entry->second.state == ConnectionState::kStreaming) --streaming_;
  connections_.erase(entry);
  open_ = connections_.size();
}

/// Close whoever has neither sent nor taken anything for longest, apart from those who wait for an answer or an event.
void ConnectionLoop::CloseStalled() {
  Entry oldest = connections_.end();
  for (Entry entry = connections_.begin(); entry != connections_.end(); ++entry) {
    const Connection &connection = entry->second;
    if (connection.state == ConnectionState::kAnswering) continue;
    if (connection.state == ConnectionState::kStreaming && connection.Left() == 0) continue;
    if (oldest == connections_.end() || connection.moved < oldest->second.moved) oldest = entry;
  }
  if (oldest != connections_.end()) Close(oldest);
}

}  // namespace mgmtd
