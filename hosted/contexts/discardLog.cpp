// Tells of discarded records, at most once a second. The poll loop's thread only.
#include "hosted/contexts/discardLog.h"

#include <time.h>

#include "hosted/log/log.h"

namespace hosted {
namespace {

constexpr int64_t kPauseMilliseconds = 1000;

DiscardLog discardLog;

int64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::string CountOf(uint64_t count, const char *what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

std::string DiscardLog::Line(int64_t now, const std::string &source, int count, const char *reason) {
  if (told_ && now - lastLine_ < kPauseMilliseconds) {
    heldBack_ += static_cast<uint64_t>(count);
    return "";
  }
  std::string line = "Discarded " + CountOf(static_cast<uint64_t>(count), "bad record") + " of " + source +
                     (count == 1 ? ": " : ", the first: ") + reason;
  if (heldBack_ > 0) line += " (and " + std::to_string(heldBack_) + " more since the last such line)";
  told_ = true;
  lastLine_ = now;
  heldBack_ = 0;
  return line;
}

std::string DiscardLog::LastLine() {
  std::string line;
  if (heldBack_ > 0) line = "Discarded " + CountOf(heldBack_, "more bad record") + " since the last such line";
  *this = {};
  return line;
}

Discards::~Discards() {
  if (count_ == 0) return;
  const std::string line = discardLog.Line(MonotonicMilliseconds(), source_, count_, reason_);
  if (!line.empty()) Log("%s", line.c_str());
}

void Discards::Add(const char *source, const char *reason) {
  if (count_++ != 0) return;
  source_ = source;
  reason_ = reason;
}

void LogLastDiscards() {
  const std::string line = discardLog.LastLine();
  if (!line.empty()) Log("%s", line.c_str());
}

}  // namespace hosted
