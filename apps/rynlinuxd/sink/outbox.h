// What waits to be sent, in order and bounded. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>

#include "sink/report.h"

namespace rynlinuxd {

/// A state that waits is replaced by the object's next one, at its place; what has no key is never merged.
class Outbox {
 public:
  static constexpr size_t kMostOnce = 1024;     ///< reports without a key
  static constexpr size_t kMostStates = 16384;  ///< and with one

  /// False when there is no room: the report is lost, which is counted.
  bool Add(Report report);
  /// Drop the state of `key` that waits, if any.
  void Cancel(const std::string &key);
  /// The state of `key` that waits, or null.
  const Report *Waiting(const std::string &key) const;
  bool Empty() const { return waiting_.empty(); }
  const Report &Front() const { return waiting_.front(); }
  void Pop();
  /// How many were lost since the last call.
  uint64_t TakeLost();
  size_t Size() const { return waiting_.size(); }

 private:
  std::list<Report> waiting_;
  std::unordered_map<std::string, std::list<Report>::iterator> states_;
  uint64_t lost_ = 0;
};

}  // namespace rynlinuxd
