#include "flight/fileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "flight/parse.h"

namespace flight {
namespace {

constexpr size_t kBufferSize = 2 * kMaxEntrySize;
constexpr size_t kWord = 8;
/// A file that is made so that hashing what is no entry takes for ever is given up.
constexpr uint64_t kMostEffort = uint64_t{1} << 30;

/// Where the copy in memory of a file stands that is in its ring; "" for any other.
std::string UnsavedPath(const std::string &path) {
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::absolute(path, error).lexically_normal();
  std::string folder = whole.parent_path();
  constexpr std::string_view kRing = kRingFolder;
  if (error || !folder.ends_with(kRing)) return "";
  return folder.replace(folder.size() - kRing.size(), kRing.size(), kUnsavedFolder) + "/" + whole.filename().string();
}

}  // namespace

void FileReader::Find(uint64_t offset, uint64_t bytes, std::string what) {
  findings_.push_back({path_, offset, bytes, std::move(what)});
}

void FileReader::FindGap(uint64_t from) {
  if (from < Offset()) Find(from, Offset() - from, "damaged");
}

bool FileReader::Fill(uint64_t offset) {
  auto *bytes = reinterpret_cast<char *>(buffer_.data());
  if (offset >= bufferOffset_ && offset <= bufferOffset_ + filled_) {
    const auto gone = static_cast<size_t>(offset - bufferOffset_);
    filled_ -= gone;
    std::memmove(bytes, bytes + gone, filled_);
  } else {
    filled_ = 0;
  }
  bufferOffset_ = offset;
  at_ = 0;
  const size_t size = buffer_.size() * kWord;
  while (filled_ < size && !isAtEnd_) {
    const ssize_t got = Read(bytes + filled_, size - filled_, bufferOffset_ + filled_);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      Find(bufferOffset_ + filled_, 0, std::string("cannot be read on: ") + std::strerror(errno));
      isAtEnd_ = true;
      return false;
    }
    if (got == 0) isAtEnd_ = true;
    filled_ += static_cast<size_t>(got);
  }
  return true;
}

ssize_t FileReader::Read(char *to, size_t size, uint64_t offset) const {
  constexpr size_t kPage = 4096;
  // A page leaves memory when it is on the disk, so memory is looked at first.
  const off_t data = unsaved_ ? lseek(unsaved_.Get(), static_cast<off_t>(offset), SEEK_DATA) : -1;
  if (data == static_cast<off_t>(offset)) {
    std::array<char, kPage> page;
    const size_t at = offset % kPage;
    const ssize_t got = pread(unsaved_.Get(), page.data(), kPage, static_cast<off_t>(offset - at));
    size = std::min(size, kPage - at);
    if (got == kPage && std::ranges::any_of(page, [](char byte) { return byte != 0; })) {
      std::copy_n(page.data() + at, size, to);
      return static_cast<ssize_t>(size);
    }
  } else if (data >= 0) {
    size = std::min(size, static_cast<size_t>(data) - offset);
  }
  return pread(fd_.Get(), to, size, static_cast<off_t>(offset));
}

bool FileReader::IsEntry(EntryHeader *header) {
  if (Available() < sizeof *header) return false;
  std::memcpy(header, Here(), sizeof *header);
  if (!IsPlausible(*header) || Available() < Padded(header->length)) return false;
  if (EntryChecksum(*header, Here() + sizeof *header, seed_) == header->checksum) return true;
  effort_ += Padded(header->length);
  return false;
}

bool FileReader::SkipZeros() {
  for (;;) {
    uint64_t word = 0;
    while (Available() >= kWord) {
      std::memcpy(&word, Here(), kWord);
      if (word != 0) return true;
      at_ += kWord;
    }
    if (isAtEnd_) break;
    Fill(Offset());
  }
  for (size_t i = 0; i < Available(); ++i) {
    if (Here()[i] != std::byte{0}) return true;
  }
  at_ = filled_;
  return false;
}

