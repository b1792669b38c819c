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
#include "hosted/flight/ringFiles.h"
#include "hosted/log/log.h"
#include "platform/statistics.h"
#include "platform/system.h"

namespace hosted {
namespace {

using flight::Kind;
using flight::Piece;

constexpr size_t kStep = size_t{256} << 10;      ///< bytes after which the recorder's thread brings them to the disk
constexpr size_t kAhead = kStep;                 ///< bytes that are ready to be written
constexpr size_t kLeastRoom = size_t{64} << 10;  ///< in a file that a run goes on with
constexpr uint16_t kMostThreads = 256;           ///< that are told apart
constexpr size_t kNameSize = 64;
constexpr size_t kLongestPath = 4096;
constexpr char kLost[] = "its file can't be accessed any more: a disk has failed, or the file was cut";
constexpr auto kLongestEnd = std::chrono::milliseconds(200);
constexpr auto kLonger = std::chrono::milliseconds(200);  ///< what fewer bytes wait for more

/// Appending takes a fraction of a microsecond, so whoever finds the lock taken had better look again at once.
class ShortMutex {
 public:
  void lock() { pthread_mutex_lock(&mutex_); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_ = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};

/// Counted by who holds the lock, read by anybody.
class Count {
 public:
  void Add(uint64_t more) { count_.store(Get() + more, std::memory_order_relaxed); }
  uint64_t Get() const { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> count_ = 0;
};

struct Recorder {
  // What every entry touches stands together, since it goes to and fro between the processors.
  ShortMutex mutex;  ///< guards what follows, up to the options; nothing nests in it
  bool isOpen = false;
  uint64_t run = 0;                           ///< rises with each start
  uint64_t lostSince = 0;                     ///< entries since the last one
  RingFile current;                           ///< appended to
  size_t wakeAt = 0;                          ///< of it, when the recorder's thread has to look after it
  int64_t nowNs = 0;                          ///< of the monotonic clock, for the entry in hand
  int64_t wallReadNs = 0;                     ///< when the wall clock was read last
  int64_t wallAheadNs = 0;                    ///< of the monotonic clock then
  Count entriesCount, bytesCount, lostCount;  ///< of all runs

  RingFile next;  ///< made by the recorder's thread; none: not ready
  RingFile full;  ///< of which the recorder's thread has to bring the rest to the disk
  uint64_t startWallUs = 0, startMonotonicNs = 0;
  uint16_t threads = 0;                                         ///< numbers that were given
  std::array<std::array<char, kNameSize>, kMostThreads> names;  ///< of the threads, by number

  FlightOptions options;  ///< constant while it is open
  RingFiles files;        ///< of the recorder's thread while that runs
  std::counting_semaphore<> wake{0};
  std::binary_semaphore ended{1};  ///< given while the recorder's thread does not run
  std::atomic<bool> isEnding = false;
  bool hasFailed = false;  ///< of the recorder's thread
};

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

/// Why pages can't be had, by the errno value.
std::string NoPages(int error) {
  return error == EFAULT ? kLost : std::string("no room for it: ") + std::strerror(error);
}

/// Stop recording because of `why`. The recorder's thread.
void GiveUp(Recorder *recorder, const std::string &why) {
  recorder::isOn = false;
  recorder->hasFailed = true;
  {
    const std::lock_guard lock(recorder->mutex);
    recorder->isOpen = false;
  }
  Log("The flight recording ends: %s", why.c_str());
}

/// The recorder's thread: brings entries to the disk, and looks after pages and files.
class Keeper {
 public:
  explicit Keeper(Recorder *recorder) : recorder_(recorder) {}

  /// False when recording has ended.
  bool Round() {
    RingFile current, next, full;
    {
      const std::lock_guard lock(recorder_->mutex);
      if (!recorder_->isOpen) return false;
      current = recorder_->current;
      next = recorder_->next;
      full = std::exchange(recorder_->full, {});
    }
    if (!SaveAll(current, &full) || !KeepPages(current) || (next.base == nullptr && !MakeNext(&next))) return false;
    // Not earlier: they are memory.
    if (current.size - current.at < 2 * kAhead) Prepare(next, next.at, next.at + kAhead);
    return true;
  }

