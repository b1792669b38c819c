#include "correlators/pageErrors.h"

#include <limits>

namespace rynd {

bool PageErrorCounts::Add(uint64_t page, uint64_t errors) {
  const auto place = counts_.find(page);
  const uint32_t count = place != counts_.end() ? place->second : 0;
  const uint32_t sum = count + static_cast<uint32_t>(errors);  // kept: a huge number of errors wraps
  const auto now = static_cast<uint8_t>(sum <= std::numeric_limits<uint8_t>::max() ? sum : count);
  if (place != counts_.end()) {
    place->second = now;
  } else if (counts_.size() < kMaxPages) {
    counts_.emplace(page, now);
  }
  return now > threshold_;
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
