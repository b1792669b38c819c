#include "loop/eventLoop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "hosted/log/log.h"
#include "sink/clock.h"

namespace rynlinuxd {
namespace {

/// Changes of the ledger are gathered for so long.
constexpr int64_t kSaveNs = kSecondNs;
/// What the daemon is given at the end to take what it was told, and then to act upon it.
constexpr int64_t kFinishNs = kSecondNs;
constexpr int64_t kActNs = kSecondNs / 5;

void Pause(int64_t ns) {
  const timespec time{0, static_cast<long>(ns)};
  nanosleep(&time, nullptr);
}

}  // namespace

/// Hands a source's wishes on.
class EventLoop::SourceHost : public Host {
 public:
  SourceHost(EventLoop *loop, Source *source) : loop_(loop), source_(source) {}
  int Watch(int fd, uint32_t events) override { return loop_->Register(fd, events, source_); }
  const Options &GetOptions() const override { return loop_->options_; }
  const Ledger &GetLedger() const override { return *loop_->ledger_; }
  void Tell(Report report) override { loop_->sink_.Tell(std::move(report)); }

 private:
  EventLoop *const loop_;
  Source *const source_;
};

EventLoop::EventLoop(const Options &options, Ledger *ledger)
    : options_(options),
      ledger_(ledger),
      sink_(
          ledger,
          [this] {
            const int64_t nowNs = MonotonicNs();
            for (const auto &source : sources_) source->Retell(nowNs);
          },
          options.dryRun || options.action == Options::Action::kCheck),
      epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT}) sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  signals_.Reset(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
  Register(signals_.Get(), EPOLLIN, nullptr);
}

EventLoop::~EventLoop() = default;

int EventLoop::Register(int fd, uint32_t events, Source *source) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) != 0) {
    if (errno != EEXIST || epoll_ctl(epoll_.Get(), EPOLL_CTL_MOD, fd, &event) != 0) return errno;
  }
  owners_[fd] = source;
  return 0;
}

std::vector<SourceState> EventLoop::Start(std::vector<std::unique_ptr<Source>> sources) {
  sink_.Connect(MonotonicNs());
  std::vector<SourceState> states;
  for (auto &source : sources) {
    hosts_.push_back(std::make_unique<SourceHost>(this, source.get()));
    std::string reason;
    const int error = source->Start(hosts_.back().get(), MonotonicNs(), &reason);
    states.push_back({source->Name(), error, reason});
    if (error == 0) {
      sources_.push_back(std::move(source));
    } else {
      std::erase_if(owners_, [&](const auto &entry) { return entry.second == source.get(); });
    }
  }
  return states;
}

/// The sink's descriptors come and go.
void EventLoop::WatchSink() {
  const int socket = sink_.WantsRoom() ? sink_.Socket() : -1;
  if (socket != sinkSocket_) {
    if (sinkSocket_ >= 0) epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, sinkSocket_, nullptr);
    sinkSocket_ = socket;
  }
  // Registered anew: the number may stand for another socket by now.
  if (socket >= 0) Register(socket, EPOLLOUT, nullptr);
  if (sink_.Notifier() != sinkNotifier_) sinkNotifier_ = sink_.Notifier();
  if (sinkNotifier_ >= 0) Register(sinkNotifier_, EPOLLIN, nullptr);
}

int64_t EventLoop::NextDue(int64_t nowNs) {
  if (ledger_->IsDirty() && saveNs_ == kNever) saveNs_ = nowNs + kSaveNs;
  int64_t due = std::min(sink_.Due(), saveNs_);
  for (const auto &source : sources_) due = std::min(due, source->Due());
  return due;
}

void EventLoop::ServeDue() {
  const int64_t nowNs = MonotonicNs();
  if (sink_.Due() <= nowNs) sink_.Connect(nowNs);
  for (const auto &source : sources_) {
    if (source->Due() <= nowNs) source->OnDue(nowNs);
  }
  if (saveNs_ <= nowNs) {
    ledger_->Save();
    saveNs_ = kNever;
  }
}

bool EventLoop::TakeSignals() {
  bool isStop = false;
  signalfd_siginfo info;
  while (read(signals_.Get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    isStop = true;
  }
  return isStop;
}

void EventLoop::Serve(int fd, uint32_t events) {
  const auto found = owners_.find(fd);
  if (fd == signals_.Get()) {
    isStopped_ = TakeSignals() || isStopped_;
  } else if (fd == sinkSocket_ || fd == sinkNotifier_) {
    sink_.Ready(fd, MonotonicNs());
  } else if (found != owners_.end() && found->second != nullptr) {
    found->second->Ready(fd, events, MonotonicNs());
  }
}

int EventLoop::Run() {
  constexpr int kMostEvents = 32;
  epoll_event events[kMostEvents];
  while (!isStopped_) {
    WatchSink();
    int64_t nowNs = MonotonicNs();
    const int64_t due = NextDue(nowNs);
    int waitMs = -1;
    if (due != kNever) {
      constexpr int64_t kMillisecondNs = 1'000'000, kLongestMs = 86'400'000;
      waitMs =
          static_cast<int>(std::clamp<int64_t>((due - nowNs + kMillisecondNs - 1) / kMillisecondNs, 0, kLongestMs));
    }
    const int count = epoll_wait(epoll_.Get(), events, kMostEvents, waitMs);
    if (count < 0 && errno != EINTR) {
      const int error = errno;
      hosted::Log("Cannot wait: %s", std::strerror(error));
      return error;
    }
    for (int i = 0; i < count; ++i) Serve(events[i].data.fd, events[i].events);
    ServeDue();
  }
  return 0;
}

void EventLoop::Finish() {
  for (const auto &source : sources_) source->OnStop();
  const int64_t startNs = MonotonicNs();
  bool hasWaited = false;
  while (!sink_.IsTaken() && MonotonicNs() - startNs < kFinishNs) {
    sink_.Flush();
    constexpr int64_t kLookNs = 10'000'000;
    Pause(kLookNs);
    hasWaited = true;
  }
  // Taken is not yet acted upon, and the daemon may be the next to be stopped.
  if (hasWaited) Pause(kActNs);
  ledger_->Save();
}

}  // namespace rynlinuxd
