// Which memory page has had more corrected errors within a period than are tolerated, and what is to be done about it.
// Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "correlators/rows/boundedMap.h"

namespace rynd {

/// Pages are numbered by physical address; these are 4096 bytes.
constexpr unsigned kPageShift = 12;

/// The errors of each page in the current period.
class PageErrorCounts {
 public:
  /// No host has so many failing pages within a period (256 MB of memory): 8 MB at the most. A further page takes the
  /// place of the one without errors for longest.
  static constexpr size_t kMaxPages = 65'536;

  /// More errors than this are too many.
  void SetThreshold(uint8_t errors) { threshold_ = errors; }
  /// Add errors to a page's count, which stays as it is when the 32-bit sum is above 255. True when it is too high
  /// then.
  bool Add(uint64_t page, uint64_t errors);
  /// A new period begins.
  void Reset() { counts_.Clear(); }

 private:
  uint8_t threshold_ = 2;
  BoundedMap<uint64_t, uint8_t, kMaxPages> counts_;
};

/// What to do about a page whose count is too high.
enum class PageAction : uint8_t { kNone, kRetire, kReport };

/// What the kernel has taken in hand, for the daemon's life.
class PageStates {
 public:
  /// Pages are held once the kernel says that it retires them, which bounds them by the memory that it gives up. With
  /// this many (1 GB; 18 MB at the most) a further page is asked about each time, to the same effect.
  static constexpr size_t kMaxPages = 262'144;

  /// Judge `page`. `isBeingRetired` asks the kernel; what it throws passes through, nothing changed.
  PageAction Judge(uint64_t page, bool (*isBeingRetired)(uint64_t page));
  /// The page's state, 0 when it has none.
  uint32_t StateOf(uint64_t page) const;
  void SetState(uint64_t page, uint32_t state) { states_[page] = state; }

 private:
  std::map<uint64_t, uint32_t> states_;  ///< none is 0
};

}  // namespace rynd
