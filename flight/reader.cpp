#include "flight/reader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "flight/parse.h"

namespace flight {
namespace {

constexpr size_t kMostNames = 4096;     // of threads, in all files
constexpr size_t kMaxNameLength = 256;  // bytes

}  // namespace

uint64_t RingSerial(std::string_view path) {
  path.remove_prefix(path.rfind('/') + 1);  // npos + 1 is 0
  constexpr std::string_view kPrefix = kFilePrefix;
  constexpr std::string_view kSuffix = kFileSuffix;
  if (path.size() != kPrefix.size() + kSerialDigits + kSuffix.size()) return 0;
  if (!path.starts_with(kPrefix) || !path.ends_with(kSuffix)) return 0;
  const std::string_view digits = path.substr(kPrefix.size(), kSerialDigits);
  uint64_t serial = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), serial);
  return error == std::errc() && end == digits.data() + digits.size() ? serial : 0;
}

int ListRing(const std::string &folder, std::vector<std::string> *files) {
  files->clear();
  std::error_code error;
  std::filesystem::directory_iterator at(folder, error);
  for (; !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
    if (RingSerial(at->path().native()) != 0) files->push_back(at->path().native());
  }
  std::ranges::sort(*files);  // serial numbers have one width
  return error.value();
}

std::unique_ptr<Reader> Reader::Open(const std::string &path, std::string *error) {
  std::vector<std::string> files = {path};
  std::error_code unknown;
  if (std::filesystem::is_directory(path, unknown)) {
    if (const int status = ListRing(path, &files); status != 0) {
      *error = path + ": " + std::strerror(status);
      return nullptr;
    }
    if (files.empty()) {
      *error = path + ": no flight recording in this folder";
      return nullptr;
    }
  }
  std::unique_ptr<Reader> reader(new Reader(std::move(files)));
  error->clear();
  return reader->OpenNextFile(error) ? std::move(reader) : nullptr;
}

void Reader::TakeOver(std::vector<Finding> findings) {
  for (Finding &finding : findings) {
    ++findingCount_;
    skippedBytes_ += finding.bytes;
    if (findings_.size() < kMostFindings) findings_.push_back(std::move(finding));
  }
}

bool Reader::OpenNextFile(std::string *error) {
  while (nextFile_ < files_.size()) {
    file_ = nextFile_++;
    auto file = std::make_unique<FileReader>();
    const std::string failure = file->Open(files_[file_]);
    if (!failure.empty()) {
      if (error != nullptr && error->empty()) *error = failure;
      TakeOver({{files_[file_], 0, 0, "left out: " + failure.substr(files_[file_].size() + 2)}});
      continue;
    }
    const uint64_t serial = RingSerial(files_[file_]);
    if (lastSerial_ != 0 && serial > lastSerial_ + 1) {
      TakeOver({{files_[file_], 0, 0, std::to_string(serial - lastSerial_ - 1) + " files before it are missing"}});
    }
    lastSerial_ = serial;
    current_ = std::move(file);
    threads_.clear();
    return true;
  }
  return false;
}

void Reader::Name(uint16_t thread, Bytes name) {
  const std::string_view text(reinterpret_cast<const char *>(name.data()), name.size());
  auto known = names_.find(text);
  if (known == names_.end() && names_.size() < kMostNames && text.size() <= kMaxNameLength) {
    known = names_.emplace(text).first;
  }
  if (threads_.size() <= thread) threads_.resize(size_t{thread} + 1);
  threads_[thread] = known == names_.end() ? std::string_view() : *known;
}

bool Reader::Next(Entry *entry) {
  for (;;) {
    EntryHeader header;
    Bytes payload;
    const bool isEntry = current_->Next(&header, &payload);
    TakeOver(current_->TakeFindings());
    if (!isEntry) {
      if (!OpenNextFile(nullptr)) return false;
      continue;
    }
    if (static_cast<Kind>(header.kind) == Kind::kName) {
      Name(header.thread, payload);
      continue;
    }
    if (!ParsePayload(static_cast<Kind>(header.kind), payload, entry)) {
      TakeOver({{File(), Offset(), header.length, "an entry does not hold what its kind says"}});
      continue;
    }
    entry->monotonicNs = header.monotonicNs;
    entry->wallUs = header.wallUs;
    entry->threadNumber = header.thread;
    entry->thread = header.thread < threads_.size() ? threads_[header.thread] : std::string_view();
    return true;
  }
}

}  // namespace flight
