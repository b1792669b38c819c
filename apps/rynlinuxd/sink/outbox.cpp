#include "sink/outbox.h"

#include <utility>

namespace rynlinuxd {

bool Outbox::Add(Report report) {
  const bool isState = !report.key.empty();
  if (isState) {
    if (const auto found = states_.find(report.key); found != states_.end()) {
      report.isLastWord = report.isLastWord || found->second->isLastWord;
      *found->second = std::move(report);
      return true;
    }
  }
  const size_t once = waiting_.size() - states_.size();
  if (isState ? states_.size() >= kMostStates : once >= kMostOnce) {
    ++lost_;
    return false;
  }
  waiting_.push_back(std::move(report));
  if (isState) states_.emplace(waiting_.back().key, std::prev(waiting_.end()));
  return true;
}

void Outbox::Cancel(const std::string &key) {
  const auto found = states_.find(key);
  if (found == states_.end()) return;
  waiting_.erase(found->second);
  states_.erase(found);
}

const Report *Outbox::Waiting(const std::string &key) const {
  const auto found = states_.find(key);
  return found == states_.end() ? nullptr : &*found->second;
}

void Outbox::Pop() {
  if (!waiting_.front().key.empty()) states_.erase(waiting_.front().key);
  waiting_.pop_front();
}

uint64_t Outbox::TakeLost() {
  return std::exchange(lost_, 0);
}

}  // namespace rynlinuxd
