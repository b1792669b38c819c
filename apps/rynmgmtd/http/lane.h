// One thread that does what it is handed, in order, with a bounded queue in front of it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace mgmtd {

/// Any thread calls; tasks run on the lane's own. What could make others wait stands in a lane of its own.
class Lane {
 public:
  /// `name` of the thread, at most 15 characters; at most `most` tasks wait.
  Lane(const char *name, size_t most) : most_(most), name_(name) {}
  ~Lane() { Stop(); }
  Lane(const Lane &) = delete;
  Lane &operator=(const Lane &) = delete;

  void Start();
  /// End the thread behind the task at hand; what waits is dropped.
  void Stop();
  /// False when too many wait.
  bool Add(std::function<void()> task);

 private:
  void Run();

  const size_t most_;
  const char *const name_;
  std::mutex mutex_;  ///< guards `tasks_` and `stopped_`; nothing is called while it is held
  std::condition_variable added_;
  std::deque<std::function<void()>> tasks_;
  bool stopped_ = false;
  std::thread thread_;
};

}  // namespace mgmtd
