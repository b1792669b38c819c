// Memory first; the file only for who was away for long.
#include "mgmtd/store/feed.h"

#include <algorithm>

#include "catalog/catalog.h"

namespace mgmtd {
namespace {

size_t SizeOf(const StoredEvent &event) {
  return sizeof event + event.text.size() + event.argumentsJson.size() + event.raw.size() + event.damage.size();
}

}  // namespace

std::vector<StoredEvent> Feed::EventsAfter(int64_t afterId, size_t limit, Reader *file) {
  int64_t from = 0;
  {
    const std::lock_guard lock(mutex_);
    from = eventsFrom_;
  }
  if (afterId < from && file != nullptr) {
    EventFilter filter;
    filter.afterId = afterId;
    filter.beforeId = from + 1;
    filter.limit = limit;
    try {
      if (std::vector<StoredEvent> older = file->Events(filter, true); !older.empty()) return older;
    } catch (const StoreError &) {
      // What memory has is better than nothing; who needs the file says that it fails.
    }
  }
  const std::lock_guard lock(mutex_);
  const auto first = std::ranges::upper_bound(events_, afterId, {}, &StoredEvent::id);
  const auto count = std::min(limit, static_cast<size_t>(events_.end() - first));
  return {first, first + static_cast<std::ptrdiff_t>(count)};
}

std::vector<Problem> Feed::ProblemsAfter(int64_t change, size_t limit, Reader *file) {
  int64_t from = 0;
  {
    const std::lock_guard lock(mutex_);
    from = changesFrom_;
  }
  if (change < from && file != nullptr) {
    try {
      std::vector<Problem> older = file->ProblemsChangedAfter(change, limit);
      std::erase_if(older, [from](const Problem &problem) { return problem.change > from; });
      if (!older.empty()) return older;
    } catch (const StoreError &) {
      // As above.
    }
  }
  const std::lock_guard lock(mutex_);
  std::vector<Problem> found;
  auto open = open_.upper_bound(change);
  auto ended = ended_.upper_bound(change);
  while (found.size() < limit && (open != open_.end() || ended != ended_.end())) {
    const bool takeOpen = ended == ended_.end() || (open != open_.end() && open->first < ended->first);
    found.push_back(takeOpen ? (open++)->second : (ended++)->second);
  }
  return found;
}

std::vector<Problem> Feed::OpenProblems() const {
  std::vector<Problem> problems;
  {
    const std::lock_guard lock(mutex_);
    problems.reserve(open_.size());
    for (const auto &[change, problem] : open_) problems.push_back(problem);
  }
  std::ranges::sort(problems, [](const Problem &a, const Problem &b) {
    return a.severity != b.severity ? a.severity > b.severity : a.lastEventId > b.lastEventId;
  });
  return problems;
}

std::array<size_t, 4> Feed::OpenCounts() const {
  std::array<size_t, 4> counts{};
  const std::lock_guard lock(mutex_);
  for (const auto &[change, problem] : open_) ++counts[static_cast<size_t>(problem.severity)];
  return counts;
}

EventCounts Feed::Counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

Marks Feed::Newest() const {
  const std::lock_guard lock(mutex_);
  return newest_;
}

bool Feed::Wait(const Marks &seen, std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit,
                    [&] { return stopped_ || newest_.event > seen.event || newest_.change > seen.change; });
  return !stopped_;
}

void Feed::Stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

bool Feed::Stopped() const {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

void Feed::Reset(const Marks &newest, std::vector<Problem> open) {
  const std::lock_guard lock(mutex_);
  events_.clear();
  bytes_ = 0;
  eventsFrom_ = newest.event;
  open_.clear();
  changeOf_.clear();
  ended_.clear();
  changesFrom_ = newest.change;
  for (Problem &problem : open) {
    changeOf_[problem.id] = problem.change;
    open_[problem.change] = std::move(problem);
  }
  newest_ = newest;
  changed_.notify_all();
}

void Feed::Publish(const std::vector<StoredEvent> &events, const std::vector<Problem> &changed) {
  const std::lock_guard lock(mutex_);
  for (const StoredEvent &event : events) {
    bytes_ += SizeOf(event);
    events_.push_back(event);
    newest_.event = std::max(newest_.event, event.id);
    const bool known = catalog::FindEvent(event.name) != nullptr;
    ++counts_.byName[known ? event.name : "unknown"];
    counts_.lastEventUs = event.timeUs;
  }
  while (events_.size() > kMostEvents || (bytes_ > kMostBytes && events_.size() > 1)) {
    bytes_ -= SizeOf(events_.front());
    eventsFrom_ = events_.front().id;
    events_.pop_front();
  }
  for (const Problem &problem : changed) {
    if (const auto former = changeOf_.find(problem.id); former != changeOf_.end()) {
      open_.erase(former->second);
      changeOf_.erase(former);
    }
    newest_.change = std::max(newest_.change, problem.change);
    if (problem.IsOpen()) {
      changeOf_[problem.id] = problem.change;
      open_[problem.change] = problem;
    } else {
      ended_[problem.change] = problem;
    }
  }
  while (ended_.size() > kMostEnded) {
    changesFrom_ = std::max(changesFrom_, ended_.begin()->first);
    ended_.erase(ended_.begin());
  }
  changed_.notify_all();
}

}  // namespace mgmtd
