// The HYFS correlator: reports what the kernel's clustered file system and its NFS client observe. It keeps no state;
// volumes' UUIDs, which arrive as nine numbers, are put into text. Its agent's thread.
#include <cstdio>

#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/storage/storageHandlers.h"

namespace rynd {
namespace {

constexpr Fields kOneText = {{ArgType::kStr}, "%p"};
constexpr Fields kTwoTexts = {{ArgType::kStr, ArgType::kStr}, "%p %p"};
constexpr Fields kThreeTexts = {{ArgType::kStr, ArgType::kStr, ArgType::kStr}, "%p %p %p"};
constexpr Fields kFourTexts = {{ArgType::kStr, ArgType::kStr, ArgType::kStr, ArgType::kStr}, "%p %p %p %p"};
constexpr Fields kLockHolders = {{ArgType::kStr, ArgType::kStr, ArgType::kInt, ArgType::kInt, ArgType::kStr},
                                 "%p %p %u %u %p"};
constexpr Fields kTwoValues = {{ArgType::kStr, ArgType::kLong, ArgType::kLong}, "%p %lu %lu"};
constexpr Fields kThreshold = {{ArgType::kStr, ArgType::kLong, ArgType::kLong, ArgType::kLong}, "%p %lu %lu  %lu"};
constexpr Fields kPeriod = {{ArgType::kStr, ArgType::kLong, ArgType::kLong, ArgType::kLong}, "%p %lu %lu %lu"};

constexpr auto kHyfsRows = std::to_array<PostRow>({
    {"ryn.hyfs.error.volume.is.locked", kProblem, kOneText,
     "@&!*@*@(amb.problem.hyfs.error.volume.is.locked)Volume on device %s is locked, possibly because some remote "
     "host encountered an error during a volume operation and could not recover."},
    {"ryn.hyfs.extent.offline", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.hyfs.extent.offline)An attached device %s may be offline. The file system %s is now in a "
     "degraded state. While the datastore is still available, parts of data that reside on the extent that went "
     "offline might be inaccessible."},
    {"ryn.hyfs.extent.online", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.hyfs.extent.online)Device %s backing file system %s came online. This extent was previously "
     "offline. All resources on this device are now available."},
    {"ryn.hyfs.volume.mounted", kAudit, kThreeTexts,
     "@&!*@*@(amb.audit.hyfs.volume.mounted)File system %s on volume %s has been mounted in '%s' mode. The datastore "
     "is now accessible on this host."},
    {"ryn.hyfs.volume.umounted", kAudit, kTwoTexts,
     "@&!*@*@(amb.audit.hyfs.volume.umounted)File system %s on volume %s has been safely un-mounted. The datastore is "
     "no longer accessible on this host."},
    {"ryn.hyfs.ats.support.lost", kProblem, kOneText,
     "@&!*@*@(amb.problem.hyfs.ats.support.lost)ATS-Only HYFS volume '%s' will not be mounted. Host does notsupport "
     "ATS or ATS intialization has failed."},
    {"ryn.hyfs.nfs.mount.failed", kProblem, kFourTexts, "@&!*@*@(amb.problem.hyfs.nfs.mount.failed)%s %s %s %s"},
    {"ryn.hyfs.lock.busy.filename", kProblem, kOneText,
     "@&!*@*@(amb.problem.hyfs.lock.busy.filename)Lock(s) held on file %s by other host(s)"},
    {"ryn.hyfs.lock.busy.filedesc", kProblem, kLockHolders,
     "@&!*@*@(amb.problem.hyfs.lock.busy.filedesc)%s Lock(s) held on a file on volume %s. numHolders: %d. "
     "gblNumHolders: %d. Locking Host(s) MAC: %s."},
    {"ryn.hyfs.sesparse.bloomfilter.disabled", kAudit, kTwoTexts,
     "@&!*@*@(amb.audit.hyfs.sesparse.bloomfilter.disabled)Read IO performance maybe impacted for disk %s: %s"},
});
constexpr auto kHyfsNfsRows = std::to_array<PostRow>({
    {"ryn.hyfs.nfs.volume.io.latency.high", kProblem, kTwoValues,
     "@&!*@*@(amb.problem.hyfs.nfs.volume.io.latency.high)%s %lu %lu"},
    {"ryn.hyfs.nfs.volume.io.latency.improved", kClear, kTwoValues,
     "@&!*@*@(amb.clear.hyfs.nfs.volume.io.latency.improved)%s %lu %lu"},
    {"ryn.hyfs.nfs.volume.io.latency.high.exceed.threshold", kProblem, kThreshold,
     "@&!*@*@(amb.problem.hyfs.nfs.volume.io.latency.high.exceed.threshold)%s %lu %lu %lu"},
    {"ryn.hyfs.nfs.volume.io.latency.exceed.threshold.period", kProblem, kPeriod,
     "@&!*@*@(amb.problem.hyfs.nfs.volume.io.latency.exceed.threshold.period)%s %lu %lu %lu"},
    {"ryn.hyfs.nfs.volume.no.space", kProblem, kOneText,
     "@&!*@*@(amb.problem.hyfs.nfs.volume.no.space)%s: No space on NFS volume."},
    {"ryn.hyfs.nfs.hyknic.removed", kProblem, kThreeTexts,
     "@&!*@*@(amb.problem.hyfs.nfs.hyknic.removed)hyknic %s removed, NFS%s datastore %s configured with the hyknic "
     "will be inaccessible."},
});
constexpr EventMessage kSpanState = {
    kProblem,
    "@&!*@*@(amb.problem.hyfs.spanstate.incompatibility.detected)Incompatible span change detected for HYFS volume "
    "'%s' (%s): volume was not spanned at time of open but now it is, and this host is using ATS-only lockmode but "
    "the volume is not ATS-only. Volume descriptor refresh operations will fail until this host unmounts and remounts "
    "the volume."};
