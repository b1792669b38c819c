// What the daemon's own tests share: a log that a test reads, records, allocations that fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/agents/stream.h"
#include "hosted/testSupport.h"

struct Observation;

namespace rynd {

/// Collects what the process logs while it exists. One at a time.
class CapturedLog {
 public:
  CapturedLog();
  /// The messages so far, without the record's header.
  const std::vector<std::string> &Messages();
  /// Messages that hold `part`.
  size_t CountOf(const std::string &part);

 private:
  hosted::LogListener listener_;
  std::vector<std::string> messages_;
};

/// Makes every non-throwing array or object allocation of exactly `size` bytes fail while it exists. This thread only.
/// The thread sanitizer keeps the allocation functions to itself: tests that need this skip there.
class FailingAllocation {
 public:
  static bool IsPossible();
  explicit FailingAllocation(size_t size);
  ~FailingAllocation();
};
/// What `action` returns while such allocations fail.
template <typename Action>
auto WithoutMemoryFor(size_t size, const Action &action) {
  const FailingAllocation failing(size);
  return action();
}

/// A raw record with text arguments.
std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts = {},
                                  const std::string &message = "m");
/// A record as an Observation, which the caller frees.
Observation *MakeObservation(const std::vector<std::byte> &record);
Observation *MakeObservation(const std::string &id, const std::vector<std::string> &texts = {},
                             const std::string &message = "m");

/// A stream that is subscribed to `prefix`.
Stream *OpenStream(const char *prefix);
/// Fan `bytes` out under the stream lock, from memory that ends with them: a sanitizer sees a read beyond.
int LockedFanOut(const std::vector<std::byte> &bytes);
/// Read one whole observation from a stream and return its id; "" when nothing waits.
std::string ReadId(Stream *stream);

}  // namespace rynd
