#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "flight/reader.h"
#include "flight/writer.h"
#include "testing/testRoot.h"

namespace flight {
namespace {

using testing_support::WriteFile;

/// One entry alone, as bytes that can be compared.
std::string Encoded(Entry entry) {
  entry.threadNumber = 0;
  std::ostringstream out;
  Writer(&out).Append(entry);
  return out.str();
}

Bytes BytesOf(const std::string &text) {
  return std::as_bytes(std::span(text));
}

/// A recording with every kind of entry, several times, of several threads.
struct Sample {
  std::vector<std::string> entries;
  std::string bytes;

  explicit Sample(uint64_t serial = 0, size_t rounds = 2) {
    std::ostringstream out;
    Writer writer(&out, serial, 0x1234567890abcdef);
    const std::string record(57, '\x01'), event(131, '\xfe');
    for (uint64_t i = 0; i < rounds; ++i) {
      for (const auto &what : std::initializer_list<decltype(Entry::what)>{
               Start{i > 0, 77, i, i + 1, "0.2.0", "Jan  1 2001", "", "0f-1"},
               Observation{29, 4711, 1000, BytesOf(record)},
               Taken{RecordHash(BytesOf(record).data(), record.size()), record.size()},
               ClockRead{ClockKind::kWindowS, -5},
               HostAnswer{HostKind::kText, true, false, 0, "sysinfo/config/intOpts/Net/X", "42"},
               HostAnswer{HostKind::kList, false, true, 13, "storage", ""}, Event{BytesOf(event)},
               Drop{"amb.audit.x", "rate"}, Done{}, Timer{"woken"}, Lost{i}, Stop{-1}}) {
        const Entry entry = {i * 1000, ~i, 0, i % 2 == 0 ? "APDCorrelator" : "", what};
        EXPECT_TRUE(writer.Append(entry));
        entries.push_back(Encoded(entry));
      }
    }
    bytes = out.str();
  }
};

struct Reading {
  std::string error;
  std::vector<std::string> entries;
  uint64_t findings = 0, skipped = 0;
  std::string firstFinding;
};

Reading Read(const std::string &path) {
  Reading reading;
  const std::unique_ptr<Reader> reader = Reader::Open(path, &reading.error);
  if (reader == nullptr) return reading;
  for (Entry entry; reader->Next(&entry);) reading.entries.push_back(Encoded(entry));
  reading.findings = reader->FindingCount();
  reading.skipped = reader->SkippedBytes();
  if (reading.findings > 0) reading.firstFinding = reader->Findings()[0].what;
  return reading;
}

class FlightTest : public testing::Test {
 protected:
  Reading ReadBytes(const std::string &bytes) {
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << bytes;
    return Read(file_);
  }

