// The layout of an event record, little-endian: header, UUID text, lengths, name, serialised arguments.
#pragma once

#include <cstddef>

namespace rynd {

constexpr size_t kEventSequenceOffset = 8;  ///< 8 bytes
constexpr size_t kEventUuidOffset = 16;
constexpr size_t kEventUuidSize = 38;
constexpr size_t kEventTotalLengthOffset = 56;  ///< 4 bytes: name length + 72 + the bytes of the arguments
constexpr size_t kEventArgumentCountOffset = 60;
constexpr size_t kEventNameLengthOffset = 64;  ///< 4 bytes: with the NUL
constexpr size_t kEventNameOffset = 68;
constexpr size_t kMaxEventNameLength = 129;  ///< with the NUL
constexpr size_t kEventFixedLength = 72;     ///< what the total length counts besides name and arguments

}  // namespace rynd
