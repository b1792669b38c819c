// One round: take in, commit, publish. While the file fails, the rounds go on without it.
#include "mgmtd/store/writerWorker.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "base/wallClock.h"
#include "mgmtd/log/log.h"
#include "mgmtd/store/compose.h"

namespace mgmtd {
namespace {

constexpr size_t kMostOfACommit = 5000;    ///< events; more only wait where the file failed
constexpr size_t kMostChanged = 100'000;   ///< problems that wait for a file that fails
constexpr int64_t kMostOfAnExpiry = 5000;  ///< events a second
constexpr std::chrono::seconds kRetry(1);  ///< of a file that fails
constexpr std::chrono::seconds kHouse(1);
constexpr std::chrono::minutes kSayAgain(10);  ///< that it still fails
constexpr int64_t kDayUs = int64_t{86'400} * 1'000'000;

}  // namespace

std::string Writer::Worker::Open() {
  try {
    Adopt(file_.Open(true));
  } catch (const NewerStore &error) {
    return error.what();
  } catch (const StoreError &error) {
    Fail(error, false);
    // A file that may hold events can't be asked for its last id: these are above it, as time is.
    if (access(options_.path.c_str(), F_OK) == 0 || errno != ENOENT) {
      const int64_t base = static_cast<int64_t>(time(nullptr)) << 20;
      lastEventId_ = base;
      problems_.Load({}, base, base);
      feed_->Reset({base, base}, {});
    }
  }
  return "";
}

void Writer::Worker::Run() {
  while (true) {
    const bool pressing = !waiting_.empty() && file_.IsOpen() && Clock::now() >= nextTry_;
    WriterWork work = queue_.Take(pressing ? std::chrono::milliseconds(0) : WriterQueue::kTick);
    for (ReceivedRecord &record : work.records) TakeIn(std::move(record));
    std::vector<size_t> ended;
    for (const AckRequest &ack : work.acks) {
      std::vector<Problem> changed = problems_.EndByHand(ack.eventId, ack.subject, ack.user, base::WallClockUs());
      ended.push_back(changed.size());
      Note(std::move(changed));
    }
    const bool committed = TryToCommit();
    HandOut();
    for (size_t i = 0; i < ended.size(); ++i) work.acks[i].ended.set_value(ended[i]);
    KeepHouse();
    if (!work.stopping) continue;
    if (committed && waiting_.empty()) break;
    if (Clock::now() >= *queue_.StopBy()) {
      GiveUp();
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    nextTry_ = {};
  }
  file_.Close();
}

void Writer::Worker::TakeIn(ReceivedRecord record) {
  Composed composed = Compose(std::move(record));
  const bool whole = composed.event.damage.empty();
  if (whole && IsDouble(composed.event)) {
    const std::lock_guard lock(mutex_);
    ++health_.doubles;
    return;
  }
  composed.event.id = ++lastEventId_;
  composed.happening.eventId = composed.event.id;
  if (composed.happening.entry != nullptr) Note(problems_.Apply(composed.happening));
  newEvents_.push_back(composed.event);
  if (!whole) {
    const std::lock_guard lock(mutex_);
    ++health_.damaged;
  }
  Hold(std::move(composed.event));
}

bool Writer::Worker::IsDouble(const StoredEvent &event) {
  if (waitingWhole_.contains({event.sequence, event.timeUs, event.hostUuid})) return true;
  if (!file_.IsOpen()) return false;
  try {
    return file_.Has(event);
  } catch (const DatabaseError &error) {
    Fail(error, error.IsDamage());
    return false;
  }
}

void Writer::Worker::Note(std::vector<Problem> changed) {
  for (Problem &problem : changed) {
    changedProblems_.insert_or_assign(problem.id, problem);
    newChanges_.push_back(std::move(problem));
  }
  while (changedProblems_.size() > kMostChanged) changedProblems_.erase(changedProblems_.begin());
}

/// Keep `event` until it is committed. When too many wait, the oldest one goes: it has been passed on.
void Writer::Worker::Hold(StoredEvent event) {
  waitingBytes_ += event.raw.size() + event.text.size() + event.argumentsJson.size();
  if (event.damage.empty()) waitingWhole_.emplace(event.sequence, event.timeUs, event.hostUuid);
  waiting_.push_back(std::move(event));
  while (waiting_.size() > kMostWaiting || (waitingBytes_ > kMostWaitingBytes && waiting_.size() > 1)) {
    const StoredEvent &oldest = waiting_.front();
    waitingBytes_ -= oldest.raw.size() + oldest.text.size() + oldest.argumentsJson.size();
    waitingWhole_.erase({oldest.sequence, oldest.timeUs, oldest.hostUuid});
    waiting_.pop_front();
    bool first = false;
    {
      const std::lock_guard lock(mutex_);
      first = health_.memoryFull++ == 0;
    }
    if (first) Log(LogLevel::kError, "Too many events wait for the store: the oldest are not kept any more");
  }
}

void Writer::Worker::HandOut() {
  {
    const std::lock_guard lock(mutex_);
    health_.waiting = waiting_.size();
  }
  if (newEvents_.empty() && newChanges_.empty()) return;
  feed_->Publish(newEvents_, newChanges_);
  newEvents_.clear();
  newChanges_.clear();
}

bool Writer::Worker::NothingToWrite() const {
  if (!waiting_.empty() || !changedProblems_.empty()) return false;
  const std::lock_guard lock(mutex_);
  return !sinksChanged_;
}

/// True when the file has everything, but for events of a former failure.
bool Writer::Worker::TryToCommit() {
  if (file_.IsOpen() && NothingToWrite()) return true;
  if (Clock::now() < nextTry_) return false;
  try {
    if (!file_.IsOpen()) TryToOpen();
    CommitSome();
    return true;
  } catch (const DatabaseError &error) {
    Fail(error, error.IsDamage());
  } catch (const StoreError &error) {
    Fail(error, false);
  }
  return false;
}

void Writer::Worker::TryToOpen() {
  StoreState state = file_.Open(false);
  if (!adopted_) {
    Adopt(std::move(state));
    return;
  }
  // It may be a new one.
  for (Problem &problem : problems_.Open()) changedProblems_.insert_or_assign(problem.id, std::move(problem));
  const std::lock_guard lock(mutex_);
  sinksChanged_ = true;
}

/// Go on from what the file holds; what has come in meanwhile happens again on top of it.
void Writer::Worker::Adopt(StoreState state) {
  adopted_ = true;
  problems_.Load(std::move(state.open), std::max(state.lastProblemId, problems_.LastId()),
                 std::max(state.newest.change, problems_.LastChange()));
  lastEventId_ = std::max(lastEventId_, state.newest.event);
  changedProblems_.clear();
  newChanges_.clear();
  for (StoredEvent &event : waiting_) {
    if (event.id <= state.newest.event) event.id = ++lastEventId_;  // the clock that numbered it was wrong
    if (const Happening happening = HappeningOf(event); happening.entry != nullptr) Note(problems_.Apply(happening));
  }
  newChanges_.clear();
  feed_->Reset({std::max(state.newest.event, feed_->Newest().event), problems_.LastChange()}, problems_.Open());
  const std::lock_guard lock(mutex_);
  state.sinks.merge(sinks_);
  sinks_ = std::move(state.sinks);
}

void Writer::Worker::CommitSome() {
  const size_t count = std::min(kMostOfACommit, waiting_.size());
  std::vector<StoredEvent> events(std::make_move_iterator(waiting_.begin()),
                                  std::make_move_iterator(waiting_.begin() + static_cast<std::ptrdiff_t>(count)));
  std::map<std::string, Marks> sinks;
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(sinksChanged_, false)) sinks = sinks_;
  }
  try {
    file_.Store(events, changedProblems_, sinks);
  } catch (...) {
    std::move(events.begin(), events.end(), waiting_.begin());
    const std::lock_guard lock(mutex_);
    sinksChanged_ = sinksChanged_ || !sinks.empty();
    throw;
  }
  for (const StoredEvent &event : events) {
    waitingBytes_ -= event.raw.size() + event.text.size() + event.argumentsJson.size();
    waitingWhole_.erase({event.sequence, event.timeUs, event.hostUuid});
  }
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
  changedProblems_.clear();
  Works(count);
}

void Writer::Worker::Works(size_t written) {
  bool again = false;
  {
    const std::lock_guard lock(mutex_);
    again = !std::exchange(health_.works, true);
    health_.problem.clear();
    health_.sinceUs = 0;
    health_.stored += written;
    health_.lastCommitUs = base::WallClockUs();
  }
  if (again) {
    Log(LogLevel::kNotice, "The store works again: " + options_.path + "; what waited is being written, " +
                               std::to_string(written + waiting_.size()) + " events");
  }
}

/// Note and say that the file can't be used, and when it is tried again.
void Writer::Worker::Fail(const StoreError &error, bool damage) {
  const std::string text = error.what();
  nextTry_ = Clock::now() + kRetry;
  bool news = false;
  {
    const std::lock_guard lock(mutex_);
    news = health_.works || health_.problem != text || Clock::now() - lastSaid_ >= kSayAgain;
    if (std::exchange(health_.works, false)) health_.sinceUs = base::WallClockUs();
    health_.problem = text;
  }
  if (news) {
    lastSaid_ = Clock::now();
    Log(LogLevel::kError, "The store can't be written: " + text +
                              "; events are kept in memory, passed on, and written when it works again");
  }
  if (damage) {
    try {
      file_.MoveAside();
      nextTry_ = {};
    } catch (const StoreError &second) {
      Log(LogLevel::kError, second.what());
    }
  } else if (const auto *database = dynamic_cast<const DatabaseError *>(&error);
             database == nullptr || database->code != SQLITE_FULL) {
    file_.Close();  // what a connection remembers of a file that was changed under it is worth nothing
  }
}

/// Once a second: is the file still ours, how large is it, what is too old.
void Writer::Worker::KeepHouse() {
  if (Clock::now() < nextHouse_) return;
  nextHouse_ = Clock::now() + kHouse;
  if (!file_.IsOpen()) return;
  if (file_.IsReplaced()) {
    Log(LogLevel::kWarning, options_.path + " was removed or replaced: a new one is opened");
    file_.Close();
    nextTry_ = {};
    return;
  }
  try {
    const int64_t before = options_.retentionDays > 0 ? base::WallClockUs() - options_.retentionDays * kDayUs : 0;
    const size_t expired = file_.Expire(before, options_.retentionBytes, kMostOfAnExpiry);
    const int64_t bytes = file_.UsedBytes();
    const std::lock_guard lock(mutex_);
    health_.expired += expired;
    health_.fileBytes = bytes;
    health_.forgotten = problems_.Forgotten();
  } catch (const DatabaseError &error) {
    Fail(error, error.IsDamage());
  }
}

void Writer::Worker::GiveUp() {
  if (waiting_.empty()) return;
  Log(LogLevel::kError, std::to_string(waiting_.size()) + " events could not be written to " + options_.path +
                            " and end with this program");
}

void Writer::Worker::SetSinkPosition(const std::string &sink, const Marks &passed) {
  const std::lock_guard lock(mutex_);
  sinks_[sink] = passed;
  sinksChanged_ = true;
}

std::optional<Marks> Writer::Worker::SinkPosition(const std::string &sink) const {
  const std::lock_guard lock(mutex_);
  const auto known = sinks_.find(sink);
  if (known == sinks_.end()) return std::nullopt;
  return known->second;
}

StoreHealth Writer::Worker::Health() const {
  const uint64_t received = queue_.Received();
  const uint64_t dropped = queue_.Dropped();
  const std::lock_guard lock(mutex_);
  StoreHealth health = health_;
  health.received = received;
  health.queueFull = dropped;
  return health;
}

}  // namespace mgmtd
