// The store's file as the writer has it: opened, migrated, moved aside, written in transactions, kept small. One
// thread.
#pragma once

#include <sys/stat.h>

#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "mgmtd/store/database.h"
#include "mgmtd/store/feed.h"

namespace mgmtd {

/// The file is of a version that this program does not know: it must be left as it is.
struct NewerStore : StoreError {
  using StoreError::StoreError;
};

/// What a file holds that outlives a restart.
struct StoreState {
  std::vector<Problem> open;
  std::map<std::string, Marks> sinks;
  Marks newest;
  int64_t lastProblemId = 0;
};

class EventFile {
 public:
  explicit EventFile(std::string path) : path_(std::move(path)) {}

  /// Open the file, new if there is none, and read what it holds. A damaged one is moved aside first, which is told in
  /// the log. Throws NewerStore, and StoreError for what may be over some time.
  /// `look`: for damage, too, for a second at most.
  StoreState Open(bool look);
  void Close();
  bool IsOpen() const { return database_ != nullptr; }
  /// Move the open file aside because its bytes are damaged; it is closed then. Throws StoreError.
  void MoveAside();
  /// True when somebody has removed or replaced the file since it was opened.
  bool IsReplaced() const;

  /// Whether this whole record is there already.
  bool Has(const StoredEvent &event);
  /// One transaction: all of it, or a StoreError.
  void Store(std::span<const StoredEvent> events, const std::map<int64_t, Problem> &problems,
             const std::map<std::string, Marks> &sinks);
  /// Remove up to `most` of the oldest events that came before `beforeUs` (0: none), or that are too many for
  /// `mostBytes`, and ended problems likewise. How many events were removed.
  size_t Expire(int64_t beforeUs, int64_t mostBytes, int64_t most);
  /// What the pages in use take.
  int64_t UsedBytes();

 private:
  void OpenFile(bool look);
  StoreState Load();

  const std::string path_;
  std::unique_ptr<Database> database_;
  struct stat opened_ {};
};

}  // namespace mgmtd