bool FileReader::Next(EntryHeader *header, Bytes *payload) {
  at_ += std::exchange(entrySize_, 0);
  const uint64_t from = Offset();
  bool isOfKill = false;  // a first word of zeros: what may stand behind it is of an entry that was never finished
  for (;;) {
    if (Available() < kMaxEntrySize && !isAtEnd_) Fill(Offset());
    if (Available() == 0) break;
    if (IsEntry(header)) {
      FindGap(from);
      entrySize_ = Padded(header->length);
      entryOffset_ = Offset();
      *payload = {Here() + sizeof *header, header->length - sizeof *header};
      return true;
    }
    const uint64_t before = Offset();
    if (!SkipZeros()) {
      if (before > from && !isOfKill) Find(from, before - from, "damaged");
      return false;
    }
    if (Offset() > before) {
      isOfKill = isOfKill || before == from;
      // The file may have grown between the reading of its zeros and of what stands behind them.
      if (before != from || std::exchange(lookedAgainAt_, before) == before) continue;
      filled_ = 0;
      isAtEnd_ = false;
      Fill(before);
      continue;
    }
    at_ += std::min(kWord, Available());
    if (effort_ > kMostEffort) {
      Find(from, Offset() - from, "damaged, and too much of it to look for the rest");
      at_ = filled_;
      isAtEnd_ = true;
      return false;
    }
  }
  if (Offset() > from && !isOfKill) Find(from, Offset() - from, "damaged or cut");
  return false;
}

bool FileReader::HasEntryWithSeed(uint64_t seed) {
  seed_ = seed;
  Fill(sizeof header_);
  isAtEnd_ = true;  // what begins with so much that is no entry is something else
  EntryHeader header;
  Bytes payload;
  const bool has = Next(&header, &payload);
  isAtEnd_ = false;
  filled_ = 0;
  entrySize_ = 0;
  effort_ = 0;
  findings_.clear();
  return has;
}

std::string FileReader::CheckHeader(bool isWhole) {
  const bool isMagic = isWhole && header_.magic == kMagic;
  const FileHeader wanted = MakeFileHeader(header_.serial, header_.seed);
  if (isWhole && std::memcmp(&wanted, &header_, sizeof wanted) == 0) {
    seed_ = header_.seed;
    Fill(sizeof header_);
    return "";
  }
  if (isMagic && header_.version != kFormatVersion &&
      Checksum(&header_, offsetof(FileHeader, checksum), 0) == header_.checksum) {
    return path_ + ": a flight recording of format version " + std::to_string(header_.version) +
           "; this program reads version " + std::to_string(kFormatVersion);
  }
  // Either seed will do.
  if (isWhole && (HasEntryWithSeed(header_.seed) || HasEntryWithSeed(header_.seedAgain))) {
    Fill(sizeof header_);
    Find(0, 0, "its header is damaged");
    header_.serial = 0;
    return "";
  }
  if (!isMagic) return path_ + ": not a flight recording";
  return path_ + ": its header is damaged, or of another format, and no entry behind it is whole";
}

void FileReader::OpenUnsaved(uint64_t size) {
  const std::string path = UnsavedPath(path_);
  if (path.empty()) return;
  base::UniqueFd copy(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  struct stat status {};
  FileHeader header;
  if (!copy || fstat(copy.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (static_cast<uint64_t>(status.st_size) != size) return;
  if (pread(copy.Get(), &header, sizeof header, 0) != sizeof header) return;
  if (std::memcmp(&header, &header_, sizeof header) == 0) unsaved_ = std::move(copy);
}

std::string FileReader::Open(const std::string &path) {
  path_ = path;
  // A pipe in place of a file must not hold up the reader.
  fd_.Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd_ || fstat(fd_.Get(), &status) != 0) return path + ": " + std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return path + ": not a file";
  // Enough for the longest entry of it; a ring's file has all of its length from the start.
  buffer_.resize(
      static_cast<size_t>(std::clamp<uint64_t>(Padded(static_cast<uint64_t>(status.st_size)), 65536, kBufferSize)) /
      kWord);
  const ssize_t got = pread(fd_.Get(), &header_, sizeof header_, 0);
  if (got < 0) return path + ": " + std::strerror(errno);
  OpenUnsaved(static_cast<uint64_t>(status.st_size));
  return CheckHeader(static_cast<size_t>(got) == sizeof header_);
}

}  // namespace flight
