#include "correlators/network/uplinkHandlers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "core/basics/timerThread.h"
#include "correlators/network/linkFlapping.h"
#include "correlators/network/uplinkMonitor.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

// Read end and write end. Written before the timer is armed for the first time, never closed.
int wakePipe[2] = {-1, -1};

/// On the timer thread.
void TimerWake() {
  constexpr char kTick[4] = "foo";
  // The write end does not block: a full pipe wakes the correlator as well.
  static_cast<void>(!write(wakePipe[1], kTick, sizeof kTick));
}

/// The timer's identity, or -1.
int UplinkTimerId() {
  static const int id = RegisterTimer("uplinks", TimerWake);
  return id;
}

/// Never destroyed: the agent's thread may outlive main().
UplinkMonitor &Monitor() {
  static UplinkMonitor *const monitor = new UplinkMonitor(UplinkTimerId());
  return *monitor;
}
LinkFlapDetector &FlapDetector() {
  static LinkFlapDetector *const detector = new LinkFlapDetector;
  return *detector;
}

/// Read string argument `index`; a null one is the text that stands for it in events.
bool ReadText(const Observation *observation, uint32_t index, std::string *text) {
  const char *value = nullptr;
  if (Ryn_GetStringArg(observation, index, &value) != 0) return false;
  *text = value == nullptr ? "(null)" : value;
  return true;
}

/// Let the statistics show which uplinks are silent.
void ShowWatchedUplinks() {
  std::vector<WaitingUplink> shown;
  const int64_t nowNs = MonotonicNs();
  for (const auto &[uplink, sinceNs] : Monitor().WatchedSince()) {
    shown.push_back({uplink, WallClockUs() - static_cast<uint64_t>(nowNs - sinceNs) / 1000});
  }
  SetWaitingUplinks(std::move(shown));
}

/// The arguments of a port group's transition. The last one is read and of no use.
struct PortGroupArguments {
  std::string uplink, portGroup;
  int32_t remaining = 0, second = 0;
  bool Read(const Observation *observation) {
    return ReadText(observation, 0, &uplink) && ReadText(observation, 1, &portGroup) &&
           Ryn_GetIntArg(observation, 2, &remaining) == 0 && Ryn_GetIntArg(observation, 3, &second) == 0;
  }
};

/// The arguments of a distributed port's transition that both directions have.
struct DVPortArguments {
  std::string uplink;
  UplinkPort port;
  int32_t remaining = 0;
  bool Read(const Observation *observation) {
    return ReadText(observation, 0, &uplink) && ReadText(observation, 1, &port.name) &&
           ReadText(observation, 2, &port.switchName) && Ryn_GetIntArg(observation, 3, &remaining) == 0;
  }
};

void OnPortGroupUplinkDown(Observation *observation) {
  PortGroupArguments args;
  if (!args.Read(observation)) return;
  Monitor().PortGroupUplinkDown(args.uplink, args.portGroup, args.remaining, MonotonicNs());
}

void OnPortGroupUplinkUp(Observation *observation) {
  PortGroupArguments args;
  if (!args.Read(observation)) return;
  Monitor().PortGroupUplinkUp(args.uplink, args.portGroup, args.remaining, MonotonicNs());
}

void OnDVPortUplinkDown(Observation *observation) {
  DVPortArguments args;
  int32_t second = 0;  // read and of no use, as that of a port group
  if (!args.Read(observation) || Ryn_GetIntArg(observation, 4, &second) != 0) return;
  Monitor().DVPortUplinkDown(args.uplink, args.port, args.remaining, MonotonicNs());
}

void OnDVPortUplinkUp(Observation *observation) {
  DVPortArguments args;
  if (!args.Read(observation)) return;
  Monitor().DVPortUplinkUp(args.uplink, args.port, args.remaining, MonotonicNs());
}

void OnHynicLinkDown(Observation *observation) {
  std::string uplink;
  if (!ReadText(observation, 0, &uplink)) return;
  FlapDetector().CheckLinkFlapping(uplink, WindowClockS());
  Monitor().HynicLinkDown(uplink, MonotonicNs());
}

void OnHynicLinkUp(Observation *observation) {
  std::string uplink;
  if (!ReadText(observation, 0, &uplink)) return;
  Monitor().HynicLinkUp(uplink, MonotonicNs());
}

void OnUplinkWatchdogTimeout(Observation *observation) {
  std::string uplink;
  if (!ReadText(observation, 0, &uplink)) return;
  Monitor().UplinkWatchdogTimeout(uplink, MonotonicNs());
  ShowWatchedUplinks();
}

}  // namespace

void AddUplinkHandlers(HandlerTable *table) {
  (*table)["ryn.net.pg.uplink.transition.down"] = OnPortGroupUplinkDown;
  (*table)["ryn.net.pg.uplink.transition.up"] = OnPortGroupUplinkUp;
  (*table)["ryn.net.dvport.uplink.transition.down"] = OnDVPortUplinkDown;
  (*table)["ryn.net.dvport.uplink.transition.up"] = OnDVPortUplinkUp;
  (*table)["ryn.net.hynic.linkstate.up"] = OnHynicLinkUp;
  (*table)["ryn.net.hynic.linkstate.down"] = OnHynicLinkDown;
  (*table)["ryn.net.uplink.watchdog.timeout"] = OnUplinkWatchdogTimeout;
}

bool RegisterUplinkTimer() {
  return UplinkTimerId() != -1;
}

int OpenUplinkWakePipe() {
  if (pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    Panic("Failed to initialize pipes for this thread: %s\n", strerror(errno));
  }
  return wakePipe[0];
}

void OnUplinkTimeout() {
  const size_t watched = Monitor().WatchedSince().size();
  Monitor().OnUplinkTimeout(MonotonicNs());
  if (Monitor().WatchedSince().size() != watched) ShowWatchedUplinks();
}

}  // namespace rynd
