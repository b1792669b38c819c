// Waiting for a change under a Mutex.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>

#include "core/basics/mutex.h"

namespace rynd {

/// A condition variable for Mutex. Waits may end early: look at the condition again.
class ConditionVariable {
 public:
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }
  void Wait(Mutex &mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  /// Wait until MonotonicNs() is `deadlineNs`.
  void WaitUntil(Mutex &mutex, int64_t deadlineNs) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_until(lock, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(deadlineNs)));
    lock.release();
  }

 private:
  std::condition_variable condition_;
};

}  // namespace rynd
