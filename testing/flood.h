// Senders that never rest.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstddef>
#include <thread>
#include <utility>
#include <vector>

#include "base/uniqueFd.h"

namespace testing_support {

/// Sends `records` in turn on every descriptor of `fds` as fast as they are taken, until it goes.
class Flood {
 public:
  Flood(std::vector<base::UniqueFd> fds, std::vector<std::vector<std::byte>> records)
      : fds_(std::move(fds)), records_(std::move(records)), thread_([this] {
          for (size_t i = 0; !stop_; ++i) {
            const auto &record = records_[i / fds_.size() % records_.size()];
            send(fds_[i % fds_.size()].Get(), record.data(), record.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
          }
        }) {}
  ~Flood() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_ = false;
  std::vector<base::UniqueFd> fds_;
  std::vector<std::vector<std::byte>> records_;
  std::thread thread_;
};

}  // namespace testing_support
