// The book that a management agent keeps of numbered events.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "testing/daemon.h"

namespace testing_support {

/// What has arrived, over any number of restarts of whoever receives it. An event whose first argument is the text
/// "n-NUMBER" is numbered: its numbers must rise, of each name by itself. Any thread.
class Arrivals {
 public:
  /// Take in the bytes of one connection.
  void Take(const std::string &record);
  uint64_t Events() const;  ///< all of them
  /// How many numbers below `end` of the event `name` have not arrived.
  uint64_t Missing(const std::string &name, uint64_t end) const;
  /// What was wrong so far.
  std::vector<std::string> Problems() const { return problems_.All(); }
  /// The first argument of the observation that numbers an event.
  static std::string Text(uint64_t number) { return "n-" + std::to_string(number); }

 private:
  struct Series {
    uint64_t next = 0;           ///< the number behind the last one
    std::set<uint64_t> skipped;  ///< numbers below it that have not come
  };

  mutable std::mutex mutex_;
  uint64_t events_ = 0;
  std::map<std::string, Series> series_;
  Collector problems_;
};

}  // namespace testing_support
