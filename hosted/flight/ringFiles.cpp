#include "hosted/flight/ringFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

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

/// Write zeros to a file whose bytes are reserved. The file system then keeps it in memory in larger pieces than the
/// pages that it would bring in one by one. Where it fails nothing is lost but time.
void Fill(int fd, size_t size) {
  static std::array<std::byte, kPage> zeros{};  // only read
  std::array<iovec, 32> parts;
  parts.fill({zeros.data(), zeros.size()});
  for (size_t at = 0; at < size;) {
    const auto count = static_cast<int>(std::min(parts.size(), (size - at) / kPage));
    const ssize_t done = pwritev(fd, parts.data(), count, static_cast<off_t>(at));
    if (done <= 0) return;
    at += static_cast<size_t>(done);
  }
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

/// Where the entries of a mapped file end; 0 when something else than a kill has damaged it. Whatever a kill has left
/// of one more entry is wiped out.
size_t FindEnd(const RingFile &file) {
  size_t at = sizeof(flight::FileHeader);
  flight::EntryHeader header;
  while (at + sizeof header <= file.size) {
    std::memcpy(&header, file.base + at, sizeof header);
    if (flight::FirstWord(header) == 0) break;
    const bool fits = header.length >= sizeof header && flight::Padded(header.length) <= file.size - at;
    if (!fits || flight::EntryChecksum(header, file.base + at + sizeof header, file.seed) != header.checksum) return 0;
    at += flight::Padded(header.length);
  }
  const size_t rest = std::min(file.size - at, flight::kMaxEntrySize);
  for (size_t i = 0; i < rest; i += 8) {
    uint64_t word;
    std::memcpy(&word, file.base + at + i, sizeof word);
    if (word != 0) std::memset(file.base + at + i, 0, sizeof word);
  }
  return at;
}

}  // namespace

void Unmap(RingFile *file) {
  if (file->base != nullptr) {
    UnguardMapping(file->base);
    munmap(file->base, file->size);
  }
  *file = {};
}

bool Prepare(const RingFile &file, size_t from, size_t to) {
  from &= ~(kPage - 1);
  to = std::min((to + kPage - 1) & ~(kPage - 1), file.size);
  if (from >= to || madvise(file.base + from, to - from, MADV_POPULATE_WRITE) == 0) return true;
  return errno == EINVAL || errno == ENOSYS;  // an older kernel: then the pages come one by one
}

void Release(const RingFile &file, size_t from, size_t to) {
  to &= ~(kPage - 1);
  from &= ~(kPage - 1);
  if (from < to) madvise(file.base + from, to - from, MADV_DONTNEED);
}

std::string RingFiles::PathOf(uint64_t serial) const {
  char name[32];
  std::snprintf(name, sizeof name, "%s%010llu%s", flight::kFilePrefix, static_cast<unsigned long long>(serial),
                flight::kFileSuffix);
  return folder_ + "/" + name;
}

std::string RingFiles::Open(const std::string &folder, uint64_t megabytes) {
  folder_ = folder;
  most_ = megabytes * kMiB;
  fileSize_ = std::clamp<size_t>(most_ / kFilesOfRing, kLeastFile, kMostFile);
  if (const int error = MakeFolders(folder, 0750); error != 0) return Failure(folder, error);
  lock_.Reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_) return Failure(folder, errno);
  if (flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? folder + ": another process records there" : Failure(folder, errno);
  }
  std::map<uint64_t, uint64_t> files;
  if (const int error = ListFiles(folder, &files); error != 0) return Failure(folder, error);
  lastSerial_ = files.empty() ? 0 : files.rbegin()->first;
  return "";
}

/// Reserve all of a file, which is `fileSize_` long, and map it.
std::string RingFiles::Map(const base::UniqueFd &fd, const std::string &path, RingFile *file) const {
  // Reserved, so that a full disk is an error here and no signal at a later access.
  if (fallocate(fd.Get(), 0, 0, static_cast<off_t>(fileSize_)) != 0) return Failure(path, errno);
  void *base = mmap(nullptr, fileSize_, PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0);
  if (base == MAP_FAILED) return Failure(path, errno);
  madvise(base, fileSize_, MADV_DONTDUMP);
  file->base = static_cast<std::byte *>(base);
  file->size = fileSize_;
  GuardMapping(file->base, file->size);
  return "";
}

bool RingFiles::Reopen(uint64_t serial, RingFile *file) const {
  const std::string path = PathOf(serial);
  const base::UniqueFd fd(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (static_cast<uint64_t>(status.st_size) != fileSize_) return false;
  file->serial = serial;
  if (!Map(fd, path, file).empty() || file->base == nullptr) return false;
  flight::FileHeader header;
  std::memcpy(&header, file->base, sizeof header);
  const flight::FileHeader wanted = flight::MakeFileHeader(serial, header.seed);
  file->seed = header.seed;
  file->at = std::memcmp(&header, &wanted, sizeof header) == 0 ? FindEnd(*file) : 0;
  Release(*file, 0, file->size);
  if (file->at != 0) return true;
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

/// Give a file that stands at `path` its header, and then its name. "" or what is wrong.
std::string RingFiles::Finish(const std::string &path, RingFile *file) const {
  if (!Prepare(*file, 0, sizeof(flight::FileHeader))) return Failure(path, errno);
  file->seed = RandomSeed();
  file->at = sizeof(flight::FileHeader);
  const flight::FileHeader header = flight::MakeFileHeader(file->serial, file->seed);
  std::memcpy(file->base, &header, sizeof header);
  Release(*file, 0, file->size);  // until it is its turn
  return std::rename(path.c_str(), PathOf(file->serial).c_str()) == 0 ? "" : Failure(path, errno);
}

std::string RingFiles::Make(RingFile *file, bool isFilled) {
  if (std::string failure = Prune(); !failure.empty()) return failure;
  // It gets its name when it has its header, so that no kill leaves a file that is none.
  const std::string path = folder_ + "/.new";
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return Failure(path, errno);
  const base::UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640));
  if (!fd) return Failure(path, errno);
  file->serial = lastSerial_ + 1;
  std::string failure = Map(fd, path, file);
  if (failure.empty() && isFilled) Fill(fd.Get(), file->size);
  if (failure.empty()) failure = Finish(path, file);
  if (failure.empty()) {
    lastSerial_ = file->serial;
  } else {
    unlink(path.c_str());
    Unmap(file);
  }
  return failure;
}

}  // namespace hosted
