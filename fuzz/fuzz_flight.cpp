// Flight recordings: whatever stands in a file, what is whole is read, what is not is told, and a copy without names
// can be read again. One thread.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>

#include "base/uniqueFd.h"
#include "flight/reader.h"
#include "flight/redact.h"
#include "flight/writer.h"
#include "fuzz/seedRecord.h"

namespace {

void Check(bool holds) {
  if (!holds) abort();
}

std::vector<std::byte> Seed() {
  const std::vector<std::byte> record = fuzz::SeedRecord();
  std::ostringstream out;
  flight::Writer writer(&out);
  for (const auto &what : std::initializer_list<decltype(flight::Entry::what)>{
           flight::Start{false, 1, 2, 3, "0.2.0", "Jan", "root", "boot"}, flight::Observation{29, 7, 8, record},
           flight::Taken{1, record.size()}, flight::ClockRead{}, flight::Timer{"woken"}, flight::Done{},
           flight::HostAnswer{flight::HostKind::kText, false, false, 0, "storage/devices/naa.1/partitions/1",
                              "a volume"},
           flight::Event{record}, flight::Drop{"name", "rate"}, flight::Lost{4}, flight::Stop{0}}) {
    writer.Append({5, 6, 0, "APDCorrelator", what});
  }
  const std::string bytes = out.str();
  const auto *from = reinterpret_cast<const std::byte *>(bytes.data());
  return {from, from + bytes.size()};
}

/// Make the checksums of the entries right, as far as their lengths lead, so that what is in them is looked at.
void Resign(std::vector<std::byte> *bytes) {
  flight::FileHeader file;
  if (bytes->size() < sizeof file) return;
  std::memcpy(&file, bytes->data(), sizeof file);
  flight::EntryHeader header;
  for (size_t at = sizeof file; at + sizeof header <= bytes->size(); at += flight::Padded(header.length)) {
    std::memcpy(&header, bytes->data() + at, sizeof header);
    if (header.length < sizeof header || flight::Padded(header.length) > bytes->size() - at) return;
    header.checksum = flight::EntryChecksum(header, bytes->data() + at + sizeof header, file.seed);
    std::memcpy(bytes->data() + at, &header, sizeof header);
  }
}

/// A file in memory, by a path.
std::string PathOf(const base::UniqueFd &fd, const void *bytes, size_t size) {
  Check(ftruncate(fd.Get(), 0) == 0 && pwrite(fd.Get(), bytes, size, 0) == static_cast<ssize_t>(size));
  return "/proc/self/fd/" + std::to_string(fd.Get());
}

size_t ReadAll(const std::string &path, size_t size) {
  std::string error;
  const std::unique_ptr<flight::Reader> reader = flight::Reader::Open(path, &error);
  Check((reader == nullptr) == !error.empty());
  if (reader == nullptr) return 0;
  size_t count = 0;
  for (flight::Entry entry; reader->Next(&entry); ++count) Check(reader->Offset() < size);
  Check(reader->SkippedBytes() <= size);
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::vector<std::byte> seed = Seed();
  static const base::UniqueFd fd(memfd_create("recording", MFD_CLOEXEC));
  std::vector<std::byte> bytes = fuzz::Mutate(data, size, seed);
  if (size > 0 && data[0] % 4 == 1) Resign(&bytes);
  const size_t count = ReadAll(PathOf(fd, bytes.data(), bytes.size()), bytes.size());
  std::ostringstream out;
  const std::string failure = flight::Redact("/proc/self/fd/" + std::to_string(fd.Get()), &out);
  if (!failure.empty()) return 0;
  const std::string copy = out.str();
  Check(ReadAll(PathOf(fd, copy.data(), copy.size()), copy.size()) == count);
  return 0;
}
