// The files of a recording's ring: made, written, and removed when there are too many. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/uniqueFd.h"
#include "hosted/flight/unsaved.h"

namespace hosted {

/// One file of the ring.
struct RingFile {
  std::byte *base = nullptr;  ///< its copy in memory, all of it mapped; null for none
  size_t size = 0;            ///< bytes
  size_t begin = 0;           ///< so many bytes stood on the disk when it was made or found
  size_t at = 0;              ///< where the next entry goes
  uint64_t serial = 0;
  uint64_t seed = 0;
  int disk = -1;  ///< the file itself
};

class RingFiles {
 public:
  /// Take the folder for a ring of so many MiB, making it when missing; nobody else may have it. What is not on the
  /// disk yet stands in the folder `unsaved`. "" or what is wrong.
  std::string Open(const std::string &folder, const std::string &unsaved, uint64_t megabytes);

  /// The file that the last run wrote last, and the one that it had prepared behind it, as far as they can be gone on
  /// with; none otherwise.
  void Continue(RingFile *current, RingFile *next);

  /// Make the next file, removing the oldest as needed. "" or what is wrong.
  std::string Make(RingFile *file);

  /// Forget a file that is whole on the disk.
  void Finish(RingFile *file) const;

  /// Let another daemon have the folder.
  void Close() { lock_.Reset(); }

 private:
  std::string PathOf(uint64_t serial) const;
  std::string MakeCopy(base::UniqueFd disk, RingFile *file) const;
  std::string MakeOnDisk(const std::string &path, RingFile *file) const;
  bool Reopen(uint64_t serial, RingFile *file) const;
  std::string Prune();

  std::string folder_;
  base::UniqueFd lock_;  ///< the folder, locked
  Unsaved unsaved_;
  uint64_t most_ = 0;  ///< bytes of the ring
  size_t fileSize_ = 0;
  uint64_t lastSerial_ = 0;
};

/// Forget a file; what of it is in memory only stays there.
void Unmap(RingFile *file);

/// Have the bytes from `from` up to `to` of a file ready to be written without a page fault. False, with errno, when
/// there is no memory for them.
bool Prepare(const RingFile &file, size_t from, size_t to);
/// Bring the bytes from `from` up to `to` to the disk, and give back their memory. Waits for the disk. 0 or an errno
/// value.
int Save(const RingFile &file, size_t from, size_t to);

}  // namespace hosted
