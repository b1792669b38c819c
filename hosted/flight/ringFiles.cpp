#include "hosted/flight/ringFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "flight/format.h"
#include "hosted/flight/mappingGuard.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

constexpr size_t kMiB = size_t{1} << 20;
constexpr size_t kLeastFile = kMiB / 4;
constexpr size_t kMostFile = 64 * kMiB;
constexpr size_t kFilesOfRing = 8;
constexpr size_t kPage = 4096;
#ifndef MADV_POPULATE_WRITE
constexpr int MADV_POPULATE_WRITE = 23;
#endif

std::string Failure(const std::string &what, int error) {
  return what + ": " + std::strerror(error);
}

/// The serial number in a file's name; 0 for another name.
uint64_t SerialOf(const std::string &name) {
  const size_t front = sizeof flight::kFilePrefix - 1;
  if (name.size() != front + flight::kSerialDigits + sizeof flight::kFileSuffix - 1) return 0;
  if (!name.starts_with(flight::kFilePrefix) || !name.ends_with(flight::kFileSuffix)) return 0;
  uint64_t serial = 0;
  const char *const end = name.data() + front + flight::kSerialDigits;
  return std::from_chars(name.data() + front, end, serial).ptr == end ? serial : 0;
}

std::string NameOf(uint64_t serial) {
  char name[32];
  std::snprintf(name, sizeof name, "%s%010llu%s", flight::kFilePrefix, static_cast<unsigned long long>(serial),
                flight::kFileSuffix);
  return name;
}

/// The ring's files: their sizes by their serial numbers. 0 or an errno value.
int ListFiles(const std::string &folder, std::map<uint64_t, uint64_t> *files) {
  const std::unique_ptr<DIR, int (*)(DIR *)> list(opendir(folder.c_str()), closedir);
  if (list == nullptr) return errno;
  while (true) {
    errno = 0;
    const dirent *entry = readdir(list.get());
    if (entry == nullptr) return errno;
    const uint64_t serial = SerialOf(entry->d_name);
    struct stat status {};
    if (serial == 0) continue;
    const bool isThere = fstatat(dirfd(list.get()), entry->d_name, &status, 0) == 0;
    (*files)[serial] = isThere ? static_cast<uint64_t>(status.st_size) : 0;
  }
}

/// Nobody who submits observations can guess it, and so make an entry up inside of one.
uint64_t RandomSeed() {
  uint64_t seed = 0;
  if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == sizeof seed) return seed;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return flight::Checksum(&now, sizeof now, static_cast<uint64_t>(getpid()));
}

/// Where the entries of a file end, all of which `bytes` map; 0 when something else than a kill has damaged it.
/// Whatever a kill has left of one more entry is wiped out.
size_t FindEnd(std::byte *bytes, size_t size, uint64_t seed) {
  size_t at = sizeof(flight::FileHeader);
  flight::EntryHeader header;
  while (at + sizeof header <= size) {
    std::memcpy(&header, bytes + at, sizeof header);
    if (flight::FirstWord(header) == 0) break;
    const bool fits = header.length >= sizeof header && flight::Padded(header.length) <= size - at;
    if (!fits || flight::EntryChecksum(header, bytes + at + sizeof header, seed) != header.checksum) return 0;
    at += flight::Padded(header.length);
  }
  const size_t rest = std::min(size - at, flight::kMaxEntrySize);
  for (size_t i = 0; i < rest; i += 8) {
    uint64_t word;
    std::memcpy(&word, bytes + at + i, sizeof word);
    if (word != 0) std::memset(bytes + at + i, 0, sizeof word);
  }
  return at;
}

/// FindEnd in a file on the disk.
size_t FindEndOf(const base::UniqueFd &disk, size_t size, uint64_t seed) {
  void *base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, disk.Get(), 0);
  if (base == MAP_FAILED) return 0;
  auto *bytes = static_cast<std::byte *>(base);
  GuardMapping(bytes, size);
  const size_t end = FindEnd(bytes, size, seed);
  UnguardMapping(bytes);
  munmap(base, size);
  return MappingIsLost() ? 0 : end;
}

}  // namespace

void Unmap(RingFile *file) {
  if (file->base != nullptr) {
    UnguardMapping(file->base);
    munmap(file->base, file->size);
  }
  if (file->disk >= 0) close(file->disk);
  *file = {};
}

bool Prepare(const RingFile &file, size_t from, size_t to) {
  from &= ~(kPage - 1);
  to = std::min((to + kPage - 1) & ~(kPage - 1), file.size);
  if (from >= to || madvise(file.base + from, to - from, MADV_POPULATE_WRITE) == 0) return true;
  return errno == EINVAL || errno == ENOSYS;  // an older kernel: then the pages come one by one
}

int Save(const RingFile &file, size_t from, size_t to) {
  for (size_t at = from; at < to;) {
    const ssize_t done = pwrite(file.disk, file.base + at, to - at, static_cast<off_t>(at));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return done < 0 ? errno : EIO;
    at += static_cast<size_t>(done);
  }
  GiveBack(file.base, from, to);
  return 0;
}

std::string RingFiles::PathOf(uint64_t serial) const {
  return folder_ + "/" + NameOf(serial);
}

