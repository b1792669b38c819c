#include "core/feed/traceFeed.h"

#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "base/immortal.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "core/feed/statisticsReport.h"
#include "core/feed/traceClient.h"
#include "core/feed/traceLines.h"

namespace rynd {
namespace {

constexpr size_t kClientStackBytes = 128 * 1024;
constexpr size_t kMaxBatchBytes = 64 * 1024;  ///< what a client's thread holds beside the queue, or one longer line

/// Send all of `text`. False when the client has gone.
bool SendAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (count < 0) return false;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

/// Start a detached thread with a small stack. 0 or an errno value.
int StartThread(void *(*run)(void *), void *argument) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, kClientStackBytes);
  pthread_t thread;
  const int status = pthread_create(&thread, &attributes, run, argument);
  pthread_attr_destroy(&attributes);
  return status;
}

}  // namespace

/// What a client's thread is to send next.
struct TraceFeed::Batch {
  bool isLast = false;      ///< the client has vanished, or gets the statistics and no more
  bool statistics = false;  ///< asked for
  const char *answer = "";  ///< in front of the lines
  uint64_t lost = 0;
  TraceFormat format = TraceFormat::kText;
  std::vector<std::shared_ptr<const Entry>> lines;
};

/// What a client's new thread is told.
struct TraceFeed::Start {
  TraceFeed *feed;
  std::unique_ptr<Client> client;
};

void TraceFeed::Publish(TraceLine line) {
  const auto entry = std::make_shared<Entry>();
  entry->line = std::move(line);
  MutexLock lock(mutex_);
  if (clients_.empty()) return;
  entry->before = published_;
  lines_.push_back(entry);
  queuedBytes_ += entry->Size();
  for (size_t i = 0; i < kTraceFormats; ++i) published_[i] += entry->line[i].empty() ? 0 : 1;
  while (queuedBytes_ > kMaxQueuedBytes && lines_.size() > 1) {
    queuedBytes_ -= lines_.front()->Size();
    lines_.pop_front();
    ++firstLine_;
  }
  WakeNext();
}

/// Wake the client that has slept for longest, if there is something for it; it wakes the next one in turn.
void TraceFeed::WakeNext() {
  if (sleepers_.empty() || sleepers_.front()->next >= firstLine_ + lines_.size()) return;
  Client *const client = sleepers_.front();
  sleepers_.pop_front();
  client->isAsleep = false;
  client->changed.NotifyOne();
}

int TraceFeed::AddClient(base::UniqueFd socket) try {
  auto start = std::make_unique<Start>(Start{this, std::make_unique<Client>(std::move(socket))});
  Client *const client = start->client.get();
  if (const int status = Register(client); status != 0) return status;
  const int status = StartThread(ServeThread, start.get());
  if (status != 0) {
    Forget(client);
    return status;
  }
  start.release();
  return 0;
} catch (const std::bad_alloc &) {
  return ENOMEM;
}

int TraceFeed::Register(Client *client) {
  MutexLock lock(mutex_);
  if (clients_.size() >= kMaxClients) return EUSERS;
  if (const int status = StartListening(); status != 0) return status;
  clients_.emplace(client->socket.Get(), client);
  Stats().trace.clients = clients_.size();
  client->next = firstLine_ + lines_.size();
  client->seen = published_[static_cast<size_t>(client->format)];
  ++clientCounts_[static_cast<size_t>(client->format)];
  if (const int status = Watch(listening_.Get(), client->socket.Get()); status != 0) {
    Log("A trace client cannot be listened to: it gets the text feed alone.\n");
  }
  return 0;
}

void *TraceFeed::ServeThread(void *argument) {
  const std::unique_ptr<Start> start(static_cast<Start *>(argument));
  try {
    start->feed->Serve(start->client.get());
  } catch (const std::bad_alloc &) {
    Log("Out of memory for a trace client; its connection is closed.\n");
  }
  start->feed->Forget(start->client.get());
  return nullptr;
}

void TraceFeed::Serve(Client *client) {
  const int fd = client->socket.Get();
  for (;;) {
    const Batch batch = Take(client);
    std::string text = batch.answer;
    if (batch.lost > 0) text += TraceLostLine(batch.lost, batch.format);
    for (const auto &entry : batch.lines) text += entry->line[static_cast<size_t>(batch.format)];
    if (batch.statistics) text += StatisticsReport() + '\n';
    if (!SendAll(fd, text) || batch.isLast) return;
  }
}

