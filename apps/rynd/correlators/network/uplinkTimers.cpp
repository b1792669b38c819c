#include "correlators/network/uplinkTimers.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "core/basics/clock.h"
#include "core/basics/reason.h"
#include "core/basics/timerThread.h"

namespace rynd {
namespace {

/// Orders a heap so that the earliest deadline is on top.
struct IsLater {
  bool operator()(const UplinkTimer &a, const UplinkTimer &b) const { return a.deadlineNs > b.deadlineNs; }
};

}  // namespace

const char *TransitionName(uint32_t state) {
  switch (state) {
    case PG_DOWN:
      return "port group down";
    case PG_UP:
      return "port group up";
    case DVPORT_DOWN:
      return "DVPort down";
    case DVPORT_UP:
      return "DVPort up";
    case LINK_DOWN:
      return "link down";
    case LINK_UP:
      return "link up";
    case WATCHDOG:
      return "watchdog";
    default:
      return "unknown";
  }
}

void UplinkTimers::ScheduleUplinkTimer(int64_t seconds, const std::string &uplink, uint32_t state, int64_t nowNs) {
  if (IsTransitionPending(uplink, state)) {
    return Reason("uplink %s: \"%s\" is pending already", uplink, TransitionName(state));
  }
  Reason("uplink %s: \"%s\" settles in %ld s", uplink, TransitionName(state), seconds);
  pendingTransitions_[uplink] |= state;
  const int64_t deadlineNs = nowNs + seconds * kNsPerSecond;
  const bool isEarliest = uplinkTimers_.empty() || deadlineNs < uplinkTimers_.front().deadlineNs;
  uplinkTimers_.push_back({uplink, state, deadlineNs});
  std::push_heap(uplinkTimers_.begin(), uplinkTimers_.end(), IsLater());
  if (isEarliest) ArmTimer(timerId_, 0, seconds);
}

uint32_t UplinkTimers::PendingOf(const std::string &uplink) const {
  const auto found = pendingTransitions_.find(uplink);
  return found == pendingTransitions_.end() ? 0 : found->second;
}

bool UplinkTimers::IsTransitionPending(const std::string &uplink, uint32_t state) const {
  return (PendingOf(uplink) & state) == state;
}

void UplinkTimers::ClearTransitionPending(const std::string &uplink, uint32_t state) {
  if (IsTransitionPending(uplink, state)) pendingTransitions_[uplink] &= ~state;
}

void UplinkTimers::Cancel(const std::string &uplink, uint32_t state) {
  ClearTransitionPending(uplink, state);
  const auto place = std::find_if(uplinkTimers_.begin(), uplinkTimers_.end(), [&](const UplinkTimer &timer) {
    return timer.state == state && timer.uplink == uplink;
  });
  if (place == uplinkTimers_.end()) return;
  // To the top and off it.
  place->deadlineNs = std::numeric_limits<int64_t>::min();
  std::push_heap(uplinkTimers_.begin(), place + 1, IsLater());
  std::pop_heap(uplinkTimers_.begin(), uplinkTimers_.end(), IsLater());
  uplinkTimers_.pop_back();
}

void UplinkTimers::CancelAll(const std::string &uplink) {
  std::erase_if(uplinkTimers_, [&](const UplinkTimer &timer) { return timer.uplink == uplink; });
  std::make_heap(uplinkTimers_.begin(), uplinkTimers_.end(), IsLater());
  pendingTransitions_[uplink] = 0;
}

std::optional<UplinkTimer> UplinkTimers::TakeSettled(int64_t nowNs) {
  if (uplinkTimers_.empty()) return std::nullopt;
  const int64_t leftNs = uplinkTimers_.front().deadlineNs - nowNs;
  // Kept: up to a second early, since the daemon's timers know whole seconds only.
  if (leftNs > kNsPerSecond - 1) {
    ArmTimer(timerId_, 0, leftNs / kNsPerSecond);
    return std::nullopt;
  }
  std::pop_heap(uplinkTimers_.begin(), uplinkTimers_.end(), IsLater());
  std::optional<UplinkTimer> settled(std::move(uplinkTimers_.back()));
  uplinkTimers_.pop_back();
  return settled;
}

}  // namespace rynd
