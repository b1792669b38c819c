// A short wait gathers what comes together, so that one flush serves it all.
#include "mgmtd/store/writerQueue.h"

namespace mgmtd {

bool WriterQueue::Put(ReceivedRecord record) {
  const std::lock_guard lock(mutex_);
  ++received_;
  if (records_.size() >= Writer::kMostQueued || bytes_ + record.bytes.size() > Writer::kMostQueuedBytes) {
    ++dropped_;
    return false;
  }
  bytes_ += record.bytes.size();
  records_.push_back(std::move(record));
  if (records_.size() == 1 || records_.size() == kMostRecords) wake_.notify_one();
  return true;
}

std::future<size_t> WriterQueue::Put(AckRequest request) {
  const std::lock_guard lock(mutex_);
  std::future<size_t> ended = request.ended.get_future();
  acks_.push_back(std::move(request));
  wake_.notify_one();
  return ended;
}

void WriterQueue::Stop(Clock::time_point by) {
  const std::lock_guard lock(mutex_);
  stopBy_ = by;
  wake_.notify_one();
}

WriterWork WriterQueue::Take(std::chrono::milliseconds tick) {
  std::unique_lock lock(mutex_);
  wake_.wait_for(lock, tick, [&] { return !records_.empty() || !acks_.empty() || stopBy_; });
  if (!records_.empty()) {
    wake_.wait_for(lock, kGather, [&] { return records_.size() >= kMostRecords || !acks_.empty() || stopBy_; });
  }
  WriterWork work;
  while (!records_.empty() && work.records.size() < kMostRecords) {
    bytes_ -= records_.front().bytes.size();
    work.records.push_back(std::move(records_.front()));
    records_.pop_front();
  }
  work.acks.swap(acks_);
  work.stopping = stopBy_.has_value() && records_.empty();
  return work;
}

std::optional<WriterQueue::Clock::time_point> WriterQueue::StopBy() const {
  const std::lock_guard lock(mutex_);
  return stopBy_;
}

uint64_t WriterQueue::Dropped() const {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

uint64_t WriterQueue::Received() const {
  const std::lock_guard lock(mutex_);
  return received_;
}

}  // namespace mgmtd
