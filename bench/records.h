// The records that the bench submits, and how.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/peers.h"
#include "hosted/records/rawRecord.h"

namespace bench {

inline hosted::RawArgument Text(std::string text) {
  return {hosted::ArgumentKind::kString, 0, 0, std::move(text)};
}
inline hosted::RawArgument Number(uint64_t value) {
  return {hosted::ArgumentKind::kSigned, 4, value, {}};
}

inline std::vector<std::byte> MakeRecord(std::string id, std::string message,
                                         std::vector<hosted::RawArgument> arguments) {
  return hosted::EncodeRecord({0, 1'700'000'000'000'000, std::move(id), std::move(message), std::move(arguments)});
}

/// Submit a record, waiting for room.
inline void Submit(const base::UniqueFd &kernel, const std::vector<std::byte> &record) {
  if (send(kernel.Get(), record.data(), record.size(), MSG_NOSIGNAL) < 0) Fail("submit");
}

/// Reads the log on a thread of its own as long as it lives: as on a host, sending a record wakes somebody up.
class LogDrain {
 public:
  /// With `together` it tells of each so many records.
  explicit LogDrain(LogSocket *log, size_t together = 0)
      : thread_([this, log, together] {
          for (size_t records = 0; !stop_;) {
            if (log->Skip(50) && ++records == together) {
              records = 0;
              read_.release();
            }
          }
        }) {}
  /// Wait until so many more have been read as the constructor was given; ends the benchmark when they do not come.
  void Wait() {
    if (!read_.try_acquire_for(std::chrono::seconds(5))) Fail("no log record");
  }
  ~LogDrain() {
    stop_ = true;
    thread_.join();
  }
  LogDrain(const LogDrain &) = delete;
  LogDrain &operator=(const LogDrain &) = delete;

 private:
  std::atomic<bool> stop_ = false;
  std::counting_semaphore<> read_{0};
  std::thread thread_;
};

}  // namespace bench
