// Sequences of observations through every correlator, on a clock, timers and a host tree that the input rules: each
// event that is posted must decode and stand in the catalogue. What correlators remember lasts from input to input.
// The runner, the clock, the timer thread and the delivery are replaced here. One thread.
#include <fuzzer/FuzzedDataProvider.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "core/basics/clock.h"
#include "core/basics/timerThread.h"
#include "correlators/agentTable.h"
#include "eventRecord/eventDecoder.h"
#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "platform/ryn.h"
#include "post/mgmtdSocket.h"
#include "post/ryndKprobQueue.h"
#include "testing/recordedAgents.h"

namespace rynd {
namespace {

struct Timer {
  TimerCallback callback;
  int64_t intervalS = 0;  ///< 0: not armed
};
std::vector<Timer> timers;

int64_t nowNs = 1'700'000'000 * kNsPerSecond;
int64_t wallStepNs = 0;
bool isDelivering = true;

}  // namespace

void DispatchObservation(Handler defaultHandler, HandlerTable *table, Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  HandlerTable copy = *table;  // a row that the look-up inserts refers to the observation's own id
  const Handler handler = copy[id];
  try {
    (handler == nullptr ? defaultHandler : handler)(observation);
  } catch (const std::exception &) {  // as the runner does
  }
}

int64_t MonotonicNs() {
  return nowNs;
}
int64_t WallClockS() {
  return (nowNs + wallStepNs) / kNsPerSecond;
}
uint64_t WallClockUs() {
  return static_cast<uint64_t>(nowNs + wallStepNs) / 1000;
}
int64_t WindowClockS() {
  static NeverSetBack clock;
  return clock.NowS(nowNs + wallStepNs, nowNs);
}

int StartTimerThread() {
  return 0;
}
int RegisterTimer(const char * /*name*/, TimerCallback callback) {
  timers.push_back({callback});
  return static_cast<int>(timers.size()) - 1;
}
int ArmTimer(int id, uint32_t /*periodic*/, int64_t intervalS, int64_t *dueS) {
  timers.at(static_cast<size_t>(id)).intervalS = intervalS;
  if (dueS != nullptr) *dueS = nowNs / kNsPerSecond + intervalS;
  return 0;
}

int SendToMgmtd(const std::byte *record, size_t length) {
  if (!isDelivering) return -1;
  const eventrecord::DecodedEvent event = eventrecord::DecodeEvent(record, length);
  if (!event.problems.empty() || catalog::FindEvent(event.name) == nullptr) {
    fprintf(stderr, "%s: %s\n", event.name.c_str(), event.problems.empty() ? "unknown" : event.problems[0].c_str());
    abort();
  }
  return 0;
}

}  // namespace rynd

