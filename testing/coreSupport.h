// What the daemon's own tests share: a log that a test reads, records, allocations that fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "core/agents/stream.h"
#include "hosted/paths.h"
#include "hosted/testSupport.h"

namespace rynd {

using hosted::MakeObservation;

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
/// The management agent's socket: what is sent to it waits there until it is read.
class EventSocket {
 public:
  ~EventSocket() { Close(); }
  void Open();
  void Close();
  bool IsOpen() const { return static_cast<bool>(fd_); }
  /// The next connection to it, which waits there already; invalid when none does.
  base::UniqueFd Accept() const;
  /// All that came over the next connection; "" when there is none.
  std::string Next() const;
  const std::string &Path() const { return path_; }

 private:
  const std::string path_ = hosted::RootPath(hosted::kEventSocket);
  base::UniqueFd fd_;
};

/// A stream that is subscribed to `prefix`.
Stream *OpenStream(const char *prefix);
/// Fan `bytes` out under the stream lock, from memory that ends with them: a sanitizer sees a read beyond.
int LockedFanOut(const std::vector<std::byte> &bytes);
/// Read one whole observation from a stream and return its id; "" when nothing waits.
std::string ReadId(Stream *stream);

}  // namespace rynd
