// Waiting for a change under a Mutex.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>

#include "core/mutex.h"

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
  /// Wait until the wall clock shows `second` (whole seconds since the epoch), also when the clock is set meanwhile.
  void WaitUntil(Mutex &mutex, int64_t second) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_until(lock, std::chrono::system_clock::time_point(std::chrono::seconds(second)));
    lock.release();
  }
  /// Wait until the monotonic clock shows `deadline`.
  void WaitUntil(Mutex &mutex, std::chrono::steady_clock::time_point deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_until(lock, deadline);
    lock.release();
  }

 private:
  std::condition_variable condition_;
};

}  // namespace rynd
