// The records that the bench submits, and how.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstddef>
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

/// Reads the log as long as it lives, for measures that do not look at it.
class LogDrain {
 public:
  explicit LogDrain(LogSocket *log)
      : thread_([this, log] {
          while (!stop_) log->Skip(50);
        }) {}
  ~LogDrain() {
    stop_ = true;
    thread_.join();
  }
  LogDrain(const LogDrain &) = delete;
  LogDrain &operator=(const LogDrain &) = delete;

 private:
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

}  // namespace bench
