// The recorder's own thread: it alone waits for the disk.
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <mutex>
#include <utility>

#include "hosted/flight/mappingGuard.h"
#include "hosted/flight/recorderState.h"
#include "hosted/log/log.h"
#include "platform/system.h"

namespace hosted::recorder {
namespace {

constexpr auto kLonger = std::chrono::milliseconds(200);  ///< what fewer bytes wait for more

/// Stop recording because of `why`. The recorder's thread.
void GiveUp(Recorder *recorder, const std::string &why) {
  isOn = false;
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

void *RunKeeper(void *shared) {
  auto &recorder = *static_cast<Recorder *>(shared);
  threadState.isRecorder = true;
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

}  // namespace

std::string NoPages(int error) {
  return error == EFAULT ? kLost : std::string("no room for it: ") + std::strerror(error);
}

int StartKeeper(Recorder *recorder) {
  recorder->isEnding = false;
  recorder->hasFailed = false;
  while (recorder->wake.try_acquire()) continue;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int error = pthread_create(&thread, &attributes, RunKeeper, recorder);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace hosted::recorder
