// How a flight recording lies in its file: a header, then entries, little-endian, each at a multiple of 8 bytes from
// the file's start. docs/rynd-flight.5 says it for others. Stateless: any thread.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace flight {

static_assert(std::endian::native == std::endian::little, "entries are copied as they lie");

constexpr uint32_t kFormatVersion = 1;
constexpr std::array<char, 8> kMagic = {'r', 'y', 'n', 'f', 'l', 't', '\r', '\n'};
constexpr char kFilePrefix[] = "flight-";  ///< a ring's file: flight-NNNNNNNNNN.rec, its serial number in ten digits
constexpr char kFileSuffix[] = ".rec";
constexpr size_t kSerialDigits = 10;
/// Below the root: the ring, and what is not on its disk yet, copies of its files with holes.
constexpr char kRingFolder[] = "/var/lib/corvane/flight";
constexpr char kUnsavedFolder[] = "/var/run/corvane/flight";

/// The front of each file.
struct FileHeader {
  std::array<char, 8> magic;
  uint32_t version;
  uint32_t headerSize;  ///< where the first entry stands
  uint64_t serial;      ///< of the file in its ring, rising by one; 0 for a file that belongs to none
  uint64_t seed;        ///< of its entries' checksums
  uint64_t seedAgain;   ///< the same, for when one of them is damaged
  uint64_t checksum;    ///< of the fields above, seed 0
};
static_assert(sizeof(FileHeader) == 48);

/// What an entry tells. Numbers are never given a second meaning.
enum class Kind : uint16_t {
  kName = 1,     ///< from here on the thread with this number has this name
  kStart,        ///< a run of the daemon begins, or goes on in this file
  kObservation,  ///< a context handed a record to the daemon
  kTaken,        ///< an agent begins with an observation
  kTimer,        ///< a timer's callback begins on this thread: its name
  kDone,         ///< what the thread took, or its timer's callback, has ended
  kClock,        ///< a clock that the thread read in between
  kHost,         ///< an answer of the host
  kEvent,        ///< an event was posted
  kDrop,         ///< an event was given up instead
  kLost,         ///< entries before this one are missing: there was no room for them
  kStop,         ///< the run ends
};
constexpr uint16_t kKinds = 12;

/// The front of each entry. A word of zeros in its place is the end of the file's entries.
struct EntryHeader {
  uint32_t length;  ///< bytes of header and payload; zeros up to the next multiple of 8 follow
  uint16_t kind;
  uint16_t thread;       ///< 0: none
  uint64_t checksum;     ///< of the whole entry, this field left out, its zeros included; seeded by the file
  uint64_t monotonicNs;  ///< of the clock that nobody sets
  uint64_t wallUs;       ///< microseconds since the epoch
};
static_assert(sizeof(EntryHeader) == 32);
constexpr size_t kMaxEntrySize = size_t{2} << 20;  ///< bytes
constexpr uint16_t kMaxThreads = 1024;             ///< thread numbers are below

// Payloads: a fixed part, then what its lengths say. A text there has no NUL.

