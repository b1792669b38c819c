// Reads the entries of one file, past whatever is damaged in it. One thread; constant memory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/uniqueFd.h"
#include "flight/entry.h"

namespace flight {

/// What of a file could not be used.
struct Finding {
  std::string file;
  uint64_t offset = 0;  ///< bytes from its start
  uint64_t bytes = 0;   ///< how many were skipped; 0 where nothing was
  std::string what;     ///< such as "damaged"
};

class FileReader {
 public:
  /// Open the file at `path`, which may still be written. "", or why it can't be used, with its name.
  std::string Open(const std::string &path);

  /// The next whole entry; its payload is valid until the next call. False at the end.
  bool Next(EntryHeader *header, Bytes *payload);

  /// The file's number in its ring, 0 for none.
  uint64_t Serial() const { return header_.serial; }
  /// Where the last entry that was handed out begins, and where it ends: bytes from the file's start.
  uint64_t EntryOffset() const { return entryOffset_; }
  uint64_t EndOffset() const { return Offset(); }
  /// What was found since the last call.
  std::vector<Finding> TakeFindings() { return std::exchange(findings_, {}); }

 private:
  uint64_t Offset() const { return bufferOffset_ + at_; }
  size_t Available() const { return filled_ - at_; }
  const std::byte *Here() const { return reinterpret_cast<const std::byte *>(buffer_.data()) + at_; }
  /// Read from `offset` on. False, with the reason found, when reading fails.
  bool Fill(uint64_t offset);
  /// Read as pread does, what is not on the disk yet from its copy in memory.
  ssize_t Read(char *to, size_t size, uint64_t offset) const;
  void OpenUnsaved(uint64_t size);
  /// Whether a whole entry stands here.
  bool IsEntry(EntryHeader *header);
  bool HasEntryWithSeed(uint64_t seed);
  /// Skip words of zeros. False when nothing else follows.
  bool SkipZeros();
  void Find(uint64_t offset, uint64_t bytes, std::string what);
  /// Tell what was skipped since `from`.
  void FindGap(uint64_t from);
  std::string CheckHeader(bool isWhole);

  std::string path_;
  base::UniqueFd fd_, unsaved_;
  FileHeader header_{};
  uint64_t seed_ = 0;
  std::vector<uint64_t> buffer_;  ///< words, so that entries are aligned
  uint64_t bufferOffset_ = 0;     ///< of its first byte in the file
  size_t filled_ = 0, at_ = 0;    ///< bytes
  bool isAtEnd_ = false;          ///< the buffer holds the file's last byte
  size_t entrySize_ = 0;          ///< of the entry that was handed out and is not passed yet
  uint64_t entryOffset_ = 0;
  uint64_t lookedAgainAt_ = 0;
  uint64_t effort_ = 0;  ///< bytes that were hashed in vain
  std::vector<Finding> findings_;
};

}  // namespace flight
