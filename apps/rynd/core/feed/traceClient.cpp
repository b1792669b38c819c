// Listening to the clients of the trace feed: a set that one thread waits for.
#include "core/feed/traceClient.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>

namespace rynd {

bool TraceFeed::Client::Hear(const std::function<void(std::string_view)> &obey) {
  char bytes[256];
  const ssize_t count = recv(socket.Get(), bytes, sizeof bytes, MSG_DONTWAIT);
  if (count == 0) return false;
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  for (const char c : std::string_view(bytes, static_cast<size_t>(count))) {
    if (c != '\n') {
      if (heardSize < heard.size()) heard[heardSize++] = c;
      continue;
    }
    std::string_view line(heard.data(), std::exchange(heardSize, 0));
    if (line.ends_with('\r')) line.remove_suffix(1);
    obey(line);
  }
  return true;
}

int MakeWatch() {
  return epoll_create1(EPOLL_CLOEXEC);
}

int Watch(int set, int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  return epoll_ctl(set, EPOLL_CTL_ADD, fd, &event) == 0 ? 0 : errno;
}

bool Unwatch(int set, int fd) {
  pollfd end{fd, 0, 0};
  if (poll(&end, 1, 0) > 0) {
    epoll_ctl(set, EPOLL_CTL_DEL, fd, nullptr);
    return true;
  }
  // It only sends no more: its end is still told.
  epoll_event event{};
  event.data.fd = fd;
  epoll_ctl(set, EPOLL_CTL_MOD, fd, &event);
  return false;
}

int WaitForClient(int set, uint32_t *events) {
  epoll_event event{};
  if (epoll_wait(set, &event, 1, -1) != 1) return -1;
  *events = event.events;
  return event.data.fd;
}

bool HasEnded(uint32_t events) {
  return (events & (EPOLLHUP | EPOLLERR)) != 0;
}

}  // namespace rynd
