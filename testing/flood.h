// Senders that never rest.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>
#include <utility>
#include <vector>

#include "base/uniqueFd.h"

namespace testing_support {

/// Sends `records` in turn on every of `count` descriptors as fast as they are taken, until it goes.
class Flood {
 public:
  /// `connect` is called for each descriptor with its number.
  template <typename Connect>
  Flood(unsigned count, const Connect &connect, std::vector<std::vector<std::byte>> records)
      : records_(std::move(records)) {
    for (unsigned i = 0; i < count; ++i) fds_.push_back(connect(i));
    thread_ = std::thread([this] { Send(); });
  }
  ~Flood() {
    stop_ = true;
    thread_.join();
  }

 private:
  void Send() {
    for (size_t i = 0; !stop_; ++i) {
      const auto &record = records_[i / fds_.size() % records_.size()];
      if (send(fds_[i % fds_.size()].Get(), record.data(), record.size(), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) continue;
      // With its queue full it comes again at once, as a program does that waits for room.
      std::this_thread::sleep_for(std::chrono::microseconds(50 / fds_.size()));
    }
  }

  std::atomic<bool> stop_ = false;
  std::vector<base::UniqueFd> fds_;
  std::vector<std::vector<std::byte>> records_;
  std::thread thread_;
};

}  // namespace testing_support
