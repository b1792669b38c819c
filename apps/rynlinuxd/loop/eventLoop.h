// The loop: one epoll for all descriptors, and the next time that anything is due.
#pragma once

#include <csignal>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "loop/options.h"
#include "loop/source.h"
#include "sink/ledger.h"
#include "sink/sink.h"

namespace rynlinuxd {

/// How one source started.
struct SourceState {
  const char *name;
  int error;           ///< 0: it watches
  std::string reason;  ///< why it does not
};

class EventLoop {
 public:
  EventLoop(const Options &options, Ledger *ledger);
  ~EventLoop();

  /// Start each source; those that fail are left out. The sink is connected first, so that what they find is told.
  std::vector<SourceState> Start(std::vector<std::unique_ptr<Source>> sources);
  /// Serve until SIGTERM or SIGINT, which are blocked. 0, or the errno value of what ended it.
  int Run();
  /// Have each source say its last, and wait a little for the daemon to take it.
  void Finish();

 private:
  class SourceHost;
  int Register(int fd, uint32_t events, Source *source);
  int64_t NextDue(int64_t nowNs);
  void ServeDue();
  void Serve(int fd, uint32_t events);
  void WatchSink();
  bool TakeSignals();

  const Options &options_;
  Ledger *const ledger_;
  Sink sink_;
  base::UniqueFd epoll_, signals_;
  std::map<int, Source *> owners_;  ///< null: the sink's
  std::vector<std::unique_ptr<SourceHost>> hosts_;
  std::vector<std::unique_ptr<Source>> sources_;
  int sinkSocket_ = -1, sinkNotifier_ = -1;
  int64_t saveNs_ = kNever;
  bool isStopped_ = false;
};

}  // namespace rynlinuxd
