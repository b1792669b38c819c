// Writes a recording to a stream: for copies, and for what no daemon has recorded. One thread.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "flight/encode.h"
#include "flight/entry.h"

namespace flight {

/// One file.
class Writer {
 public:
  /// Writes the file's header. `out` is borrowed and tells of failures itself; `serial` is the file's number in a ring,
  /// 0 for none.
  explicit Writer(std::ostream *out, uint64_t serial = 0, uint64_t seed = 1);

  /// Append an entry, its thread's name in front where that is new. Either all entries have thread numbers, or none
  /// has and they are given by the names. False, the entry not written, when it is longer than kMaxEntrySize or its
  /// thread's number would be kMaxThreads.
  bool Append(const Entry &entry);

 private:
  bool Put(const Front &front, std::span<const Piece> payload);
  /// The number of an entry's thread, after telling its name when it is new. False when that can't be told.
  bool TellThread(const Entry &entry, uint16_t *number);

  std::ostream *out_;
  uint64_t seed_;
  std::vector<std::optional<std::string>> names_;         ///< as told last, by thread number
  std::map<std::string, uint16_t, std::less<>> numbers_;  ///< of threads that came without one
  std::vector<uint64_t> buffer_;                          ///< of one entry, so that it is aligned
};

}  // namespace flight
