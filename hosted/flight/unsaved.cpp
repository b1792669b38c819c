#include "hosted/flight/unsaved.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "flight/format.h"
#include "hosted/flight/mappingGuard.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

constexpr size_t kPage = 4096;

std::string Failure(const std::string &what, int error) {
  return what + ": " + std::strerror(error);
}

/// The names in a folder. 0 or an errno value.
int List(int folder, std::vector<std::string> *names) {
  const int fd = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR *)> list(fd < 0 ? nullptr : fdopendir(fd), closedir);
  if (list == nullptr) return errno;
  while (true) {
    errno = 0;
    const dirent *entry = readdir(list.get());
    if (entry == nullptr) return errno;
    if (entry->d_name[0] != '.') names->push_back(entry->d_name);
  }
}

bool ReadHeader(int fd, flight::FileHeader *header) {
  return fd >= 0 && pread(fd, header, sizeof *header, 0) == sizeof *header;
}

/// Bring what a copy holds to the disk. 0 or an errno value.
int SaveAll(int copy, int disk) {
  std::array<std::byte, kPage> page;
  constexpr std::array<std::byte, kPage> kNothing{};
  for (off_t at = 0; (at = lseek(copy, at, SEEK_DATA)) >= 0; at += kPage) {
    const ssize_t got = pread(copy, page.data(), page.size(), at);
    if (got < 0) return errno;
    if (got < static_cast<ssize_t>(kPage)) break;
    if (page != kNothing && pwrite(disk, page.data(), page.size(), at) != got) return errno == 0 ? EIO : errno;
  }
  return 0;
}

}  // namespace

std::string Unsaved::Open(const std::string &path, const std::string &ring) {
  constexpr mode_t kMode = 0750;
  if (const int error = MakeFolders(path, kMode); error != 0) return Failure(path, error);
  folder_.Reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder_ || fstat(folder_.Get(), &status) != 0) return Failure(path, errno);
  if (status.st_uid != geteuid() || (status.st_mode & 022) != 0) return path + ": others can write there";
  std::vector<std::string> names;
  if (const int error = List(folder_.Get(), &names); error != 0) return Failure(path, error);
  for (const std::string &name : names) {
    const std::string file = std::string(ring).append("/").append(name);
    const base::UniqueFd copy(openat(folder_.Get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const base::UniqueFd disk(open(file.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    flight::FileHeader wanted, header;
    if (ReadHeader(copy.Get(), &header) && ReadHeader(disk.Get(), &wanted) &&
        std::memcmp(&header, &wanted, sizeof header) == 0) {
      if (const int error = SaveAll(copy.Get(), disk.Get()); error != 0) return Failure(file, error);
    }
    Remove(name);
  }
  return "";
}

std::byte *Unsaved::Make(const std::string &name, size_t size) const {
  Remove(name);
  const base::UniqueFd fd(
      openat(folder_.Get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640));
  if (!fd || ftruncate(fd.Get(), static_cast<off_t>(size)) != 0) return nullptr;
  void *base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0);
  if (base == MAP_FAILED) return nullptr;
  madvise(base, size, MADV_DONTDUMP);
  auto *copy = static_cast<std::byte *>(base);
  GuardMapping(copy, size);
  return copy;
}

void Unsaved::Remove(const std::string &name) const {
  unlinkat(folder_.Get(), name.c_str(), 0);
}

void GiveBack(std::byte *copy, size_t from, size_t to) {
  from = std::max(from & ~(kPage - 1), kPage);
  to &= ~(kPage - 1);
  // Where the file system can't, the process at least does not hold it.
  if (from < to && madvise(copy + from, to - from, MADV_REMOVE) != 0) madvise(copy + from, to - from, MADV_DONTNEED);
}

}  // namespace hosted
