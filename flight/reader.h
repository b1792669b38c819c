// Reads a recording: one file, or all files of a folder in the order in which they were written. One thread; memory
// does not grow with what is read.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "flight/fileReader.h"

namespace flight {

class Reader {
 public:
  /// Open a file or a folder, whose files may still be written. Null, `*error` saying why with the name of what it is
  /// about, when nothing of it can be used.
  static std::unique_ptr<Reader> Open(const std::string &path, std::string *error);

  /// The next entry. Its texts and bytes are valid until the next call, `thread` as long as the reader. False at the
  /// end.
  bool Next(Entry *entry);

  /// What could not be used so far, at most kMostFindings; SkippedBytes() and FindingCount() count all of it.
  const std::vector<Finding> &Findings() const { return findings_; }
  uint64_t FindingCount() const { return findingCount_; }
  uint64_t SkippedBytes() const { return skippedBytes_; }
  static constexpr size_t kMostFindings = 100;

  /// The file that the last entry stands in, and where: bytes from its start.
  const std::string &File() const { return files_[file_]; }
  uint64_t Offset() const { return current_->EntryOffset(); }

 private:
  explicit Reader(std::vector<std::string> files) : files_(std::move(files)) {}
  /// Go on with the next file that can be used. False when there is none; `*error`, unless null, receives the reason
  /// of the first one that can't be.
  bool OpenNextFile(std::string *error);
  void TakeOver(std::vector<Finding> findings);
  void Name(uint16_t thread, Bytes name);

  std::vector<std::string> files_;
  size_t file_ = 0;      ///< index of the current one
  size_t nextFile_ = 0;  ///< index of the one after it
  std::unique_ptr<FileReader> current_;
  uint64_t lastSerial_ = 0;
  std::set<std::string, std::less<>> names_;
  std::vector<std::string_view> threads_;  ///< by number, of the current file
  std::vector<Finding> findings_;
  uint64_t findingCount_ = 0, skippedBytes_ = 0;
};

/// The files of a recorder's ring in `folder`, by rising serial number, with their paths. 0 or an errno value.
int ListRing(const std::string &folder, std::vector<std::string> *files);
/// The serial number in a path of ListRing; 0 for a file of another name.
uint64_t RingSerial(std::string_view path);

}  // namespace flight
