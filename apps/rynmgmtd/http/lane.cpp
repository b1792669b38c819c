// A thread and its queue. Add: any thread; the rest: the one that owns the lane.
#include "mgmtd/http/lane.h"

#include <pthread.h>

#include <utility>

namespace mgmtd {

void Lane::Start() {
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), name_);
    Run();
  });
}

void Lane::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    tasks_.clear();
  }
  added_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool Lane::Add(std::function<void()> task) {
  {
    const std::lock_guard lock(mutex_);
    if (stopped_ || tasks_.size() >= most_) return false;
    tasks_.push_back(std::move(task));
  }
  added_.notify_one();
  return true;
}

void Lane::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    added_.wait(lock, [this] { return stopped_ || !tasks_.empty(); });
    if (stopped_) return;
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    task();
    lock.lock();
  }
}

}  // namespace mgmtd
