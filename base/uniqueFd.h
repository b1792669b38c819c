// Sole owner of one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace base {

/// Closes its descriptor when it goes; -1 means none. Not shared between threads.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd &&other) noexcept : fd_(other.Release()) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~UniqueFd() { Reset(); }

  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Give the descriptor away; the caller closes it.
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace base