namespace {

using hosted::ArgumentKind;

/// Names that handlers look up, and files that they look them up in.
constexpr const char *kNames[] = {"naa.1", "vmhba0:C0:T0:L0", "hynic0", "hynic1", "vswitch0",
                                  "vol1",  "mgmtd",           "1",      "2",      "/hyfs/volumes/vol1/vm/vm.vmx"};
constexpr const char *kFiles[] = {"sysinfo/config/intOpts/Net/LinkFlappingThreshold",
                                  "sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold",
                                  "sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod",
                                  "sysinfo/system/buildSignature",
                                  "sysinfo/system/ntpclock/rynReportInterval",
                                  "sysinfo/system/pageRetire/MPNStatus/1",
                                  "sysinfo/hardware/cpu/cpuInfo",
                                  "sysinfo/hardware/cpu/vendor",
                                  "sysinfo/sched/offline/enabled",
                                  "sysinfo/vm/vmmGroupInfo/1",
                                  "storage/devices/naa.1/redundancy",
                                  "storage/devices/naa.1/disk",
                                  "storage/devices/naa.1/partitions/1",
                                  "storage/paths/vmhba0:C0:T0:L0",
                                  "storage/filesystems/vol1",
                                  "storage/swap/reconfigure",
                                  "net/portgroups/vswitch0",
                                  "net/switches/vswitch0/ports/1",
                                  "vms/1"};
constexpr const char *kTexts[] = {
    "naa.1", "0", "1", "2", "100", "GenuineIntel", "AuthenticAMD", "ok", "vol1 /hyfs/volumes/vol1"};

std::string Text(FuzzedDataProvider *input) {
  if (input->ConsumeIntegral<uint8_t>() >= 32) return input->PickValueInArray(kNames);
  return input->ConsumeRandomLengthString(200);
}

hosted::RawRecord Record(FuzzedDataProvider *input, const std::string &id) {
  hosted::RawRecord record{0, input->ConsumeIntegral<uint64_t>(), id, "a message", {}};
  // As the catalogue says, with some of it otherwise.
  const catalog::Observation *known = catalog::FindObservation(id);
  const size_t count = known == nullptr || input->ConsumeIntegral<uint8_t>() < 32
                           ? input->ConsumeIntegralInRange<size_t>(0, 10)
                           : known->arguments.size();
  for (size_t i = 0; i < count; ++i) {
    const bool asKnown = known != nullptr && i < known->arguments.size() && input->ConsumeIntegral<uint8_t>() >= 16;
    const std::string type = asKnown ? known->arguments[i].type : input->ConsumeBool() ? "s" : "i32";
    if (type == "s") {
      record.arguments.push_back({ArgumentKind::kString, 0, 0, Text(input)});
      continue;
    }
    const uint64_t bits =
        input->ConsumeBool() ? input->ConsumeIntegral<uint8_t>() % 4 : input->ConsumeIntegral<uint64_t>();
    const auto width = static_cast<uint8_t>(std::stoi(type.substr(1)) / 8);
    record.arguments.push_back({type[0] == 'u' ? ArgumentKind::kUnsigned : ArgumentKind::kSigned, width, bits, {}});
  }
  return record;
}

void Observe(FuzzedDataProvider *input) {
  rynd::RecordedAgent &agent = rynd::recordedAgents[input->ConsumeIntegral<uint8_t>() % rynd::recordedAgents.size()];
  const auto ids = agent.table.Ids();
  const size_t place = input->ConsumeIntegral<uint16_t>() % (ids.size() + 1);
  const std::string id = place == ids.size() ? "ryn.nobody.knows" : std::string(ids[place]);
  const std::vector<std::byte> bytes = hosted::EncodeRecord(Record(input, id));
  auto *copy = new std::byte[bytes.size()];
  std::copy(bytes.begin(), bytes.end(), copy);
  Observation *observation = nullptr;
  if (Ryn_MakeRyn(copy, bytes.size(), &observation) != 0) {
    delete[] copy;
    return;
  }
  for (unsigned times = input->ConsumeIntegral<uint8_t>() < 16 ? 60 : 1; times > 0; --times) {
    rynd::DispatchObservation(agent.defaultHandler, &agent.table, observation);
  }
  Ryn_Free(observation);
}

/// Let time pass, and call the timers that are due within it.
void Pass(int64_t seconds) {
  rynd::nowNs += seconds * rynd::kNsPerSecond;
  for (rynd::Timer &timer : rynd::timers) {
    if (timer.intervalS == 0 || timer.intervalS > seconds) continue;
    timer.intervalS = 0;
    timer.callback();
  }
  for (const rynd::RecordedAgent &agent : rynd::recordedAgents) {
    pollfd set{agent.extraFd, POLLIN, 0};
    char ticks[10];
    while (agent.extraFd >= 0 && poll(&set, 1, 0) > 0 && read(agent.extraFd, ticks, sizeof ticks) > 0) {
      agent.timerCallback();
    }
  }
}

void ChangeHost(FuzzedDataProvider *input) {
  const std::string path = hosted::RootPath(hosted::kHostTree) + "/" + input->PickValueInArray(kFiles);
  std::error_code error;
  if (input->ConsumeIntegral<uint8_t>() < 32) {
    std::filesystem::remove(path, error);
    return;
  }
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  std::ofstream(path) << (input->ConsumeBool() ? input->PickValueInArray(kTexts)
                                               : input->ConsumeRandomLengthString(100).c_str());
}

bool Start() {
  std::filesystem::remove_all(hosted::RootPath("/var/lib"));
  std::filesystem::create_directories(hosted::RootPath("/hyfs/volumes"));
  std::filesystem::create_directories(hosted::RootPath(hosted::kHostTree) + "/sysinfo/system/pageRetire");
  std::ofstream(hosted::RootPath(hosted::kHostTree) + "/sysinfo/system/pageRetire/threshold") << "2\n";
  rynd::EventPostInit();
  for (const rynd::AgentFunction agent : rynd::AgentTable()) agent();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  [[maybe_unused]] static const bool isStarted = Start();
  FuzzedDataProvider input(data, size);
  rynd::isDelivering = true;
  Pass(120);  // a window of the rate limit, and the retry of what waits
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegral<uint8_t>() % 16) {
      case 0:
        Pass(input.ConsumeIntegralInRange<int64_t>(0, 100));
        break;
      case 1:
        ChangeHost(&input);
        break;
      case 2:
        rynd::isDelivering = input.ConsumeBool();
        break;
      case 3:
        rynd::wallStepNs = input.ConsumeIntegralInRange<int64_t>(-86'400, 86'400) * rynd::kNsPerSecond;
        break;
      default:
        Observe(&input);
    }
  }
  return 0;
}