struct StartPart {
  uint32_t continued;  ///< 1: the run began in an earlier file
  int32_t pid;
  uint64_t startWallUs, startMonotonicNs;  ///< when the run began
  std::array<uint32_t, 4> lengths;         ///< of version, build, root, boot id
};
struct ObservationPart {
  uint32_t context;  ///< 0 to 28 the kernel's, 29 the programs'
  int32_t pid;       ///< the sender of context 29, else 0
  uint32_t uid;
  uint32_t length;  ///< of the raw record that follows
};
struct TakenPart {
  uint64_t hash;    ///< Checksum of the raw record's bytes, zeros up to a multiple of 8 included, seed 0
  uint64_t length;  ///< of the raw record
};
struct ClockPart {
  uint32_t clock;  ///< ClockKind
  uint32_t zero;
  int64_t value;
};
enum class ClockKind : uint32_t { kWallS = 1, kMonotonicNs, kWindowS };
struct HostPart {
  uint32_t what;     ///< HostKind
  uint32_t flags;    ///< kIsSetting, kIsCut
  int32_t status;    ///< 0 or an errno value
  uint32_t path;     ///< its length
  uint32_t content;  ///< its length
  uint32_t zero;
};
enum class HostKind : uint32_t {
  kText,    ///< the content of a file
  kList,    ///< the names in a folder, as path components, each with a line end
  kExists,  ///< whether something stands there
  kWrite,   ///< a file was replaced by one of this content
  kAction,  ///< something was done to the kernel: the path names it, the content holds its fields
};
constexpr uint32_t kHostKinds = 5;
constexpr uint32_t kIsSetting = 1;  ///< looked up by the recorder at the front of a file, not by an agent
constexpr uint32_t kIsCut = 2;      ///< the content was too long and is left out
struct DropPart {
  std::array<uint32_t, 2> lengths;  ///< of the event's name, of the reason
};
struct LostPart {
  uint64_t count;
};
struct StopPart {
  int64_t status;  ///< that the daemon returns
};

/// A hash of `size` bytes, a multiple of 8. A change within one word always changes it.
inline uint64_t Checksum(const void *bytes, size_t size, uint64_t seed) {
  constexpr uint64_t kOdd = 0x9e3779b97f4a7c15;
  // Four lanes, so that no multiplication waits for the one before.
  std::array<uint64_t, 4> lanes = {seed, seed + kOdd, seed ^ kOdd, ~seed};
  const auto *at = static_cast<const std::byte *>(bytes);
  const auto mix = [](uint64_t lane, uint64_t word) { return std::rotl((lane ^ word) * kOdd, 29); };
  const auto word = [&at](size_t index) {
    uint64_t value;
    std::memcpy(&value, at + index * 8, sizeof value);
    return value;
  };
  size_t words = size / 8;
  for (; words >= 4; words -= 4, at += 32) {
    for (size_t i = 0; i < 4; ++i) lanes[i] = mix(lanes[i], word(i));
  }
  for (size_t i = 0; i < words; ++i) lanes[i] = mix(lanes[i], word(i));
  uint64_t hash = size;
  for (const uint64_t lane : lanes) hash = mix(hash, lane);
  return hash ^ hash >> 32;
}

/// The first 8 bytes of an entry.
inline uint64_t FirstWord(const EntryHeader &header) {
  return header.length | uint64_t{header.kind} << 32 | uint64_t{header.thread} << 48;
}

/// `size` up to the next multiple of 8.
constexpr size_t Padded(size_t size) {
  return (size + 7) & ~size_t{7};
}

/// The checksum of the entry with this header, whose checksum is not looked at, and `rest`, its padded payload.
inline uint64_t EntryChecksum(const EntryHeader &header, const std::byte *rest, uint64_t seed) {
  const std::array<uint64_t, 3> front = {FirstWord(header), header.monotonicNs, header.wallUs};
  return Checksum(rest, Padded(header.length) - sizeof header, Checksum(front.data(), sizeof front, seed));
}

/// The whole header of a file.
inline FileHeader MakeFileHeader(uint64_t serial, uint64_t seed) {
  FileHeader header = {kMagic, kFormatVersion, sizeof(FileHeader), serial, seed, seed, 0};
  header.checksum = Checksum(&header, offsetof(FileHeader, checksum), 0);
  return header;
}

/// Checksum of `size` bytes of any number, as TakenPart wants it.
inline uint64_t RecordHash(const std::byte *bytes, size_t size) {
  std::array<std::byte, 8> rest{};
  const size_t whole = size & ~size_t{7};
  if (whole < size) std::memcpy(rest.data(), bytes + whole, size - whole);
  return Checksum(rest.data(), sizeof rest, Checksum(bytes, whole, 0));
}

}  // namespace flight
