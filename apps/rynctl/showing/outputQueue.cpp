// The printing thread takes a batch at a time, so that a fast output costs one write for many lines.
#include "rynctl/showing/outputQueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "base/uniqueFd.h"

namespace rynctl {
namespace {

constexpr std::chrono::milliseconds kGrace(300);
constexpr size_t kBatchBytes = size_t{64} << 10;

}  // namespace

struct OutputQueue::State {
  struct Line {
    std::string text;
    bool isError;  ///< for standard error
  };

  Console *console;
  std::function<std::string(uint64_t)> refusedLine;
  base::UniqueFd changedFd{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::thread thread;

  mutable std::mutex mutex;  ///< guards what follows
  std::condition_variable changed;
  std::deque<Line> lines;
  size_t bytes = 0;      ///< of `lines` and of what is being printed
  size_t printing = 0;   ///< lines that are being printed
  uint64_t refused = 0;  ///< lines since the last that was taken
  bool full = false;
  bool closing = false;
  bool ended = false;  ///< the thread has nothing to do any more
  int status = kDone;

  void Push(Line line) {
    bytes += line.text.size();
    lines.push_back(std::move(line));
    changed.notify_all();
  }
  /// Say in its place how many lines are missing.
  void PushRefused() {
    if (refused > 0) Push({refusedLine(std::exchange(refused, 0)), false});
  }
  void Tell() {
    const uint64_t one = 1;
    static_cast<void>(!write(changedFd.Get(), &one, sizeof one));
    changed.notify_all();
  }
  /// Take lines of one stream; empty at the end.
  std::string Take(bool *isError) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return !lines.empty() || closing; });
    std::string batch;
    if (lines.empty()) return batch;
    *isError = lines.front().isError;
    for (; !lines.empty() && lines.front().isError == *isError && batch.size() < kBatchBytes; ++printing) {
      batch += lines.front().text;
      lines.pop_front();
    }
    return batch;
  }
  void Run() {
    while (true) {
      bool isError = false;
      const std::string batch = Take(&isError);
      if (batch.empty()) break;
      (isError ? console->err : console->out) << batch;
      const int result = isError ? (console->err.flush(), kDone) : console->Flush();
      const std::lock_guard lock(mutex);
      bytes -= batch.size();
      printing = 0;
      if (bytes <= kMostBytes / 2) full = false;
      status = result;
      if (status != kDone) break;
      Tell();
    }
    const std::lock_guard lock(mutex);
    ended = true;
    Tell();
  }
};

OutputQueue::OutputQueue(Console *console, std::function<std::string(uint64_t)> refusedLine)
    : state_(std::make_shared<State>()) {
  state_->console = console;
  state_->refusedLine = std::move(refusedLine);
  state_->thread = std::thread([state = state_] { state->Run(); });
}

OutputQueue::~OutputQueue() {
  if (state_->thread.joinable() && !WaitBriefly()) GiveUp();
}

bool OutputQueue::Print(std::string line) {
  const std::lock_guard lock(state_->mutex);
  state_->full = state_->full || state_->bytes >= kMostBytes;
  if (state_->full || state_->ended) {
    ++state_->refused;
    return false;
  }
  state_->PushRefused();
  state_->Push({std::move(line), false});
  return true;
}

void OutputQueue::Say(const std::string &text) {
  const std::lock_guard lock(state_->mutex);
  if (!state_->ended) state_->Push({text + '\n', true});
}

bool OutputQueue::HasRoom() const {
  const std::lock_guard lock(state_->mutex);
  return state_->bytes < kMostBytes / 2;
}

bool OutputQueue::HasFailed() const {
  const std::lock_guard lock(state_->mutex);
  return state_->ended;
}

int OutputQueue::ChangedFd() const {
  return state_->changedFd.Get();
}

void OutputQueue::Noticed() {
  uint64_t count = 0;
  static_cast<void>(!read(state_->changedFd.Get(), &count, sizeof count));
}

int OutputQueue::Finish(const StopSignals &signals) {
  {
    const std::lock_guard lock(state_->mutex);
    state_->PushRefused();
    state_->closing = true;
    state_->changed.notify_all();
  }
  while (!HasFailed() && !signals.Wanted()) {
    pollfd changed{ChangedFd(), POLLIN, 0};
    ppoll(&changed, 1, nullptr, signals.PollMask());
    Noticed();
  }
  if (!WaitBriefly()) GiveUp();
  const std::lock_guard lock(state_->mutex);
  return state_->status;
}

/// Wait for the thread's end. False when it does not come soon.
bool OutputQueue::WaitBriefly() {
  std::unique_lock lock(state_->mutex);
  state_->closing = true;
  state_->changed.notify_all();
  if (!state_->changed.wait_for(lock, kGrace, [this] { return state_->ended; })) return false;
  lock.unlock();
  state_->thread.join();
  return true;
}

void OutputQueue::GiveUp() {
  state_->thread.detach();
  const std::lock_guard lock(state_->mutex);
  state_->status = kFailed;
  state_->console->abandoned = true;
  const size_t left = state_->lines.size() + state_->printing;
  state_->console->TryToFail(std::to_string(left) + " lines were not printed: the output takes nothing");
}

}  // namespace rynctl
