// Handlers that the correlators of the two storage stacks share. Each is a template over what is a stack's own, so that
// it stays a plain function and can't touch the other's state. Agent's thread.
#pragma once

#include <cstdint>
#include <string>

#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/rows/postRow.h"
#include "correlators/storage/storageLookups.h"
#include "correlators/storage/storagePaths.h"
#include "platform/ryn.h"

namespace rynd {

// What is logged when the arguments of a row can't be read.

inline void LogNoParams(const char *id, uint32_t /*field*/, int status) {
  Log("Failed to get params for correlation %s: %d\n", id, status);
}
inline void LogNotCorrelated(const char *id, uint32_t /*field*/, int status) {
  Log("Failed to correlate %s: %d\n", id, status);
}
inline void LogNoDeviceName(const char * /*id*/, uint32_t /*field*/, int status) {
  Log("Failed to get device name: %d\n", status);
}
inline void LogNoPathLimit(const char * /*id*/, uint32_t field, int status) {
  if (field == 0) return Log("Failed to get path limit reached path count: %d\n", status);
  Log("Failed to get path limit reached path name: %d\n", status);
}
inline void LogNoDeviceLimit(const char * /*id*/, uint32_t field, int status) {
  if (field == 0) return Log("Failed to get device limit reached device count: %d\n", status);
  Log("Failed to get device limit reached plugin name: %d\n", status);
}

/// Gives a stack's one object, which is never destroyed.
using PathsOfStack = StoragePaths &();

template <PathsOfStack &kPaths>
void OnPathDown(Observation *observation) {
  const char *path = nullptr;
  const char *previousState = nullptr;
  const char *device = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) return;
  if (Ryn_GetStringArg(observation, 1, &previousState) != 0) return;
  if (Ryn_GetStringArg(observation, 2, &device) != 0) return;
  kPaths().PathDown(path, previousState, device, WindowClockS());
}

template <PathsOfStack &kPaths>
void OnPathRestored(Observation *observation) {
  const char *path = nullptr;
  const char *previousState = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) return;
  if (Ryn_GetStringArg(observation, 1, &previousState) != 0) return;
  kPaths().PathRestored(path, previousState, WindowClockS());
}

/// The ids of a stack's paths that come and go.
struct PathAddRemoveIds {
  const char *add, *remove;
};

template <PathsOfStack &kPaths, const PathAddRemoveIds &kIds>
void OnPathAddRemove(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  const char *path = nullptr;
  const int status = Ryn_GetStringArg(observation, 0, &path);
  if (status != 0) return Log("Failed to get path add remove path name: %d\n", status);
  if (Ryn_IsID(id, kIds.add)) return kPaths().CountChange(path, ChangeCounter::Change::kAdd, WindowClockS());
  if (Ryn_IsID(id, kIds.remove)) return kPaths().CountChange(path, ChangeCounter::Change::kRemove, WindowClockS());
  Log("Unknown RYN ID: %s\n", id);
}

/// Post `kMessage` with a device and its datastores, or "None".
template <const EventMessage &kMessage, ReadFailure kFailure>
void OnDeviceWithDatastores(Observation *observation) {
  const char *device = nullptr;
  const int status = Ryn_GetStringArg(observation, 0, &device);
  if (status != 0) return kFailure("", 0, status);
  const std::string datastores = DatastoresOrUnknown(device);
  PostMessage<kMessage>(device, datastores.empty() ? "None" : datastores.c_str());
}

/// Post `kMessage` with a device and its percentage of errors, when the id is `kId`.
template <const EventMessage &kMessage, const auto &kId>
void OnTooManyErrors(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  const char *device = nullptr;
  uint16_t percentage = 0;
  const int status = Ryn_GetArgs(observation, "%p %hu ", &device, &percentage);
  if (status != 0) return LogNoParams(id, 0, status);
  if (Ryn_IsID(id, kId)) PostMessage<kMessage>(device, percentage);
}

}  // namespace rynd
