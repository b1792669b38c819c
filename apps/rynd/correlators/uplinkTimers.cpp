#include "correlators/uplinkTimers.h"

#include <algorithm>
#include <utility>

#include "core/timerThread.h"

namespace rynd {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

/// Orders a heap so that the earliest deadline is on top.
struct IsLater {
  bool operator()(const UplinkTimer &a, const UplinkTimer &b) const { return a.deadlineNs > b.deadlineNs; }
};

}  // namespace

void UplinkTimers::ScheduleUplinkTimer(int64_t seconds, const std::string &uplink, uint32_t state, int64_t nowNs) {
  if (IsTransitionPending(uplink, state)) return;
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

template <typename Condition>
void UplinkTimers::DropTimers(const Condition &condition) {
  if (std::erase_if(uplinkTimers_, condition) == 0) return;
  std::make_heap(uplinkTimers_.begin(), uplinkTimers_.end(), IsLater());
}

void UplinkTimers::Cancel(const std::string &uplink, uint32_t state) {
  DropTimers([&](const UplinkTimer &timer) { return timer.state == state && timer.uplink == uplink; });
  ClearTransitionPending(uplink, state);
}

void UplinkTimers::CancelAll(const std::string &uplink) {
  DropTimers([&](const UplinkTimer &timer) { return timer.uplink == uplink; });
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
