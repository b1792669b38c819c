// One argument inside a raw record, read where it lies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hosted/records/rawRecord.h"

namespace hosted {

/// A view of one argument; `text` points into the record.
struct RawArgumentView {
  ArgumentKind kind;
  uint8_t width;          ///< of an integer, in bytes
  uint64_t bits;          ///< an integer, a signed one sign-extended
  std::string_view text;  ///< a string without its NUL, which does follow it; data() is null for a null string
  size_t size;            ///< bytes in the record, the argument's own header included
};

/// Read the argument at `bytes`, of which `room` are left. Null and `view`, or what is wrong, as static text.
const char *ParseRawArgument(const std::byte *bytes, size_t room, RawArgumentView *view);

/// The fixed part of a record.
struct RawHeader {
  uint64_t sequence;
  uint64_t microseconds;
  uint32_t total;  ///< bytes of the whole record
  uint32_t argumentCount;
  uint32_t idLength;       ///< NUL included
  uint32_t messageLength;  ///< the text may end in a NUL
};

/// Read the header from kRecordHeaderSize bytes.
RawHeader LoadRawHeader(const std::byte *bytes);

}  // namespace hosted
