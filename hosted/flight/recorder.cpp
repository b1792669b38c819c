#include "hosted/flight/recorder.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <semaphore>
#include <span>

#include "base/immortal.h"
#include "flight/encode.h"
#include "hosted/flight/mappingGuard.h"
#include "hosted/flight/recorderState.h"
#include "platform/statistics.h"
#include "platform/system.h"

namespace hosted {
namespace {

using flight::Kind;
using flight::Piece;
using recorder::kAhead, recorder::kMostThreads, recorder::kNameSize, recorder::kStep;
using recorder::Recorder;

constexpr size_t kLeastRoom = size_t{64} << 10;  ///< in a file that a run goes on with
constexpr size_t kLongestPath = 4096;
constexpr auto kLongestEnd = std::chrono::milliseconds(200);

std::atomic<uint64_t> megabytesNow = 0;  // of the ring
std::atomic<size_t> longestContent = 0;  // of an answer of the host: half a file

Recorder &TheRecorder() {
  static base::Immortal<Recorder> recorder;  // threads may outlive main()
  return *recorder;
}

int64_t ReadNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// The times of an entry that is written now. The wall clock is read once a millisecond, and reckoned in between.
void TakeTimes(Recorder *recorder, flight::Front *front) {
  constexpr int64_t kReckonedNs = 1'000'000;
  if (recorder->nowNs - recorder->wallReadNs >= kReckonedNs) {
    recorder->wallAheadNs = ReadNs(CLOCK_REALTIME) - ReadNs(CLOCK_MONOTONIC);
    recorder->wallReadNs = recorder->nowNs;
  }
  front->monotonicNs = static_cast<uint64_t>(recorder->nowNs);
  front->wallUs = static_cast<uint64_t>((recorder->nowNs + recorder->wallAheadNs) / 1000);
}

void PutHere(Recorder *recorder, Kind kind, uint16_t thread, std::span<const Piece> payload) {
  flight::Front front = {kind, thread, 0, 0};
  TakeTimes(recorder, &front);
  RingFile &file = recorder->current;
  flight::PutEntry(file.base + file.at, front, file.seed, payload);
  const size_t length = flight::Padded(flight::EntryLength(payload));
  file.at += length;
  recorder->entriesCount.Add(1);
  recorder->bytesCount.Add(length);
}

void PutName(Recorder *recorder, uint16_t thread) {
  const char *name = recorder->names[thread].data();
  const Piece piece = {name, strnlen(name, kNameSize)};
  PutHere(recorder, Kind::kName, thread, {&piece, 1});
}

/// The front of a file, or of a run in it.
void PutStart(Recorder *recorder, bool isContinued) {
  const FlightOptions &options = recorder->options;
  const auto length = [](const std::string &text) { return static_cast<uint32_t>(text.size()); };
  const flight::StartPart part = {
      isContinued ? 1u : 0u,
      static_cast<int32_t>(getpid()),
      recorder->startWallUs,
      recorder->startMonotonicNs,
      {length(options.version), length(options.build), length(options.root), length(options.bootId)}};
  const Piece pieces[] = {{&part, sizeof part},
                          {options.version.data(), options.version.size()},
                          {options.build.data(), options.build.size()},
                          {options.root.data(), options.root.size()},
                          {options.bootId.data(), options.bootId.size()}};
  PutHere(recorder, Kind::kStart, 0, pieces);
  for (uint16_t thread = 1; thread <= recorder->threads; ++thread) PutName(recorder, thread);
}

/// Go on with the next file. False when it is not ready.
bool TurnOver(Recorder *recorder) {
  if (recorder->next.base == nullptr || recorder->full.base != nullptr) return false;
  recorder->full = recorder->current;
  recorder->current = recorder->next;
  recorder->next = {};
  recorder->wakeAt = 0;  // a next file is wanted
  PutStart(recorder, true);
  return true;
}

/// Whether `length` bytes can be appended, if need be to the next file.
bool HasRoom(Recorder *recorder, size_t length) {
  const RingFile &file = recorder->current;
  return length <= file.size - file.at || (TurnOver(recorder) && length <= file.size - file.at);
}

/// Give the calling thread a number, and tell its name when either is new. False when there is no room for that.
bool KnowThread(Recorder *recorder, recorder::ThreadState *state) {
  if (state->run != recorder->run) {
    state->run = recorder->run;
    state->number = recorder->threads + 1 < kMostThreads ? ++recorder->threads : 0;
    if (state->number != 0) recorder->names[state->number][0] = '\0';
  }
  if (state->number == 0) return true;
  char *known = recorder->names[state->number].data();
  const char *name = Hyk_GetThreadName();
  if (std::strncmp(known, name, kNameSize) == 0) return true;
  if (!HasRoom(recorder, sizeof(flight::EntryHeader) + kNameSize)) return false;
  std::memcpy(known, name, strnlen(name, kNameSize - 1) + 1);
  PutName(recorder, state->number);
  return true;
}

/// Append under the lock. False when the entry is lost.
bool PutLocked(Recorder *recorder, Kind kind, std::span<const Piece> payload) {
  recorder::ThreadState &state = recorder::threadState;
  constexpr size_t kLostSize = sizeof(flight::EntryHeader) + sizeof(flight::LostPart);
  const size_t length = flight::Padded(flight::EntryLength(payload)) + kLostSize;
  if (!HasRoom(recorder, length) || !KnowThread(recorder, &state) || !HasRoom(recorder, length)) return false;
  if (recorder->lostSince > 0) {
    const flight::LostPart part = {recorder->lostSince};
    const Piece piece = {&part, sizeof part};
    recorder->lostSince = 0;
    PutHere(recorder, Kind::kLost, 0, {&piece, 1});
  }
  PutHere(recorder, kind, state.number, payload);
  return true;
}

void Put(Kind kind, std::initializer_list<Piece> pieces) {
  Recorder &recorder = TheRecorder();
  const int64_t nowNs = ReadNs(CLOCK_MONOTONIC);
  bool isDue = false;
  {
    const std::lock_guard lock(recorder.mutex);
    if (!recorder.isOpen) return;
    recorder.nowNs = std::max(recorder.nowNs, nowNs);  // another thread's entry may have come in between
    if (!PutLocked(&recorder, kind, {pieces.begin(), pieces.size()})) {
      ++recorder.lostSince;
      recorder.lostCount.Add(1);
    }
    isDue = recorder.current.at >= recorder.wakeAt || MappingIsLost();
    if (isDue) recorder.wakeAt = recorder.current.at + kStep;
  }
  if (isDue) recorder.wake.release();
}

/// Unmap everything. Nobody else touches it any more.
void Forget(Recorder *recorder) {
  Unmap(&recorder->current);
  Unmap(&recorder->next);
  Unmap(&recorder->full);
  recorder->files.Close();
}

}  // namespace

std::string StartRecorder(const FlightOptions &options) {
  Recorder &recorder = TheRecorder();
  if (!recorder.ended.try_acquire()) return "the last recording has not ended yet";
  Forget(&recorder);
  ForgetLostMappings();
  recorder.options = options;
  std::string failure = recorder.files.Open(options.folder, options.unsaved, options.megabytes);
  if (failure.empty()) recorder.files.Continue(&recorder.current, &recorder.next);
  if (recorder.current.size - recorder.current.at < kLeastRoom) {  // full, or none
    recorder.files.Finish(&recorder.current);
    recorder.current = std::exchange(recorder.next, {});
  }
  if (failure.empty() && recorder.current.base == nullptr) failure = recorder.files.Make(&recorder.current);
  if (failure.empty() && !Prepare(recorder.current, recorder.current.at, recorder.current.at + kAhead)) {
    failure = options.folder + ": " + recorder::NoPages(errno);
  }
  if (failure.empty() && MappingIsLost()) failure = recorder::kLost;
  if (!failure.empty()) {
    Forget(&recorder);
    recorder.ended.release();
    return failure;
  }
  {
    const std::lock_guard lock(recorder.mutex);
    ++recorder.run;
    recorder.threads = 0;
    recorder.lostSince = 0;
    recorder.wakeAt = 0;
    recorder.nowNs = ReadNs(CLOCK_MONOTONIC);
    recorder.startMonotonicNs = static_cast<uint64_t>(recorder.nowNs);
    recorder.startWallUs = static_cast<uint64_t>(ReadNs(CLOCK_REALTIME) / 1000);
    recorder.isOpen = true;
    PutStart(&recorder, false);
  }
  longestContent = recorder.current.size / 2;
  megabytesNow = options.megabytes;
  recorder::isOn = true;  // the thread begins with the settings
  if (const int error = recorder::StartKeeper(&recorder); error != 0) {
    recorder::isOn = false;
    recorder.isOpen = false;
    Forget(&recorder);
    recorder.ended.release();
    return std::string("no thread for it: ") + std::strerror(error);
  }
  return "";
}

void StopRecorder(int status) {
  if (!recorder::IsOn()) return;
  Recorder &recorder = TheRecorder();
  const flight::StopPart part = {status};
  Put(Kind::kStop, {{&part, sizeof part}});
  recorder::isOn = false;
  {
    const std::lock_guard lock(recorder.mutex);
    recorder.isOpen = false;
  }
  recorder.isEnding = true;
  recorder.wake.release();
  // It may wait for a disk; then the end of the process takes its mappings.
  if (!recorder.ended.try_acquire_for(kLongestEnd)) return;
  Forget(&recorder);
  recorder.ended.release();
}

namespace recorder {

void PutObservation(uint32_t context, int32_t pid, uint32_t uid, const std::byte *record, size_t length) {
  const flight::ObservationPart part = {context, pid, uid, static_cast<uint32_t>(length)};
  Put(Kind::kObservation, {{&part, sizeof part}, {record, length}});
}

void PutTaken(const std::byte *record, size_t length) {
  if (!threadState.isNamed) threadState.isNamed = std::strcmp(Hyk_GetThreadName(), "rynd") != 0;
  if (!threadState.isNamed) return;
  const flight::TakenPart part = {flight::RecordHash(record, length), length};
  threadState.isBusy = true;
  Put(Kind::kTaken, {{&part, sizeof part}});
}

void PutDone() {
  threadState.isBusy = false;
  if (IsOn()) Put(Kind::kDone, {});
}

void PutHost(flight::HostKind what, std::string_view path, int status, std::string_view content) {
  if (threadState.isRecorder && what != flight::HostKind::kText)
    return;  // how it finds the settings is nobody's business
  const bool isCut = content.size() > longestContent.load(std::memory_order_relaxed);
  if (isCut) content = {};
  path = path.substr(0, kLongestPath);
  const flight::HostPart part = {static_cast<uint32_t>(what),
                                 (threadState.isRecorder ? flight::kIsSetting : 0) | (isCut ? flight::kIsCut : 0),
                                 status,
                                 static_cast<uint32_t>(path.size()),
                                 static_cast<uint32_t>(content.size()),
                                 0};
  Put(Kind::kHost, {{&part, sizeof part}, {path.data(), path.size()}, {content.data(), content.size()}});
}

void PutTimer(std::string_view name) {
  threadState.isBusy = true;
  Put(Kind::kTimer, {{name.data(), name.size()}});
}

void PutClock(flight::ClockKind clock, int64_t value) {
  const flight::ClockPart part = {static_cast<uint32_t>(clock), 0, value};
  Put(Kind::kClock, {{&part, sizeof part}});
}

void PutEvent(const std::byte *record, size_t length) {
  Put(Kind::kEvent, {{record, length}});
}

void PutDrop(std::pair<std::string_view, std::string_view> name, std::string_view reason) {
  name.second = name.second.substr(0, kLongestPath);
  const flight::DropPart part = {
      {static_cast<uint32_t>(name.first.size() + name.second.size()), static_cast<uint32_t>(reason.size())}};
  Put(Kind::kDrop, {{&part, sizeof part},
                    {name.first.data(), name.first.size()},
                    {name.second.data(), name.second.size()},
                    {reason.data(), reason.size()}});
}

}  // namespace recorder
}  // namespace hosted

void Hyk_GetFlightStatistics(HykFlightStatistics *statistics) {
  const bool isOn = hosted::recorder::IsOn();
  const hosted::Recorder &recorder = hosted::TheRecorder();
  *statistics = {isOn, isOn ? hosted::megabytesNow.load() : 0, recorder.entriesCount.Get(), recorder.bytesCount.Get(),
                 recorder.lostCount.Get()};
}
