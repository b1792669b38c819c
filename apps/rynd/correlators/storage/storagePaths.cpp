#include "correlators/storage/storagePaths.h"

#include <optional>
#include <string>

#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/storage/storageLookups.h"

namespace rynd {
namespace {

constexpr EventMessage kConnectivityLost = {
    kProblem,
    "@&!*@*@(amb.problem.storage.connectivity.lost)Lost connectivity to storage device %s. Path %s is down. Affected "
    "datastores: %s."};
constexpr EventMessage kRedundancyLost = {
    kProblem,
    "@&!*@*@(amb.problem.storage.redundancy.lost)Lost path redundancy to storage device %s. Path %s is down. Affected "
    "datastores: %s."};
constexpr EventMessage kRedundancyDegraded = {
    kProblem,
    "@&!*@*@(amb.problem.storage.redundancy.degraded)Path redundancy to storage device %s degraded. Path %s is down. "
    "Affected datastores: %s."};
constexpr EventMessage kConnectivityRestored = {
    kClear,
    "@&!*@*@(amb.clear.storage.connectivity.restored)Connectivity to storage device %s (Datastores: %s) restored. Path "
    "%s is active again."};
constexpr EventMessage kRedundancyRestored = {
    kClear,
    "@&!*@*@(amb.clear.storage.redundancy.restored)Path redundancy to storage device %s (Datastores: %s) restored. "
    "Path %s is active again."};
constexpr EventMessage kPathStateChanges = {
    kProblem,
    "@&!*@*@(amb.problem.storage.connectivity.pathstatechanges)Frequent path state changes are occurring for path %s. "
    "This may indicate a storage problem. Affected device: %s. Affected datastores: %s."};
constexpr EventMessage kPathResets = {
    kProblem,
    "@&!*@*@(amb.problem.storage.connectivity.pathpor)Frequent PowerOn Reset Unit Attentions are occurring on path %s. "
    "This may indicate a storage problem. Affected device: %s. Affected datastores: %s."};
constexpr EventMessage kDeviceResets = {
    kProblem,
    "@&!*@*@(amb.problem.storage.connectivity.devicepor)Frequent PowerOn Reset Unit Attentions are occurring on device "
    "%s. This may indicate a storage problem. Affected datastores: %s."};
constexpr EventMessage kStoragePathMessages[] = {kConnectivityLost,     kRedundancyLost,     kRedundancyDegraded,
                                                 kConnectivityRestored, kRedundancyRestored, kPathStateChanges,
                                                 kPathResets,           kDeviceResets};

bool IsOneOf(const char *state, std::string_view first, std::string_view second) {
  return state != nullptr && (state == first || state == second);
}

/// Plain concatenation, nothing between the two.
std::string PathAndDevice(const char *path, const char *device) {
  return std::string(AsKey(path)).append(AsKey(device));
}

/// The device of a path that changes too often, and its datastores.
struct Affected {
  std::string device, datastores;
};
std::optional<Affected> AffectedBy(const char *path) {
  const std::optional<std::string> device = DeviceOfPath(path);
  if (!device) return std::nullopt;
  const std::optional<int32_t> status = RedundancyStatus(device->c_str());
  if (!status) return std::nullopt;
  return Affected{*device, *status == kNothingToSay ? "Unknown" : DatastoresOrUnknown(device->c_str())};
}

}  // namespace

void StoragePaths::PathDown(const char *path, const char *previousState, const char *device, int64_t now) {
  CountChange(path, ChangeCounter::Change::kState, now);
  if (!IsOneOf(previousState, "on", "standby")) return Reason("path %s was not in use", AsKey(path));
  const std::optional<int32_t> status = RedundancyStatus(device);
  if (!status || *status == kNothingToSay) return Reason("device %s: no redundancy status", AsKey(device));
  const std::string datastores = DatastoresOrUnknown(device);
  if (*status == kLastPathDown) {
    PostMessage<kConnectivityLost>(device, path, datastores.c_str());
  } else if (*status == kOnePathLeft) {
    PostMessage<kRedundancyLost>(device, path, datastores.c_str());
  } else if (*status == kSeveralPathsLeft) {
    PostMessage<kRedundancyDegraded>(device, path, datastores.c_str());
  }
  // Kept: also for a status that no event is tied to.
  reportedDown_[PathAndDevice(path, device)] = true;
}

void StoragePaths::PathRestored(const char *path, const char *previousState, int64_t now) {
  CountChange(path, ChangeCounter::Change::kState, now);
  if (!IsOneOf(previousState, "off", "dead")) return Reason("path %s was not down", AsKey(path));
  const std::optional<std::string> device = DeviceOfPath(path);
  if (!device) return;
  const std::string key = PathAndDevice(path, device->c_str());
  // Kept: a path whose loss was not reported leaves an entry.
  if (!reportedDown_[key]) return Reason("the loss of path %s to %s was not reported", AsKey(path), *device);
  reportedDown_.Erase(key);
  PostRestored(path, device->c_str());
}

void StoragePaths::PostRestored(const char *path, const char *device) {
  const std::optional<int32_t> status = RedundancyStatus(device);
  if (!status || *status == kNothingToSay) return Reason("device %s: no redundancy status", AsKey(device));
  const std::string datastores = DatastoresOrUnknown(device);
  switch (*status) {
    case kLastPathDown:
      return Reason("device %s: its last path is down", AsKey(device));
    case kOnePathLeft:
      return PostMessage<kConnectivityRestored>(device, datastores.c_str(), path);
    case kSeveralPathsLeft:
      return PostMessage<kRedundancyRestored>(device, datastores.c_str(), path);
    default:
      Panic("NOT_REACHED %s:%d \n", source_, line_);
  }
}

void StoragePaths::CountChange(const char *path, ChangeCounter::Change change, int64_t now) {
  if (!changes_.Count(AsKey(path), change, now)) return;
  const std::optional<Affected> affected = AffectedBy(path);
  if (!affected) return;
  PostMessage<kPathStateChanges>(path, affected->device.c_str(), affected->datastores.c_str());
}

void PowerOnResets::Count(const char *path, int64_t now) {
  // A report counts as an add does: 0 for a path that is not known, one more for one that is.
  if (!counter_.Count(AsKey(path), ChangeCounter::Change::kAdd, now)) return;
  const std::optional<Affected> affected = AffectedBy(path);
  if (!affected) return;
  if (path == nullptr) {
    PostMessage<kDeviceResets>(affected->device.c_str(), affected->datastores.c_str());
  } else {
    PostMessage<kPathResets>(path, affected->device.c_str(), affected->datastores.c_str());
  }
}

std::span<const EventMessage> StoragePathMessages() {
  return kStoragePathMessages;
}

}  // namespace rynd
