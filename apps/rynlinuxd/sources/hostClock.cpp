// The host's clock: what the kernel says of its synchronization, once a second, and that it was set. Needs no right.
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <sys/timex.h>
#include <unistd.h>

#include <cerrno>

#include "base/uniqueFd.h"
#include "models/clockModel.h"
#include "sink/clock.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kPollNs = kSecondNs;

class HostClock : public Source {
 public:
  const char *Name() const override { return "clock"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    model_ = std::make_unique<ClockModel>(host);
    *reason = "the kernel does not say how its clock is kept";
    timer_.Reset(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!timer_) return errno;
    if (const int error = Arm(); error != 0) return error;
    if (const int error = Read(nowNs); error != 0) return error;
    return host->Watch(timer_.Get(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    uint64_t expired = 0;
    if (read(timer_.Get(), &expired, sizeof expired) < 0 && errno == ECANCELED) model_->Stepped(nowNs);
    Arm();
    Read(nowNs);
  }

  int64_t Due() const override { return dueNs_; }
  void OnDue(int64_t nowNs) override { Read(nowNs); }
  void Retell(int64_t /*nowNs*/) override { model_->Retell(); }

 private:
  /// Wait for a time that never comes: the wait is cancelled when the clock is set. 0 or an errno value.
  int Arm() {
    itimerspec never{};
    never.it_value.tv_sec = static_cast<time_t>(WallClockUs() / 1'000'000) + 1'000'000'000;
    return timerfd_settime(timer_.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr) == 0 ? 0 : errno;
  }

  int Read(int64_t nowNs) {
    dueNs_ = nowNs + kPollNs;
    timex state{};
    if (adjtimex(&state) < 0) return errno;
    const timespec now = ReadClock(CLOCK_REALTIME);
    model_->Take({(state.status & STA_UNSYNC) == 0, state.maxerror, now.tv_sec, static_cast<int32_t>(now.tv_nsec)},
                 nowNs);
    return 0;
  }

  base::UniqueFd timer_;
  std::unique_ptr<ClockModel> model_;
  int64_t dueNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakeHostClock() {
  return std::make_unique<HostClock>();
}

}  // namespace rynlinuxd
