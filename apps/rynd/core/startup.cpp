#include "core/startup.h"

#include <malloc.h>
#include <poll.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "core/agents/stream.h"
#include "core/basics/log.h"
#include "core/basics/signals.h"
#include "core/basics/statistics.h"
#include "core/basics/timerThread.h"
#include "core/contexts.h"
#include "core/fanOut.h"
#include "core/feed/statisticsReport.h"
#include "core/feed/traceFeed.h"
#include "core/feed/traceSocket.h"
#include "core/options.h"
#include "core/pollLoop.h"
#include "core/serviceNotify.h"
#include "platform/flight.h"
#include "platform/hsi.h"
#include "post/ryndKprobQueue.h"

namespace rynd {
namespace {

constexpr int kOutOfMemory = 12;

struct FreeList {
  void operator()(HSI_ParamList *list) const { HSI_ParamListDestroy(list); }
};
using ParamList = std::unique_ptr<HSI_ParamList, FreeList>;

/// Everything that the shutdown path releases, and what is known of the start.
struct Daemon {
  ContextTable contexts = MakeContextTable();
  std::unique_ptr<pollfd[]> fixedSet;
  std::unique_ptr<pollfd[]> loopSet;
  bool isWhole = false;  ///< the timer thread and every agent run
};

/// The daemon must have been built for the running kernel.
void CheckSignature() {
  char kernelDate[kHsiBuildDateSize] = "";
  const char *ownDate = "";
  if (HSI_CheckSig(kernelDate, sizeof kernelDate, &ownDate) != 0) {
    Panic("md5 signature mismatch with running hykernel built on %s (my build date: %s)\n", kernelDate, ownDate);
  }
}

/// Switch the kernel to asynchronous observations. 0 or an errno value.
int EnableRyns() {
  const ParamList option(HSI_ParamListCreate());
  const ParamList value(HSI_ParamListCreate());
  HYK_ReturnStatus status = option == nullptr || value == nullptr ? kHykNoMemory : kHykOk;
  if (status == kHykOk) status = HSI_ParamListAddString(option.get(), "Misc");
  if (status == kHykOk) status = HSI_ParamListAddString(option.get(), "RynAsyncEnable");
  if (status == kHykOk) status = HSI_ParamListAddInt(value.get(), 1);
  if (status == kHykOk) status = HSI_Set("config/intOpts", option.get(), value.get());
  return HYK_ReturnStatusToErrno(status);
}

/// Everything from the signal handlers to the read buffer, in order. 0, or the return code to end with.
int SetUp(const Options &options, std::span<const AgentFunction> table, Daemon *daemon) {
  if (const int status = InstallSignalHandlers(); status != 0) return status;
  Hyk_FlightStart(RYND_VERSION);
  const int timerStatus = StartTimerThread();
  if (timerStatus != 0)
    Log("Cannot start the timer thread: %s. Nothing settles and nothing is retried.\n", strerror(timerStatus));
  CheckSignature();
  EventPostInit();
  if (options.enableRyns) {
    if (const int status = EnableRyns(); status != 0) return status;
  }
  daemon->fixedSet.reset(new (std::nothrow) pollfd[kFixedSlots]);
  if (daemon->fixedSet == nullptr) return 1;
  if (const int status = OpenContexts(&daemon->contexts, daemon->fixedSet.get()); status != 0) {
    daemon->fixedSet.reset();
    return status;
  }
  daemon->fixedSet[kTraceSlot] = {OpenTraceSocket(), POLLIN, 0};
  if (const int status = StreamListInit(); status != 0) return status;
  if (!PrepareToStopAgents()) {
    Log("Error loading what ends threads. Out of memory\n");
    return kOutOfMemory;
  }
  StartAgents(table);
  const size_t alive = AgentsAlive();
  if (alive < table.size()) Log("%zu of %zu agents run.\n", alive, table.size());
  daemon->isWhole = timerStatus == 0 && alive == table.size();
  if (!AllocateReadBuffer()) {
    Log("Error allocating space for ryn buffer. Out of memory\n");
    return kOutOfMemory;
  }
  return 0;
}

/// Run the poll loop on the large set, or on the fixed one, which has no room for connections, without memory.
int Poll(Daemon *daemon) {
  daemon->loopSet.reset(new (std::nothrow) pollfd[kAllSlots]);
  if (daemon->loopSet == nullptr) return PollLoop(daemon->fixedSet.get(), kFixedSlots, daemon->contexts).Run();
  std::fill_n(daemon->loopSet.get(), kAllSlots, pollfd{-1, POLLIN, 0});
  std::copy_n(daemon->fixedSet.get(), kFixedSlots, daemon->loopSet.get());
  return PollLoop(daemon->loopSet.get(), kAllSlots, daemon->contexts).Run();
}

/// Agents allocate little and seldom at once: an arena each, the C library's way, is slower to start.
void LimitArenas() {
#ifdef __GLIBC__
  constexpr int kArenas = 4;
  mallopt(M_ARENA_MAX, kArenas);
#endif
}

}  // namespace

int Run(int argc, char **argv, std::span<const AgentFunction> table) {
  Daemon daemon;
  const Options options = ParseOptions(argc, argv);
  if (options.usageShown) return 0;
  BlockSignals();
  LimitArenas();
  StatisticsStart(table.size());
  int rc = 0;
  try {
    Feed();  // it takes memory, and the poll loop has none to lose
    rc = SetUp(options, table, &daemon);
  } catch (const std::bad_alloc &) {
    rc = kOutOfMemory;
  }
  // Kept: also said when the set-up failed; what follows says how it ended.
  Log("rynd setup completed. Start polling loop.\n");
  if (rc == 0 && daemon.isWhole) NotifyService("READY=1");
  if (rc == 0) rc = Poll(&daemon);
  NotifyService("STOPPING=1");
  StopAgents();
  daemon.loopSet.reset();
  daemon.fixedSet.reset();
  CloseTraceSocket();
  CloseContexts(daemon.contexts);
  Hyk_FlightStop(rc);
  Log("Exiting. rc:%d\n", rc);
  return rc;
}

}  // namespace rynd
