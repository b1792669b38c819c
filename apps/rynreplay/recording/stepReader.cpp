#include "replay/recording/stepReader.h"

#include <algorithm>
#include <string_view>

#include "core/basics/rawRecord.h"
#include "hosted/records/rawRecord.h"
#include "post/eventRecord.h"
#include "replay/world/world.h"

namespace replay {
namespace {

using flight::Entry;

constexpr size_t kMostInStream = 65'536;        ///< more than a pipe takes
constexpr size_t kMostLookedThrough = 200'000;  ///< entries, for one that tells who took what
constexpr char kWoken[] = "woken";

/// The agent on a thread: "net" on "netCorrelator".
std::string AgentOf(std::string_view thread) {
  constexpr std::string_view kEnding = "Correlator";
  if (thread.ends_with(kEnding)) thread.remove_suffix(kEnding.size());
  return std::string(thread);
}

std::string Text(flight::Bytes bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// The name in an event's record, as far as it is there.
std::string EventName(const std::string &record) {
  if (record.size() <= rynd::kEventNameOffset) return "";
  return record.substr(rynd::kEventNameOffset, record.find('\0', rynd::kEventNameOffset) - rynd::kEventNameOffset);
}

ClockRead ToClockRead(const flight::ClockRead &read) {
  switch (read.clock) {
    case flight::ClockKind::kMonotonicNs:
      return {ClockKind::kMonotonicNs, read.value};
    case flight::ClockKind::kWindowS:
      return {ClockKind::kWindowS, read.value};
    default:
      return {ClockKind::kWallS, read.value};
  }
}

HostAnswer ToHostAnswer(const flight::HostAnswer &answer) {
  return {static_cast<HostOperation>(answer.what), std::string(answer.path), answer.status,
          std::string(answer.content)};
}

bool BeginsRun(const Entry &entry) {
  const auto *start = std::get_if<flight::Start>(&entry.what);
  return start != nullptr && !start->isContinued;
}

bool IsOfWork(const Entry &entry) {
  return std::holds_alternative<flight::Observation>(entry.what) || std::holds_alternative<flight::Taken>(entry.what) ||
         std::holds_alternative<flight::Timer>(entry.what) || std::holds_alternative<flight::Done>(entry.what);
}

/// Whether the run says which agent took which observation when.
bool TellsTakers(flight::Reader *reader) {
  Entry entry;
  for (size_t i = 0; i < kMostLookedThrough && reader->Next(&entry); ++i) {
    if (std::holds_alternative<flight::Taken>(entry.what) || std::holds_alternative<flight::Timer>(entry.what)) {
      return true;
    }
    if (i > 0 && BeginsRun(entry)) return false;
  }
  return false;
}

std::string Count(uint64_t count, const char *what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

std::unique_ptr<StepReader> StepReader::Open(const std::string &path, size_t run, std::string *error) {
  bool knowsTakers = false;
  for (const bool isLooking : {true, false}) {
    std::unique_ptr<flight::Reader> reader = flight::Reader::Open(path, error);
    if (reader == nullptr) return nullptr;
    std::unique_ptr<StepReader> steps(new StepReader(std::move(reader)));
    if (!steps->SkipTo(run)) {
      error->clear();
      return nullptr;
    }
    if (isLooking) {
      knowsTakers = TellsTakers(steps->reader_.get());
    } else {
      steps->knowsTakers_ = knowsTakers;
      return steps;
    }
  }
  return nullptr;
}

bool StepReader::SkipTo(size_t run) {
  Entry entry;
  for (size_t begun = 0; reader_->Next(&entry);) {
    if (BeginsRun(entry) || begun == 0) ++begun;
    if (begun <= run) continue;
    held_ = entry;
    isContinued_ = !BeginsRun(entry);
    return true;
  }
  return false;
}

bool StepReader::ReadEntry(Entry *entry) {
  if (isOver_) return false;
  if (held_) {
    *entry = *std::exchange(held_, std::nullopt);
    return true;
  }
  if (reader_->Next(entry) && !BeginsRun(*entry)) return true;
  isOver_ = true;
  return false;
}

void StepReader::ReadStart(RecordedStep *step) {
  *step = {};
  for (Entry entry; ReadEntry(&entry);) {
    if (step->beginNs == 0) {
      step->beginNs = static_cast<int64_t>(entry.monotonicNs);
      step->beginUs = entry.wallUs;
    }
    step->endUs = entry.wallUs;
    if (IsOfWork(entry)) {
      held_ = entry;
      break;
    }
    if (const auto *answer = std::get_if<flight::HostAnswer>(&entry.what); answer != nullptr && !answer->isCut) {
      step->answers.push_back(ToHostAnswer(*answer));
    }
    if (const auto *lost = std::get_if<flight::Lost>(&entry.what)) lost_ += lost->count;
  }
}

bool StepReader::Next(RecordedStep *step) {
  if (!hasStarted_) {
    hasStarted_ = true;
    ReadStart(step);
    return true;
  }
  for (Entry entry; ready_.empty() && ReadEntry(&entry);) Use(entry);
  if (ready_.empty()) {
    while (!open_.empty()) Close(open_.begin()->first, false, lastUs_);
    std::ranges::stable_sort(ready_, {}, &RecordedStep::beginNs);
  }
  if (ready_.empty()) return false;
  *step = std::move(ready_.front());
  ready_.pop_front();
  return true;
}

void StepReader::Use(const Entry &entry) {
  lastUs_ = entry.wallUs;
  if (const auto *observation = std::get_if<flight::Observation>(&entry.what)) {
    Arrived(entry, *observation);
  } else if (const auto *taken = std::get_if<flight::Taken>(&entry.what)) {
    Begin(entry, RecordedStep::Kind::kTaken);
    RecordedStep &step = open_[entry.threadNumber];
    step.record = Take(step.agent, *taken);
  } else if (const auto *timer = std::get_if<flight::Timer>(&entry.what)) {
    Begin(entry, timer->name == kWoken ? RecordedStep::Kind::kWake : RecordedStep::Kind::kTimer);
    open_[entry.threadNumber].timer = timer->name;
  } else if (std::holds_alternative<flight::Done>(entry.what)) {
    Close(entry.threadNumber, true, entry.wallUs);
  } else if (const auto *lost = std::get_if<flight::Lost>(&entry.what)) {
    lost_ += lost->count;
  } else {
    Note(entry);
  }
}

void StepReader::Begin(const Entry &entry, RecordedStep::Kind kind) {
  Close(entry.threadNumber, false, entry.wallUs);
  RecordedStep &step = open_[entry.threadNumber];
  step.kind = kind;
  step.agent = AgentOf(entry.thread);
  step.beginNs = static_cast<int64_t>(entry.monotonicNs);
  step.beginUs = entry.wallUs;
}

void StepReader::Note(const Entry &entry) {
  const auto open = open_.find(entry.threadNumber);
  if (open == open_.end()) {
    // What the host holds from now on, where no agent is known to have asked.
    const auto *answer = std::get_if<flight::HostAnswer>(&entry.what);
    if (answer != nullptr && !knowsTakers_) changes_.push_back(ToHostAnswer(*answer));
    return;
  }
  RecordedStep &step = open->second;
  if (const auto *read = std::get_if<flight::ClockRead>(&entry.what)) step.clocks.push_back(ToClockRead(*read));
  if (const auto *answer = std::get_if<flight::HostAnswer>(&entry.what); answer != nullptr && !answer->isCut) {
    step.answers.push_back(ToHostAnswer(*answer));
  }
  if (const auto *event = std::get_if<flight::Event>(&entry.what)) {
    std::string record = Text(event->record);
    step.posts.push_back({EventName(record), "", std::move(record)});
  }
  if (const auto *drop = std::get_if<flight::Drop>(&entry.what)) {
    step.posts.push_back({std::string(drop->name), std::string(drop->reason), ""});
  }
}

void StepReader::Close(uint16_t thread, bool hasEnded, uint64_t endUs) {
  const auto open = open_.find(thread);
  if (open == open_.end()) return;
  open->second.hasEnded = hasEnded;
  open->second.endUs = endUs;
  ready_.push_back(std::move(open->second));
  open_.erase(open);
}

void StepReader::Arrived(const Entry &entry, const flight::Observation &observation) {
  if (hosted::CheckRecord(observation.record.data(), observation.record.size()) != nullptr) {
    ++unknown_;
    return;
  }
  const auto record = std::make_shared<const std::string>(Text(observation.record));
  if (!knowsTakers_) {
    RecordedStep &step = ready_.emplace_back();
    step.kind = RecordedStep::Kind::kArrival;
    step.answers = std::exchange(changes_, {});
    step.record = record;
    step.beginNs = static_cast<int64_t>(entry.monotonicNs);
    step.beginUs = step.endUs = entry.wallUs;
    return;
  }
  for (const size_t place : TheWorld().AgentsFor(rynd::RecordId(observation.record.data()))) {
    std::deque<Record> &stream = streams_[place];
    stream.push_back(record);
    if (stream.size() > kMostInStream) stream.pop_front();
  }
}

StepReader::Record StepReader::Take(const std::string &agent, const flight::Taken &taken) {
  std::deque<Record> &stream = streams_[TheWorld().FindAgent(agent)];
  const auto found = std::ranges::find_if(stream, [&](const Record &record) {
    return record->size() == taken.length &&
           flight::RecordHash(reinterpret_cast<const std::byte *>(record->data()), record->size()) == taken.hash;
  });
  if (found == stream.end()) {
    ++unknown_;
    return nullptr;
  }
  Record record = *found;
  stream.erase(stream.begin(), found + 1);  // those in front of it were taken unseen, or never
  return record;
}

std::vector<std::string> StepReader::Missing() const {
  std::vector<std::string> sentences;
  if (isContinued_) {
    sentences.emplace_back(
        "The recording begins in the middle of a run: what the daemon remembered of the time before is not known");
  }
  if (lost_ > 0) sentences.push_back(Count(lost_, "entry").append(" could not be recorded"));
  if (unknown_ > 0)
    sentences.push_back(Count(unknown_, "observation").append(" that were taken are not in the recording"));
  size_t untaken = 0;
  for (const auto &[place, stream] : streams_) untaken += stream.size();
  if (isOver_ && untaken > 0) {
    sentences.push_back(Count(untaken, "observation").append(" waited for their agents when the recording ended"));
  }
  for (const flight::Finding &finding : reader_->Findings()) {
    sentences.push_back(finding.file + " at " + std::to_string(finding.offset) + ": " + finding.what + ", " +
                        Count(finding.bytes, "byte") + " skipped");
  }
  if (reader_->FindingCount() > reader_->Findings().size()) {
    sentences.push_back(Count(reader_->FindingCount() - reader_->Findings().size(), "more damaged place"));
  }
  return sentences;
}

}  // namespace replay
