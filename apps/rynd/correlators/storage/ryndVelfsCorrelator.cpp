// The velfs correlator: reports trouble of the in-memory root file system and its ramdisks, each once in 300 seconds.
// Its agent's thread.
#include <string>
#include <string_view>

#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/alarmLimiter.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr EventMessage kFailure = {kProblem,
                                   "@&!*@*@(amb.problem.velfs.failure)An operation on the root filesystem has failed."};
constexpr EventMessage kInodeTableFull = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.ramdisk.inodetable.full)The file table of the ramdisk '%s' is full.  As a result, the "
    "file %s could not be created by the application '%s'."};
constexpr EventMessage kRamdiskWarning = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.ramdisk.usage.warning)Ramdisk '%s' usage is very high. Approx %s%% space left."};
constexpr EventMessage kConfigstoreWarning = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.configstore.usage.warning)Ramdisk '%s' usage is very high. Approx %s%% space left. "
    "Please refer to the KB 93362 for more details."};
constexpr EventMessage kRamdiskFull = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.ramdisk.full)The ramdisk '%s' is full.  As a result, the file %s could not be written."};
constexpr EventMessage kRamdiskError = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.ramdisk.usage.error)Ramdisk '%s' is reaching its critical size limit. Approx %s%% "
    "space left."};
constexpr EventMessage kConfigstoreError = {
    kProblem,
    "@&!*@*@(amb.problem.velfs.configstore.usage.error)Ramdisk '%s' is reaching its critical size limit. Approx %s%% "
    "space left. Please refer to the KB 93362 for more details."};
constexpr EventMessage kVelfsMessages[] = {kFailure,     kInodeTableFull, kRamdiskWarning,  kConfigstoreWarning,
                                           kRamdiskFull, kRamdiskError,   kConfigstoreError};

/// Post `kRamdisk`, or `kConfigstore` for the ramdisk of that name.
template <const EventMessage &kRamdisk, const EventMessage &kConfigstore>
void OnUsage(Observation *observation) {
  static AlarmLimiter &limiter = *new AlarmLimiter;  // one for each kind of usage; outlives its thread
  const char *ramdisk = nullptr;
  const char *spaceLeft = nullptr;
  if (Ryn_GetArgs(observation, "%p %p", &ramdisk, &spaceLeft) != 0) return;
  if (!limiter.Pass(AsKey(ramdisk), WindowClockS())) return;
  if (AsKey(ramdisk) == "configstore") {
    PostMessage<kConfigstore>(ramdisk, spaceLeft);
  } else {
    PostMessage<kRamdisk>(ramdisk, spaceLeft);
  }
}

void OnRamdiskFull(Observation *observation) {
  static AlarmLimiter &limiter = *new AlarmLimiter;  // outlives its thread
  const char *ramdisk = nullptr;
  const char *file = nullptr;
  if (Ryn_GetArgs(observation, "%p %p", &ramdisk, &file) != 0) return;
  if (limiter.Pass(AsKey(ramdisk), WindowClockS())) PostMessage<kRamdiskFull>(ramdisk, file);
}

void OnInodeTableFull(Observation *observation) {
  static AlarmLimiter &limiter = *new AlarmLimiter;  // outlives its thread
  const char *ramdisk = nullptr;
  const char *file = nullptr;
  const char *application = nullptr;
  const char *other = nullptr;
  if (Ryn_GetArgs(observation, "%p %p %p %p", &ramdisk, &file, &application, &other) != 0) return;
  // One alarm a file, whichever applications fail to create it.
  const std::string key = std::string(AsKey(ramdisk)).append("/").append(AsKey(file));
  if (limiter.Pass(key, WindowClockS())) PostMessage<kInodeTableFull>(ramdisk, file, application);
}

/// Whatever else goes wrong there.
void OnOtherFailure(Observation *observation) {
  static AlarmLimiter &limiter = *new AlarmLimiter;  // outlives its thread
  LogObservation(observation);
  if (limiter.Pass("", WindowClockS())) PostMessage<kFailure>();
}

}  // namespace

std::span<const EventMessage> VelfsMessages() {
  return kVelfsMessages;
}

HandlerTable VelfsHandlers() {
  HandlerTable table;
  table["ryn.velfs.ramdisk.usage.warning"] = OnUsage<kRamdiskWarning, kConfigstoreWarning>;
  table["ryn.velfs.ramdisk.usage.error"] = OnUsage<kRamdiskError, kConfigstoreError>;
  table["ryn.velfs.ramdisk.full"] = OnRamdiskFull;
  table["ryn.velfs.ramdisk.inodetable.full"] = OnInodeTableFull;
  table["ryn.velfs.tardisk.readonlyfile"] = IgnoreObservation;  // known, and of no interest to agents
  return table;
}

Handler VelfsDefaultHandler() {
  return OnOtherFailure;
}

void RyndVelfsCorrelator() {
  RunCorrelator("Velfs", "velfs", OnOtherFailure, VelfsHandlers());
}

}  // namespace rynd
