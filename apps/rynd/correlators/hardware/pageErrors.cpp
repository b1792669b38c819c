#include "correlators/hardware/pageErrors.h"

#include <limits>

#include "core/basics/reason.h"

namespace rynd {

bool PageErrorCounts::Add(uint64_t page, uint64_t errors) {
  uint8_t &count = counts_[page];
  const uint32_t sum = count + static_cast<uint32_t>(errors);  // kept: a huge number of errors wraps
  if (sum <= std::numeric_limits<uint8_t>::max()) count = static_cast<uint8_t>(sum);
  Reason("counter of page %#lx at %u in this period, tolerated are %u", page, uint32_t{count}, uint32_t{threshold_});
  return count > threshold_;
}

PageAction PageStates::Judge(uint64_t page, bool (*isBeingRetired)(uint64_t page)) {
  uint32_t state = StateOf(page);
  PageAction action = PageAction::kNone;
  if (page != 0 && state == 0) {
    if (isBeingRetired(page)) ++state;
    if (state == 0) action = PageAction::kRetire;
  } else if (++state == 0) {  // kept: the report comes when the state has wrapped, after 2^32 of them
    state = 1;
    action = PageAction::kReport;
  }
  if (state != 0 && (states_.size() < kMaxPages || states_.contains(page))) states_[page] = state;
  return action;
}

uint32_t PageStates::StateOf(uint64_t page) const {
  const auto place = states_.find(page);
  return place != states_.end() ? place->second : 0;
}

}  // namespace rynd
