// Puts the entries of a flight recording together to steps. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "flight/reader.h"
#include "replay/recording/stepSource.h"

namespace replay {

/// The steps of one run of the daemon. The world must have been started when the second is asked for: it says which
/// agents want what. Memory is bounded by what these may have in their streams.
class StepReader : public StepSource {
 public:
  /// Open run number `run` (from 0) of the recording at `path`, a file or a folder. Null when it can't be used, with
  /// `*error` saying why, "" when it has no such run.
  static std::unique_ptr<StepReader> Open(const std::string &path, size_t run, std::string *error);

  bool Next(RecordedStep *step) override;
  bool IsContinued() const override { return isContinued_; }
  bool TellsEvents() const override { return knowsTakers_; }
  std::vector<std::string> Missing() const override;

 private:
  using Record = std::shared_ptr<const std::string>;

  explicit StepReader(std::unique_ptr<flight::Reader> reader) : reader_(std::move(reader)) {}
  /// Go to the first entry of a run, which is kept. False when there is none.
  bool SkipTo(size_t run);
  bool ReadEntry(flight::Entry *entry);
  void ReadStart(RecordedStep *step);
  void Use(const flight::Entry &entry);
  void Begin(const flight::Entry &entry, RecordedStep::Kind kind);
  void Note(const flight::Entry &entry);
  void Close(uint16_t thread, bool hasEnded, uint64_t endUs);
  void Arrived(const flight::Entry &entry, const flight::Observation &observation);
  Record Take(const std::string &agent, const flight::Taken &taken);

  std::unique_ptr<flight::Reader> reader_;
  std::optional<flight::Entry> held_;  ///< read, and not used yet: nothing may be read meanwhile
  bool hasStarted_ = false, isContinued_ = false, knowsTakers_ = false;
  bool isOver_ = false;  ///< the run's entries are
  std::deque<RecordedStep> ready_;
  std::map<uint16_t, RecordedStep> open_;         ///< by thread
  std::map<size_t, std::deque<Record>> streams_;  ///< what each agent has been given and not taken, by its place
  std::vector<HostAnswer> changes_;               ///< for the next arrival
  uint64_t lost_ = 0, unknown_ = 0, lastUs_ = 0;
};

}  // namespace replay
