// Decides what has to be told, and sends it without ever waiting for the daemon. One thread; told the time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sink/daemonLink.h"
#include "sink/ledger.h"
#include "sink/outbox.h"
#include "sink/report.h"

namespace rynlinuxd {

class Sink : public Reporter {
 public:
  static constexpr int64_t kReconnectNs = 1'000'000'000;

  /// `ledger` is borrowed. `retell` has every source tell its states again. With `dryRun` lines on standard output
  /// take the place of the daemon, and nothing is written anywhere.
  Sink(Ledger *ledger, std::function<void()> retell, bool dryRun)
      : ledger_(ledger), retell_(std::move(retell)), dryRun_(dryRun) {}

  /// Tell `report`, or find that it was told already.
  void Tell(Report report) override;
  /// Connect, or connect again.
  void Connect(int64_t nowNs);
  /// Send what waits, as far as the daemon takes it.
  void Flush();
  /// The daemon's socket or its folder has something to say.
  void Ready(int fd, int64_t nowNs);

  /// What is to be waited for: the socket's room while `WantsRoom`, the notifier always. -1 for none.
  int Socket() const { return link_.Socket(); }
  bool WantsRoom() const { return link_.IsConnected() && !outbox_.Empty(); }
  int Notifier() const { return link_.Notifier(); }
  /// When to call Connect() again; INT64_MAX: not at all.
  int64_t Due() const;
  /// Whether everything that was told has been sent.
  bool IsSent() const { return outbox_.Empty(); }
  /// Whether everything that was told has been read by the daemon.
  bool IsTaken() const { return dryRun_ || (outbox_.Empty() && link_.Unread() == 0); }

 private:
  void Send();
  void Print(const Report &report) const;

  Ledger *const ledger_;
  const std::function<void()> retell_;
  const bool dryRun_;
  DaemonLink link_;
  Outbox outbox_;
  uint64_t sequence_ = 0;
  int64_t reconnectNs_ = 0;
};

}  // namespace rynlinuxd