  const testing_support::TestRoot folder_;
  const std::string file_ = folder_ / "/flight-0000000001.rec";
};

/// How many of `wanted` are missing in `got`, in this order; more than all when something else stands there.
size_t Missing(const std::vector<std::string> &wanted, const std::vector<std::string> &got) {
  size_t at = 0;
  for (const std::string &entry : wanted) at += at < got.size() && got[at] == entry ? 1 : 0;
  return at == got.size() ? wanted.size() - at : wanted.size() + 1;
}

TEST_F(FlightTest, ReadsBackEveryKindOfEntry) {
  const Sample sample;
  Reading reading = ReadBytes(sample.bytes);
  EXPECT_TRUE(reading.entries == sample.entries);
  EXPECT_EQ(reading.findings, 0u);
  // What a recorder has reserved behind its entries is no damage.
  reading = ReadBytes(sample.bytes + std::string(9'000'001, '\0'));
  EXPECT_TRUE(reading.entries == sample.entries);
  EXPECT_EQ(reading.findings, 0u);
  // Nor is what a writer leaves that is killed within an entry: all but its first word.
  reading = ReadBytes(sample.bytes + std::string(8, '\0') + sample.bytes.substr(56, 100) + std::string(100, '\0'));
  EXPECT_TRUE(reading.entries == sample.entries);
  EXPECT_EQ(reading.findings, 0u);
  std::ostringstream out;
  const std::string tooLong(kMaxEntrySize, 'x');
  EXPECT_FALSE(Writer(&out).Append({0, 0, 0, "", Event{BytesOf(tooLong)}}));
}

TEST_F(FlightTest, AThreadKeepsItsNumberWhenItIsNamed) {
  std::ostringstream out;
  Writer writer(&out);
  const auto put = [&](uint16_t number, std::string_view name, decltype(Entry::what) what) {
    EXPECT_TRUE(writer.Append({0, 0, number, name, what}));
  };
  put(1, "rynd", Start{});
  put(2, "rynd", Done{});
  put(3, "rynd", Done{});
  put(2, "APDCorrelator", Done{});
  put(1, "", Start{});  // another run numbers anew
  put(2, "TimerThread", Done{});
  EXPECT_FALSE(writer.Append({0, 0, kMaxThreads, "one too many", Done{}}));
  std::ofstream(file_, std::ios::binary) << out.str();
  std::string error, threads;
  const std::unique_ptr<Reader> reader = Reader::Open(file_, &error);
  ASSERT_NE(reader, nullptr) << error;
  for (Entry entry; reader->Next(&entry);) {
    threads += std::to_string(entry.threadNumber).append(entry.thread).append(" ");
  }
  EXPECT_EQ(threads, "1rynd 2rynd 3rynd 2APDCorrelator 1 2TimerThread ");
}

TEST_F(FlightTest, DamageAtAnyByteCostsTheEntryThatItHits) {
  const Sample sample;
  WriteFile(file_, sample.bytes);
  std::fstream file(file_, std::ios::binary | std::ios::in | std::ios::out);
  const auto put = [&file](size_t at, char byte) {  // in its place, which is faster than a new file
    file.seekp(static_cast<std::streamoff>(at)).put(byte).flush();
  };
  for (size_t i = 0; i < sample.bytes.size(); ++i) {
    for (const int pattern : {0x01, 0x80, 0xff, static_cast<int>(sample.bytes[i])}) {
      if (pattern == 0) continue;
      put(i, static_cast<char>(sample.bytes[i] ^ pattern));
      const Reading reading = Read(file_);
      ASSERT_EQ(reading.error, "") << i;
      ASSERT_GE(reading.findings, 1u) << i << ": damage must be told";
      // The name of a thread is an entry too; those of its thread go on without it.
      const bool hitsName = i >= sizeof(FileHeader) && reading.entries.size() == sample.entries.size();
      if (i >= sizeof(FileHeader) && !hitsName) {
        ASSERT_EQ(Missing(sample.entries, reading.entries), 1u) << i;
      } else if (!hitsName) {
        ASSERT_TRUE(reading.entries == sample.entries) << i;
      }
    }
    put(i, sample.bytes[i]);
  }
}

TEST_F(FlightTest, ACutCostsWhatStoodBehindIt) {
  const Sample sample;
  WriteFile(file_, sample.bytes);
  std::vector<std::string> left = sample.entries;
  for (size_t length = sample.bytes.size(); length-- > 0;) {
    std::filesystem::resize_file(file_, length);
    const Reading reading = Read(file_);
    if (length < sizeof(FileHeader)) {
      EXPECT_EQ(reading.error, file_ + ": not a flight recording");
      continue;
    }
    if (reading.entries.size() < left.size()) left.pop_back();
    ASSERT_TRUE(reading.entries == left) << length;
    ASSERT_LT(reading.skipped, 300u);
  }
  EXPECT_TRUE(left.empty());
}

TEST_F(FlightTest, SaysWhyAFileIsUnusable) {
  Sample sample;
  FileHeader header = MakeFileHeader(1, 2);
  header.version = 2;
  header.checksum = Checksum(&header, offsetof(FileHeader, checksum), 0);
  sample.bytes.replace(0, sizeof header, reinterpret_cast<const char *>(&header), sizeof header);
  EXPECT_EQ(ReadBytes(sample.bytes).error,
            file_ + ": a flight recording of format version 2; this program reads version 1");
  EXPECT_EQ(ReadBytes(std::string(10'000, 'x')).error, file_ + ": not a flight recording");
  EXPECT_EQ(Read(folder_ / "/none").error, folder_ / "/none: No such file or directory");
  EXPECT_EQ(Read("/dev/null").error, "/dev/null: not a file");
  std::filesystem::create_directory(folder_ / "/empty");
  EXPECT_EQ(Read(folder_ / "/empty").error, folder_ / "/empty: no flight recording in this folder");
}

TEST_F(FlightTest, ReadsARingInItsOrderPastWhatIsUnusable) {
  std::vector<std::string> wanted;
  for (const uint64_t serial : std::initializer_list<uint64_t>{9, 10, 12, 13}) {
    const Sample sample(serial, serial);
    std::string name = "/flight-00000000";
    name += (serial < 10 ? "0" : "") + std::to_string(serial) + ".rec";
    WriteFile(folder_ / name, serial == 13 ? "nothing" : sample.bytes);
    if (serial < 13) wanted.insert(wanted.end(), sample.entries.begin(), sample.entries.end());
  }
  for (const char *other : {"/flight-1.rec", "/flight-00000000xx.rec", "/.lock"}) WriteFile(folder_ / other, "other");
  const Reading reading = Read(folder_.Path());
  EXPECT_TRUE(reading.entries == wanted);
  EXPECT_EQ(reading.findings, 2u);
  EXPECT_EQ(reading.firstFinding, "1 files before it are missing");
}

TEST_F(FlightTest, AHugeFileTakesTimeButNoMemory) {
  const Sample sample(0, 1000);
  const auto put = [&](uint64_t offset, const std::string &bytes) {
    std::fstream file(file_, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file << bytes;
  };
  constexpr uint64_t kGiB = uint64_t{1} << 30;
  WriteFile(file_, sample.bytes);
  std::filesystem::resize_file(file_, kGiB);
  put(kGiB - sample.bytes.size(), sample.bytes.substr(0, sample.bytes.size() & ~size_t{7}));
  Reading reading = Read(file_);
  EXPECT_EQ(reading.entries.size(), 2 * sample.entries.size());
  EXPECT_EQ(reading.findings, 1u);  // the zeros between, with a second header
  // Made so that every word looks like the longest entry.
  const EntryHeader header = {kMaxEntrySize, 2, 0, 0, 0, 0};
  std::string bytes(16 << 20, '\0');
  for (size_t i = 0; i + 8 <= bytes.size(); i += 8) std::memcpy(bytes.data() + i, &header, 8);
  reading = ReadBytes(sample.bytes + bytes);
  EXPECT_TRUE(reading.entries == sample.entries);
  EXPECT_EQ(reading.firstFinding, "damaged, and too much of it to look for the rest");
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 600 << 10) << "KiB; it was not held as a whole";
}

}  // namespace
}  // namespace flight
