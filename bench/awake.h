// Processors that do not go to sleep between two events.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <thread>
#include <vector>

namespace bench {

/// Keeps every processor that the benchmark may use awake as long as it lives, with threads that run only where nothing
/// else wants to. A virtual machine takes up to 20 microseconds to wake a processor; three times in an event that is a
/// measure of the hypervisor, and a program that wakes one for another purpose beforehand seems to be the faster one.
class AwakeProcessors {
 public:
  AwakeProcessors() {
    cpu_set_t usable;
    if (sched_getaffinity(0, sizeof usable, &usable) != 0) return;
    for (size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &usable)) threads_.emplace_back([this, cpu] { Spin(cpu); });
    }
  }
  ~AwakeProcessors() {
    stop_ = true;
    for (std::thread &thread : threads_) thread.join();
  }
  AwakeProcessors(const AwakeProcessors &) = delete;
  AwakeProcessors &operator=(const AwakeProcessors &) = delete;

 private:
  void Spin(size_t cpu) const {
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(cpu, &own);
    const sched_param none{};
    // Never at another thread's cost.
    if (pthread_setschedparam(pthread_self(), SCHED_IDLE, &none) != 0) return;
    pthread_setaffinity_np(pthread_self(), sizeof own, &own);
    while (!stop_.load(std::memory_order_relaxed)) {
    }
  }
  std::atomic<bool> stop_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace bench
