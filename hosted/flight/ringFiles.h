// The files of a recording's ring: made, mapped, and removed when there are too many. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/uniqueFd.h"

namespace hosted {

/// One file of the ring, all of it mapped. Pages that were not touched yet cost nothing.
struct RingFile {
  std::byte *base = nullptr;  ///< null for none
  size_t size = 0;            ///< bytes
  size_t at = 0;              ///< where the next entry goes
  uint64_t serial = 0;
  uint64_t seed = 0;
};

class RingFiles {
 public:
  /// Take the folder for a ring of so many MiB, making it when missing; nobody else may have it. "" or what is wrong.
  std::string Open(const std::string &folder, uint64_t megabytes);

  /// The file that the last run wrote last, and the one that it had prepared behind it, as far as they can be gone on
  /// with; none otherwise.
  void Continue(RingFile *current, RingFile *next);

  /// Make the next file, removing the oldest as needed. "" or what is wrong. `isFilled`: with zeros in memory, which
  /// takes milliseconds, and makes its pages three times cheaper to prepare.
  std::string Make(RingFile *file, bool isFilled);

  /// Let another daemon have the folder.
  void Close() { lock_.Reset(); }

 private:
  std::string PathOf(uint64_t serial) const;
  std::string Map(const base::UniqueFd &fd, const std::string &path, RingFile *file) const;
  std::string Finish(const std::string &path, RingFile *file) const;
  bool Reopen(uint64_t serial, RingFile *file) const;
  std::string Prune();

  std::string folder_;
  base::UniqueFd lock_;  ///< the folder, locked
  uint64_t most_ = 0;    ///< bytes of the ring
  size_t fileSize_ = 0;
  uint64_t lastSerial_ = 0;
};

/// Forget the mapping.
void Unmap(RingFile *file);

/// Have the bytes from `from` up to `to` of a file ready to be written without a page fault. False, with errno, when
/// the file system has no room for them after all.
bool Prepare(const RingFile &file, size_t from, size_t to);
/// Give back the memory of the bytes below `to`; the file keeps them.
void Release(const RingFile &file, size_t from, size_t to);

}  // namespace hosted