/// Wait for something to send from the client's next line on, and take some of it.
TraceFeed::Batch TraceFeed::Take(Client *client) {
  Batch batch;
  MutexLock lock(mutex_);
  while (!client->HasNews() && client->next >= firstLine_ + lines_.size()) {
    client->isAsleep = true;
    sleepers_.push_back(client);
    while (client->isAsleep) client->changed.Wait(mutex_);
  }
  WakeNext();
  batch.format = client->format;
  batch.answer = std::exchange(client->answer, "");
  batch.statistics = client->wantsStatistics;
  batch.isLast = client->hasVanished || client->wantsStatistics;
  if (batch.isLast) return batch;
  const auto format = static_cast<size_t>(client->format);
  if (client->next < firstLine_) {
    batch.lost = lines_.front()->before[format] - client->seen;
    client->next = firstLine_;
    Stats().trace.lost.Add(batch.lost);
  }
  size_t bytes = 0;
  for (size_t i = client->next - firstLine_; i < lines_.size() && bytes < kMaxBatchBytes; ++i) {
    ++client->next;
    if (lines_[i]->line[format].empty()) continue;
    batch.lines.push_back(lines_[i]);
    bytes += lines_[i]->line[format].size();
  }
  client->seen += batch.lost + batch.lines.size();
  Stats().trace.lines.Add(batch.lines.size());
  return batch;
}

void TraceFeed::Forget(Client *client) {
  MutexLock lock(mutex_);
  clients_.erase(client->socket.Get());
  std::erase(sleepers_, client);
  --clientCounts_[static_cast<size_t>(client->format)];
  Stats().trace.clients = clients_.size();
  client->socket.Reset();  // here: the number may be another client's as soon as it is closed
  WakeNext();
  if (!clients_.empty()) return;
  firstLine_ += lines_.size();
  lines_.clear();
  queuedBytes_ = 0;
}

/// Start the thread that listens to the clients, if none does. 0 or an errno value.
int TraceFeed::StartListening() {
  if (listening_) return 0;
  base::UniqueFd set(MakeWatch());
  if (!set) return errno;
  if (const int status = StartThread(ListenThread, this); status != 0) return status;
  listening_ = std::move(set);
  return 0;
}

void *TraceFeed::ListenThread(void *argument) {
  static_cast<TraceFeed *>(argument)->Listen();
  return nullptr;
}

void TraceFeed::Listen() {
  int set = -1;
  {
    MutexLock lock(mutex_);  // held by who has started this thread, until the set is there
    set = listening_.Get();
  }
  for (;;) {
    uint32_t events = 0;
    const int fd = WaitForClient(set, &events);
    if (fd >= 0) HearClient(fd, events);
  }
}

/// Act on what a client sent, or on its end.
void TraceFeed::HearClient(int fd, uint32_t events) {
  MutexLock lock(mutex_);
  const auto found = clients_.find(fd);
  if (found == clients_.end()) return;
  Client *const client = found->second;
  const bool isOpen = client->Hear([&](std::string_view line) NO_THREAD_SAFETY_ANALYSIS { Obey(client, line); });
  if (!isOpen || HasEnded(events)) client->hasVanished = Unwatch(listening_.Get(), fd);
  if (!client->HasNews()) return;
  std::erase(sleepers_, client);
  client->isAsleep = false;
  client->changed.NotifyOne();
}

/// Do what a client's line says; one that says nothing known is ignored.
void TraceFeed::Obey(Client *client, std::string_view line) {
  if (line == "stats") client->wantsStatistics = true;
  if (line != "json" || client->format == TraceFormat::kJson) return;
  client->answer = "{\"format\":\"json\",\"version\":1}\n";
  SetFormat(client, TraceFormat::kJson);
}

void TraceFeed::SetFormat(Client *client, TraceFormat format) {
  --clientCounts_[static_cast<size_t>(client->format)];
  ++clientCounts_[static_cast<size_t>(format)];
  client->format = format;
  client->next = firstLine_ + lines_.size();
  client->seen = published_[static_cast<size_t>(format)];
}

TraceFeed &Feed() {
  static base::Immortal<TraceFeed> feed;
  return *feed;
}

}  // namespace rynd
