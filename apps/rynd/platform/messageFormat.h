// The message-format facility: printf arguments as bytes that another process can render, and their rendering.
// Declarations only; a platform library provides them. Stateless: any thread.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

enum class MsgFmtKind : uint32_t { kSigned = 1, kUnsigned = 2, kString = 3, kNullString = 4 };

/// One serialised argument's descriptor, 16 bytes, little-endian. The descriptors stand first in the argument area,
/// unaligned; the bytes of the strings follow them.
struct MsgFmtArg {
  MsgFmtKind kind;
  uint32_t size;   ///< integers: width in bytes (4 or 8); strings: length with the NUL; null string: 0
  uint64_t value;  ///< the integer extended to 64 bits; or the string's address, later its offset in the area
};
static_assert(sizeof(MsgFmtArg) == 16);

/// Parse the printf `format` and serialise its arguments into `area` (`room` bytes). 0 with the bytes used and the
/// number of arguments; ENOSPC when they do not fit; EINVAL for a conversion that is none of d i u x X o c s p %.
[[gnu::format(printf, 3, 0)]] int MsgFmt_Serialize(std::byte *area, size_t room, const char *format, va_list arguments,
                                                   size_t *used, uint32_t *count);
/// Argument `index` of an area.
MsgFmtArg MsgFmt_GetArg(const std::byte *area, uint32_t index);
/// The text of `format` with the arguments of an area whose strings are still addresses. A new string that the caller
/// frees with free(), or null when there is no memory or the arguments do not suit the format. A null string is
/// "(null)".
char *MsgFmt_Format(const char *format, const std::byte *area, uint32_t count);
/// Turn the addresses of the strings of `area` into offsets from its start.
void MsgFmt_PointersToOffsets(std::byte *area, uint32_t count);