constexpr EventMessage kAtsIncompatible = {
    kProblem,
    "@&!*@*@(amb.problem.hyfs.ats.incompatibility.detected)Multi-extent ATS-only volume '%s' (%s) is unable to use "
    "ATS because HardwareAcceleratedLocking is disabled on this host: potential for introducing filesystem "
    "corruption. Volume should not be used from other hosts."};
constexpr EventMessage kLockMode = {
    kProblem,
    "@&!*@*@(amb.problem.hyfs.lockmode.inconsistency.detected)Inconsistent lockmode change detected for HYFS volume "
    "'%s' (%s): volume was configured for %s lockmode at time of open and now it is configured for %s lockmode but "
    "this host is not using %s lockmode. Protocol error during ATS transition. Volume descriptor refresh operations "
    "will fail until this host unmounts and remounts the volume."};
constexpr EventMessage kSpannedLockMode = {
    kProblem,
    "@&!*@*@(amb.problem.hyfs.spanned.lockmode.inconsistency.detected)Inconsistent lockmode change detected for "
    "spanned HYFS volume '%s' (%s): volume was configured for %s lockmode at time of open and now it is configured "
    "for %s lockmode but this host is not using %s lockmode. All operations on this volume will fail until this host "
    "unmounts and remounts the volume."};
constexpr EventMessage kHeartbeatTimedOut = {kProblem, "@&!*@*@(amb.problem.hyfs.heartbeat.timedout)%s %s"};
constexpr EventMessage kHeartbeatRecovered = {kProblem, "@&!*@*@(amb.problem.hyfs.heartbeat.recovered)%s %s"};
constexpr EventMessage kJournalCreateFailed = {kProblem, "@&!*@*@(amb.problem.hyfs.journal.createfailed)%s %s"};
constexpr EventMessage kHeartbeatUnrecoverable = {kProblem, "@&!*@*@(amb.problem.hyfs.heartbeat.unrecoverable)%s %s"};
constexpr EventMessage kMetadataCorrupt = {kProblem, "@&!*@*@(amb.problem.hyfs.metadata.corruptondisk)%s %s"};
constexpr EventMessage kServerDisconnect = {kProblem, "@&!*@*@(amb.problem.hyfs.nfs.server.disconnect)%s %s %s %s"};
constexpr EventMessage kServerRestored = {kClear, "@&!*@*@(amb.clear.hyfs.nfs.server.restored)%s %s %s %s"};
constexpr EventMessage kHyfsMessages[] = {kSpanState,           kAtsIncompatible,        kLockMode,
                                          kSpannedLockMode,     kHeartbeatTimedOut,      kHeartbeatRecovered,
                                          kJournalCreateFailed, kHeartbeatUnrecoverable, kMetadataCorrupt,
                                          kServerDisconnect,    kServerRestored};
constexpr auto kAllRows = JoinRows(kHyfsRows, kHyfsNfsRows);
static_assert(kAllRows.size() == 16);
static_assert(UniqueIds(kAllRows));

/// The texts that an observation carries in front of and behind a volume's UUID, and the UUID's text.
template <size_t kTexts>
struct VolumeFields {
  std::array<const char *, kTexts> texts{};
  char uuid[36] = {};
};

template <size_t kTexts, size_t... kFront, size_t... kRear>
bool Extract(const Observation *observation, const char *format, VolumeFields<kTexts> *fields,
             std::index_sequence<kFront...> /*front*/, std::index_sequence<kRear...> /*rear*/) {
  uint32_t first = 0;
  uint32_t second = 0;
  uint16_t third = 0;
  uint8_t bytes[6] = {};
  const int status =
      Ryn_GetArgs(observation, format, &fields->texts[kFront]..., &first, &second, &third, &bytes[0], &bytes[1],
                  &bytes[2], &bytes[3], &bytes[4], &bytes[5], &fields->texts[sizeof...(kFront) + kRear]...);
  if (status != 0) return false;
  snprintf(fields->uuid, sizeof fields->uuid, "%08x-%08x-%04hx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx", first, second,
           third, bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]);
  return true;
}

