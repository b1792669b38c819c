// What of a recording is not on its disk yet. A disk may fail, be frozen for a backup, or not answer for minutes, and
// an access to a mapped file waits for it. So entries are written to a copy of the file in memory: a mapped file of the
// same name and layout in a folder beside the sockets. What was brought to the disk leaves it. It outlives the process,
// and readers look there. One thread at a time.
#pragma once

#include <cstddef>
#include <string>

#include "base/uniqueFd.h"

namespace hosted {

class Unsaved {
 public:
  /// Take the folder `path` for the ring in the folder `ring`, making it when missing; nobody else may write there.
  /// What a run that was killed has left goes to the ring's files. "" or what is wrong.
  std::string Open(const std::string &path, const std::string &ring);

  /// Make the copy of the ring's file `name`: zeros, all of it mapped. Null, with errno, when that fails.
  std::byte *Make(const std::string &name, size_t size) const;
  /// Its file is whole on the disk; its mapping stays.
  void Remove(const std::string &name) const;

 private:
  base::UniqueFd folder_;
};

/// Give back the memory of a copy's bytes from `from` up to `to`, which are on the disk, but for the first page, whose
/// header says what it is, and the last.
void GiveBack(std::byte *copy, size_t from, size_t to);

}  // namespace hosted
