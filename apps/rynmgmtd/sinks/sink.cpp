// The life of a sink: where it is, what it waits for, how it comes back after a failure.
#include "mgmtd/sinks/sink.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "base/wallClock.h"
#include "mgmtd/log/log.h"

namespace mgmtd {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause(500);
constexpr milliseconds kLongestPause(30'000);
constexpr milliseconds kLook(200);  ///< between two looks whether a stop came
constexpr size_t kBatch = 256;

}  // namespace

Sink::Sink(std::string name, const std::string &storePath, Feed *feed, Writer *writer)
    : feed_(feed), reader_(storePath), name_(std::move(name)), writer_(writer) {
  status_.name = name_;
}

void Sink::Start() {
  FindPosition();
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), name_.substr(0, name_.find(' ')).c_str());
    Run();
  });
}

void Sink::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  stopping_.notify_all();
}

void Sink::Join() {
  if (thread_.joinable()) thread_.join();
}

/// Go on where the last run was; a new sink begins with what comes from now on.
void Sink::FindPosition() {
  const Marks newest = feed_->Newest();
  Marks found = writer_->SinkPosition(name_).value_or(newest);
  // A store that began anew has nothing up to there.
  found = {std::min(found.event, newest.event), std::min(found.change, newest.change)};
  SetPosition(found);
}

SinkStatus Sink::Status() const {
  const Marks newest = feed_->Newest();
  const std::lock_guard lock(mutex_);
  SinkStatus status = status_;
  status.lag = std::max<int64_t>(0, Lag(position_, newest));
  return status;
}

bool Sink::Stopped() const {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

bool Sink::Pause(milliseconds time) {
  std::unique_lock lock(mutex_);
  return !stopping_.wait_for(lock, time, [this] { return stopped_; });
}

bool Sink::AwaitNews(milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!Stopped()) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return true;
    const Marks at = Position();
    if (!feed_->Wait(at, std::min(left, kLook))) return false;
    const Marks newest = feed_->Newest();
    if (newest.event > at.event || newest.change > at.change) return !Stopped();
  }
  return false;
}

void Sink::SetPosition(const Marks &marks) {
  {
    const std::lock_guard lock(mutex_);
    position_ = marks;
  }
  writer_->SetSinkPosition(name_, marks);
}

Marks Sink::Position() const {
  const std::lock_guard lock(mutex_);
  return position_;
}

milliseconds Sink::Note(Outcome outcome, const std::string &error, uint64_t count) {
  std::string news;
  LogLevel level = LogLevel::kWarning;
  milliseconds pause(0);
  {
    const std::lock_guard lock(mutex_);
    if (outcome == Outcome::kRetry) {
      ++status_.failures;
      if (status_.error != error) news = name_ + ": " + error + "; it is tried again, and nothing is left out";
      if (status_.failingSinceUs == 0) status_.failingSinceUs = base::WallClockUs();
      status_.error = error;
      pause_ = std::min(pause_.count() == 0 ? kFirstPause : pause_ * 2, kLongestPause);
      pause = pause_;
    } else if (outcome != Outcome::kStopped) {
      if (!status_.error.empty()) {
        news = name_ + " works again";
        level = LogLevel::kNotice;
      }
      if (outcome == Outcome::kRefused) news = name_ + " refuses for good: " + error;
      (outcome == Outcome::kRefused ? status_.refused : status_.passed) += count;
      status_.error.clear();
      status_.failingSinceUs = 0;
      pause_ = milliseconds(0);
    }
  }
  if (!news.empty()) Log(level, news);
  return pause;
}

void EventSink::Run() {
  while (AwaitNews(milliseconds(5000))) {
    Marks at = Position();
    const Marks newest = feed_->Newest();
    if (newest.event < at.event) SetPosition(at = newest);  // the store began anew
    if (newest.event == at.event) {
      if (newest.change != at.change) SetPosition(newest);
      continue;
    }
    std::vector<StoredEvent> events;
    try {
      events = feed_->EventsAfter(at.event, kBatch, &reader_);
    } catch (const StoreError &error) {
      if (!Pause(Note(Outcome::kRetry, error.what()))) return;
      continue;
    }
    for (const StoredEvent &event : events) {
      for (;;) {
        std::string error;
        const Outcome outcome = Pass(event, &error);
        if (outcome == Outcome::kStopped) return;
        const milliseconds pause = Note(outcome, error);
        if (outcome != Outcome::kRetry) break;
        if (!Pause(pause)) return;
      }
      SetPosition({event.id, at.change});
      if (Stopped()) return;
    }
    // What neither memory nor the file has is passed over.
    if (events.empty()) SetPosition({newest.event, at.change});
  }
}

}  // namespace mgmtd
