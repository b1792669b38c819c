// The part of a raw observation record that the daemon itself reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rynd {

constexpr size_t kRecordHeaderSize = 32;
constexpr size_t kMaxRecordSize = 131071;  ///< the longest record that is valid, in bytes

// Offsets of the header's fields, little-endian.
constexpr size_t kRecordTimeOffset = 8;            ///< 8 bytes: microseconds since the epoch
constexpr size_t kRecordTotalLengthOffset = 16;    ///< 4 bytes: the whole record, header included
constexpr size_t kRecordIdLengthOffset = 24;       ///< 4 bytes: the id with its NUL
constexpr size_t kRecordMessageLengthOffset = 28;  ///< 4 bytes

/// The unsigned 32-bit field at `offset` of `record`.
inline uint32_t RecordField(const std::byte *record, size_t offset) {
  uint32_t value = 0;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}

/// The id of a record that has been checked to hold one.
inline const char *RecordId(const std::byte *record) {
  return reinterpret_cast<const char *>(record + kRecordHeaderSize);
}

}  // namespace rynd
