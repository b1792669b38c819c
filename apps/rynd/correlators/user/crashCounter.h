// How often each application has crashed since the daemon started. Told the time; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "correlators/rows/boundedMap.h"

namespace rynd {

/// The crashes of one application.
struct CrashRecord {
  int64_t firstSeenS = 0;  ///< wall-clock seconds
  int64_t lastSeenS = 0;
  int32_t count = 0;
  bool operator==(const CrashRecord &) const = default;
};

class CrashCounter {
 public:
  /// Count a crash of `name` at `nowS`; its crashes so far. A failure to allocate throws and changes nothing.
  int32_t Count(std::string_view name, int64_t nowS);
  size_t Names() const { return records_.Size(); }

 private:
  /// Whoever crashes programs under ever new names gains nothing: the name that crashed longest ago is forgotten for a
  /// new one, whatever the clock says.
  BoundedMap<std::string, CrashRecord> records_;
};

}  // namespace rynd
