// The raw observation record: its layout, its check, and how a sender makes one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hosted {

constexpr size_t kRecordHeaderSize = 32;
constexpr size_t kMaxRecordSize = 131071;  ///< the longest record that the daemon delivers, in bytes
constexpr size_t kArgumentHeaderSize = 8;

enum class ArgumentKind : uint8_t { kSigned = 1, kUnsigned = 2, kString = 3, kNullString = 4 };

/// One typed argument. `width` is 1, 2, 4 or 8 bytes for the integers and 0 otherwise; `bits` holds the integer, a
/// signed one sign-extended to 64 bits; `text` the string, without its NUL.
struct RawArgument {
  ArgumentKind kind;
  uint8_t width = 0;
  uint64_t bits = 0;
  std::string text;
};

/// One observation as a sender describes it.
struct RawRecord {
  uint64_t sequence = 0;
  uint64_t microseconds = 0;
  std::string id;
  std::string message;
  std::vector<RawArgument> arguments;
};

/// The bytes of a record, little-endian and packed; the message is written with its NUL. Nothing is checked but what
/// the layout itself can't hold: 32-bit lengths.
std::vector<std::byte> EncodeRecord(const RawRecord &record);

/// Null when `length` bytes at `bytes` are one well-formed record, else what is wrong with them, as static text.
/// Reads nothing outside of `bytes`.
const char *CheckRecord(const std::byte *bytes, size_t length);

/// The parts of a record that CheckRecord has passed.
RawRecord DecodeRecord(const std::byte *bytes, size_t length);

}  // namespace hosted
