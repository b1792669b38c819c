// Mutexes that the thread-safety analysis can follow.
#pragma once

#include <mutex>

#include "core/basics/threadAnnotations.h"

namespace rynd {

/// A mutex that cannot fail. Meets BasicLockable, so that std::condition_variable_any can wait with it.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

/// Holds a Mutex for its own lifetime.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex &mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock &) = delete;
  MutexLock &operator=(const MutexLock &) = delete;

 private:
  Mutex &mutex_;
};

}  // namespace rynd