  /// Wait until there is something to do.
  void Wait() {
    bool isAllSaved = false, isUrgent = false;
    const auto look = [&] {
      const std::lock_guard lock(recorder_->mutex);
      const RingFile &current = recorder_->current;
      isUrgent = recorder_->full.base != nullptr || current.at - saved_ >= kStep;
      isAllSaved = !isUrgent && current.at == saved_;
      recorder_->wakeAt = isAllSaved ? 0 : saved_ + kStep;
    };
    look();
    if (isAllSaved) {
      recorder_->wake.acquire();
      look();
    }
    if (!isUrgent && !recorder_->isEnding) (void)recorder_->wake.try_acquire_for(kLonger);
  }

  /// Bring to the disk what is left. Nothing is appended any more.
  void Finish() {
    if (!SaveAll(recorder_->current, &recorder_->full)) return;
    recorder_->files.Finish(&recorder_->current);
    recorder_->files.Finish(&recorder_->next);
  }

 private:
  /// Bring to the disk what is not there yet, of a file that is full first.
  bool SaveAll(const RingFile &current, RingFile *full) {
    if (full->base != nullptr) {
      if (!SaveFile(*full, full->at)) return false;
      recorder_->files.Finish(full);
    }
    return current.base == nullptr || SaveFile(current, current.at);
  }

  bool SaveFile(const RingFile &file, size_t to) {
    if (std::exchange(serial_, file.serial) != file.serial) saved_ = ready_ = file.begin;
    const int error = MappingIsLost() ? 0 : Save(file, saved_, to);
    // What a lost mapping holds is not what was written there.
    if (MappingIsLost()) {
      GiveUp(recorder_, kLost);
    } else if (error != 0) {
      GiveUp(recorder_, recorder_->options.folder + ": " + std::strerror(error));
    } else {
      saved_ = to;
      return true;
    }
    return false;
  }

  /// Have pages ready in front of the writer.
  bool KeepPages(const RingFile &current) {
    const bool isNew = ready_ == current.begin;
    if (!Prepare(current, std::max(ready_, current.at), current.at + kAhead)) {
      GiveUp(recorder_, NoPages(errno));
      return false;
    }
    ready_ = current.at + kAhead;
    if (isNew) recorder_->options.lookAtSettings();
    return true;
  }

  bool MakeNext(RingFile *next) {
    if (const std::string failure = recorder_->files.Make(next); !failure.empty()) {
      GiveUp(recorder_, failure);
      return false;
    }
    const std::lock_guard lock(recorder_->mutex);
    recorder_->next = *next;
    return true;
  }

  Recorder *recorder_;
  uint64_t serial_ = 0;  ///< of the file that the two below are about
  size_t saved_ = 0;     ///< bytes in front of it are on the disk
  size_t ready_ = 0;     ///< bytes in front of it are ready
};

void *RunKeeper(void *) {
  Recorder &recorder = TheRecorder();
  recorder::threadState.isRecorder = true;
  Hyk_SetThreadName("FlightRecorder");
  Keeper keeper(&recorder);
  try {
    while (keeper.Round()) keeper.Wait();
    if (!recorder.hasFailed) keeper.Finish();
  } catch (const std::exception &failure) {
    GiveUp(&recorder, failure.what());
  }
  recorder.ended.release();
  return nullptr;
}

/// Start the recorder's thread. 0 or an errno value.
int StartKeeper(Recorder *recorder) {
  recorder->isEnding = false;
  recorder->hasFailed = false;
  while (recorder->wake.try_acquire()) continue;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int error = pthread_create(&thread, &attributes, RunKeeper, nullptr);
  pthread_attr_destroy(&attributes);
  return error;
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
    failure = options.folder + ": " + NoPages(errno);
  }
  if (failure.empty() && MappingIsLost()) failure = kLost;
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
  if (const int error = StartKeeper(&recorder); error != 0) {
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