/// Read `fields` with `format`, `kFront` of the texts standing in front of the UUID. False when one can't be read.
template <size_t kFront, size_t kTexts>
bool ReadVolume(const Observation *observation, const char *format, VolumeFields<kTexts> *fields) {
  return Extract(observation, format, fields, std::make_index_sequence<kFront>(),
                 std::make_index_sequence<kTexts - kFront>());
}

template <const EventMessage &kMessage>
void OnVolume(Observation *observation) {
  VolumeFields<1> volume;
  if (!ReadVolume<1>(observation, "%p%08x-%08x-%04hx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx", &volume)) return;
  PostMessage<kMessage>(volume.texts[0], static_cast<const char *>(volume.uuid));
}

template <const EventMessage &kMessage>
void OnLockMode(Observation *observation) {
  VolumeFields<4> volume;
  if (!ReadVolume<1>(observation, "%p%08x-%08x-%04hx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx%p %p %p", &volume)) return;
  const auto &[name, atOpen, now, thisHost] = volume.texts;
  PostMessage<kMessage>(name, static_cast<const char *>(volume.uuid), atOpen, now, thisHost);
}

/// An id of a handler that several share, and what posts its event.
template <typename... Texts>
struct Choice {
  const char *id;
  void (*post)(Texts...);
};

/// Post the first of `choices` that the observation's id is; another id was sent here by mistake.
template <typename... Texts, size_t kSize>
void PostChoice(const std::array<Choice<Texts...>, kSize> &choices, const char *id, int line, Texts... texts) {
  for (const Choice<Texts...> &choice : choices) {
    if (Ryn_IsID(id, choice.id)) return choice.post(texts...);
  }
  Panic("NOT_REACHED %s:%d \n", "apps/rynd/ryndHyfsCorrelator", line);
}

using HeartbeatChoice = Choice<const char *, const char *>;
// Kept: a heartbeat that has recovered is a problem, as those that it ends.
constexpr auto kHeartbeatChoices = std::to_array<HeartbeatChoice>({
    {"ryn.hyfs.heartbeat.timedout", PostMessage<kHeartbeatTimedOut, const char *, const char *>},
    {"ryn.hyfs.heartbeat.recovered", PostMessage<kHeartbeatRecovered, const char *, const char *>},
    {"ryn.hyfs.journal.createfailed", PostMessage<kJournalCreateFailed, const char *, const char *>},
    {"ryn.hyfs.heartbeat.unrecoverable", PostMessage<kHeartbeatUnrecoverable, const char *, const char *>},
    {"ryn.hyfs.metadata.corruptondisk", PostMessage<kMetadataCorrupt, const char *, const char *>},
});

void OnHeartbeat(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  VolumeFields<1> volume;
  if (!ReadVolume<0>(observation, "%08x-%08x-%04hx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx%p", &volume)) return;
  PostChoice<const char *, const char *>(kHeartbeatChoices, id, 149, volume.uuid, volume.texts[0]);
}

using ServerChoice = Choice<const char *, const char *, const char *, const char *>;
constexpr auto kServerChoices = std::to_array<ServerChoice>({
    {"ryn.hyfs.nfs.server.disconnect",
     PostMessage<kServerDisconnect, const char *, const char *, const char *, const char *>},
    {"ryn.hyfs.nfs.server.restored",
     PostMessage<kServerRestored, const char *, const char *, const char *, const char *>},
});

void OnNfsServer(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  VolumeFields<3> volume;
  if (!ReadVolume<2>(observation, "%p %p%08x-%08x-%04hx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx%p", &volume)) return;
  PostChoice<const char *, const char *, const char *, const char *>(kServerChoices, id, 816, volume.texts[0],
                                                                     volume.texts[1], volume.uuid, volume.texts[2]);
}

}  // namespace

std::span<const PostRow> HyfsPostRows() {
  return kAllRows;
}

std::span<const EventMessage> HyfsMessages() {
  return kHyfsMessages;
}

HandlerTable HyfsHandlers() {
  HandlerTable table;
  AddPostRows<kHyfsRows>(&table);
  AddPostRows<kHyfsNfsRows, LogNotCorrelated>(&table);
  table["ryn.hyfs.spanstate.incompatibility.detected"] = OnVolume<kSpanState>;
  table["ryn.hyfs.ats.incompatibility.detected"] = OnVolume<kAtsIncompatible>;
  table["ryn.hyfs.lockmode.inconsistency.detected"] = OnLockMode<kLockMode>;
  table["ryn.hyfs.spanned.lockmode.inconsistency.detected"] = OnLockMode<kSpannedLockMode>;
  for (const HeartbeatChoice &choice : kHeartbeatChoices) table[choice.id] = OnHeartbeat;
  for (const ServerChoice &choice : kServerChoices) table[choice.id] = OnNfsServer;
  return table;
}

void RyndHyfsCorrelator() {
  RunCorrelator("hyfs", "hyfs", FetchIdOnly, HyfsHandlers());
}

}  // namespace rynd
