#include "core/traceFeed.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "core/traceLines.h"

namespace rynd {
namespace {

constexpr size_t kClientStackBytes = 128 * 1024;
constexpr size_t kMaxBatchBytes = 64 * 1024;  ///< what a client's thread holds beside the queue, or one longer line

/// Send all of `text`. False when the client has gone.
bool SendAll(int fd, const std::string &text) {
  for (size_t sent = 0; sent < text.size();) {
    const ssize_t count = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count < 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

bool HasHungUp(int fd) {
  pollfd set{fd, 0, 0};
  return poll(&set, 1, 0) > 0;
}

}  // namespace

/// What a client's thread is to send next.
struct TraceFeed::Batch {
  uint64_t lost = 0;
  std::vector<std::shared_ptr<const std::string>> lines;
};

/// What a client's new thread is told: its socket, and the first line that is for it.
struct TraceFeed::Client {
  TraceFeed *feed;
  int fd;
  uint64_t next;
};

void TraceFeed::Publish(std::string line) {
  auto shared = std::make_shared<const std::string>(std::move(line));
  MutexLock lock(mutex_);
  if (clients_.empty()) return;
  queuedBytes_ += shared->size();
  lines_.push_back(std::move(shared));
  while (queuedBytes_ > kMaxQueuedBytes && lines_.size() > 1) {
    queuedBytes_ -= lines_.front()->size();
    lines_.pop_front();
    ++firstLine_;
  }
  changed_.NotifyAll();
}

int TraceFeed::AddClient(base::UniqueFd client) {
  auto argument = std::make_unique<Client>(Client{this, client.Get(), 0});
  {
    MutexLock lock(mutex_);
    WakeVanished();
    if (clients_.size() >= kMaxClients) return EAGAIN;
    clients_.insert(client.Get());
    clientCount_ = clients_.size();
    argument->next = firstLine_ + lines_.size();
  }
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, kClientStackBytes);
  pthread_t thread;
  const int status = pthread_create(&thread, &attributes, ServeThread, argument.get());
  pthread_attr_destroy(&attributes);
  if (status != 0) {
    Forget(client.Get());
    return status;
  }
  argument.release();
  client.Release();
  return 0;
}

void *TraceFeed::ServeThread(void *argument) {
  const std::unique_ptr<Client> client(static_cast<Client *>(argument));
  client->feed->Serve(client->fd, client->next);
  return nullptr;
}

void TraceFeed::Serve(int fd, uint64_t next) {
  base::UniqueFd socket(fd);
  for (bool alive = true; alive;) {
    const Batch batch = Take(fd, &next);
    if (batch.lines.empty()) break;
    if (batch.lost > 0) alive = SendAll(fd, TraceLostLine(batch.lost));
    for (size_t i = 0; alive && i < batch.lines.size(); ++i) alive = SendAll(fd, *batch.lines[i]);
  }
  Forget(fd);
}

/// Wait for lines from `*next` on and take some of them. Empty when the client has vanished.
TraceFeed::Batch TraceFeed::Take(int fd, uint64_t *next) {
  Batch batch;
  MutexLock lock(mutex_);
  while (*next >= firstLine_ + lines_.size() && !vanished_.contains(fd)) changed_.Wait(mutex_);
  if (vanished_.contains(fd)) return batch;
  if (*next < firstLine_) {
    batch.lost = firstLine_ - *next;
    *next = firstLine_;
  }
  size_t bytes = 0;
  for (size_t i = *next - firstLine_; i < lines_.size() && bytes < kMaxBatchBytes; ++i) {
    batch.lines.push_back(lines_[i]);
    bytes += lines_[i]->size();
  }
  *next += batch.lines.size();
  return batch;
}

void TraceFeed::Forget(int fd) {
  MutexLock lock(mutex_);
  clients_.erase(fd);
  vanished_.erase(fd);
  clientCount_ = clients_.size();
  if (!clients_.empty()) return;
  firstLine_ += lines_.size();
  lines_.clear();
  queuedBytes_ = 0;
}

/// End the threads whose clients went while there was nothing to send them.
void TraceFeed::WakeVanished() {
  for (const int fd : clients_) {
    if (HasHungUp(fd)) vanished_.insert(fd);
  }
  if (!vanished_.empty()) changed_.NotifyAll();
}

TraceFeed &Feed() {
  static TraceFeed *const feed = new TraceFeed;
  return *feed;
}

}  // namespace rynd