std::string RingFiles::Open(const std::string &folder, const std::string &unsaved, uint64_t megabytes) {
  folder_ = folder;
  most_ = megabytes * kMiB;
  fileSize_ = std::clamp<size_t>(most_ / kFilesOfRing, kLeastFile, kMostFile);
  if (const int error = MakeFolders(folder, 0750); error != 0) return Failure(folder, error);
  lock_.Reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_) return Failure(folder, errno);
  if (flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? folder + ": another process records there" : Failure(folder, errno);
  }
  if (std::string failure = unsaved_.Open(unsaved, folder); !failure.empty()) return failure;
  std::map<uint64_t, uint64_t> files;
  if (const int error = ListFiles(folder, &files); error != 0) return Failure(folder, error);
  lastSerial_ = files.empty() ? 0 : files.rbegin()->first;
  return "";
}

/// Make the copy in memory of a file, which is `fileSize_` long. "" or what is wrong.
std::string RingFiles::MakeCopy(base::UniqueFd disk, RingFile *file) const {
  file->base = unsaved_.Make(NameOf(file->serial), fileSize_);
  if (file->base == nullptr) return Failure("no memory", errno);
  file->size = fileSize_;
  file->disk = disk.Release();
  file->begin = file->at;
  // The header, and what stands on the disk of the page that is written next.
  for (const size_t page : {size_t{0}, file->at & ~(kPage - 1)}) {
    const size_t length = std::min(file->at - page, kPage);
    if (!Prepare(*file, page, page + kPage)) return Failure("no memory", errno);
    if (pread(file->disk, file->base + page, length, static_cast<off_t>(page)) < 0)
      return Failure(PathOf(file->serial), errno);
  }
  return "";
}

/// Find a file of an earlier run. False when it can't be gone on with.
bool RingFiles::Reopen(uint64_t serial, RingFile *file) const {
  const std::string path = PathOf(serial);
  base::UniqueFd fd(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (static_cast<uint64_t>(status.st_size) != fileSize_) return false;
  flight::FileHeader header;
  if (pread(fd.Get(), &header, sizeof header, 0) != sizeof header) return false;
  const flight::FileHeader wanted = flight::MakeFileHeader(serial, header.seed);
  if (std::memcmp(&header, &wanted, sizeof header) != 0) return false;
  file->serial = serial;
  file->seed = header.seed;
  file->at = FindEndOf(fd, fileSize_, header.seed);
  if (file->at != 0 && MakeCopy(std::move(fd), file).empty()) return true;
  Unmap(file);
  return false;
}

void RingFiles::Continue(RingFile *current, RingFile *next) {
  if (lastSerial_ == 0 || !Reopen(lastSerial_, current)) return;
  if (current->at > sizeof(flight::FileHeader)) return;
  // Nothing stands in it yet: the last run had made it for later.
  RingFile before;
  if (lastSerial_ < 2 || !Reopen(lastSerial_ - 1, &before)) return;
  *next = *current;
  *current = before;
}

/// Remove the oldest files until there is room for one more.
std::string RingFiles::Prune() {
  std::map<uint64_t, uint64_t> files;
  if (const int error = ListFiles(folder_, &files); error != 0) return Failure(folder_, error);
  uint64_t bytes = fileSize_;
  for (const auto &[serial, size] : files) bytes += size;
  for (const auto &[serial, size] : files) {
    if (bytes <= most_) break;
    if (unlink(PathOf(serial).c_str()) != 0 && errno != ENOENT) return Failure(PathOf(serial), errno);
    bytes -= size;
  }
  return "";
}

/// Make a file at `path`, all of it reserved, and give it its header and then its name. "" or what is wrong.
std::string RingFiles::MakeOnDisk(const std::string &path, RingFile *file) const {
  base::UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640));
  // Reserved, so that there is room for each entry.
  if (!fd || fallocate(fd.Get(), 0, 0, static_cast<off_t>(fileSize_)) != 0) return Failure(path, errno);
  const flight::FileHeader header = flight::MakeFileHeader(file->serial, file->seed);
  if (pwrite(fd.Get(), &header, sizeof header, 0) != sizeof header) return Failure(path, errno);
  if (std::string failure = MakeCopy(std::move(fd), file); !failure.empty()) return failure;
  return std::rename(path.c_str(), PathOf(file->serial).c_str()) == 0 ? "" : Failure(path, errno);
}

std::string RingFiles::Make(RingFile *file) {
  if (std::string failure = Prune(); !failure.empty()) return failure;
  // It gets its name when it has its header, so that no kill leaves a file that is none.
  const std::string path = folder_ + "/.new";
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return Failure(path, errno);
  file->serial = lastSerial_ + 1;
  file->seed = RandomSeed();
  file->at = sizeof(flight::FileHeader);
  std::string failure = MakeOnDisk(path, file);
  if (failure.empty()) {
    lastSerial_ = file->serial;
  } else {
    unlink(path.c_str());
    Unmap(file);
  }
  return failure;
}

void RingFiles::Finish(RingFile *file) const {
  if (file->base != nullptr) unsaved_.Remove(NameOf(file->serial));
  Unmap(file);
}

}  // namespace hosted
