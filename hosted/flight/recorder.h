// The flight recorder: appends entries to a copy of its file in memory. Any thread; an entry costs a short lock and a
// copy, and five times a second a wake-up of the recorder's own thread, which brings them to the disk. Nothing else
// waits for a disk.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "flight/format.h"

namespace hosted {

/// What a recording needs to begin.
struct FlightOptions {
  std::string folder, unsaved;               ///< of the ring, and of what is not on the disk yet; made when missing
  uint64_t megabytes = 0;                    ///< of the ring, at least 1
  std::string version, build, root, bootId;  ///< for who reads it
  void (*lookAtSettings)() = nullptr;        ///< records the host's settings; called by the recorder's thread
};

/// Begin to record. "", or why nothing is recorded. Initial thread.
std::string StartRecorder(const FlightOptions &options);
/// Record the end, and stop recording. Initial thread.
void StopRecorder(int status);

namespace recorder {

/// Whether anything is recorded: all that a hook costs otherwise.
inline std::atomic<bool> isOn = false;
inline bool IsOn() {
  return isOn.load(std::memory_order_relaxed);
}

/// What the recorder knows of the calling thread.
struct ThreadState {
  uint64_t run = 0;         ///< of the recorder that `number` is from
  uint16_t number = 0;      ///< 0 for none yet
  bool isNamed = false;     ///< it has named itself, as agents and timer do
  bool isBusy = false;      ///< it handles an observation or runs a timer's callback
  bool isRecorder = false;  ///< it is the recorder's own
};
inline thread_local constinit ThreadState threadState;

void PutObservation(uint32_t context, int32_t pid, uint32_t uid, const std::byte *record, size_t length);
void PutTaken(const std::byte *record, size_t length);
void PutDone();
void PutHost(flight::HostKind what, std::string_view path, int status, std::string_view content);
void PutTimer(std::string_view name);
void PutClock(flight::ClockKind clock, int64_t value);
void PutEvent(const std::byte *record, size_t length);
/// The event's name comes in two parts.
void PutDrop(std::pair<std::string_view, std::string_view> name, std::string_view reason);

}  // namespace recorder

/// Context `id` hands out a record; `pid` and `uid` are those of the program that sent it to the user context.
inline void RecordObservation(uint32_t id, const std::byte *record, size_t length, int32_t pid = 0, uint32_t uid = 0) {
  if (recorder::IsOn()) recorder::PutObservation(id, pid, uid, record, length);
}
/// The calling thread has made an observation of a record, and has freed it. Only agents' threads, which have names of
/// their own, are recorded.
inline void RecordTaken(const std::byte *record, size_t length) {
  if (recorder::IsOn()) recorder::PutTaken(record, length);
}
inline void RecordDone() {
  if (recorder::threadState.isBusy) recorder::PutDone();
}
/// The host gives `content`, or fails with `status`. Returns the status.
inline int RecordHost(flight::HostKind what, std::string_view path, int status, std::string_view content = {}) {
  if (recorder::IsOn()) recorder::PutHost(what, path, status, status == 0 ? content : std::string_view());
  return status;
}

}  // namespace hosted
