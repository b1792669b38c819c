// The serialised arguments of an event, as their reader finds them: any bytes at all. Stateless: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/messageFormat.h"

namespace hosted {

/// One argument, as far as it can be read.
struct EventArgument {
  MsgFmtKind kind = MsgFmtKind::kNullString;  ///< kNullString stands for one that can't be read, too
  uint64_t bits = 0;                          ///< an integer, extended to 64 bits
  unsigned bytes = 8;                         ///< an integer's width, 4 or 8
  std::string_view text;                      ///< a string without its NUL; borrowed from the area
  bool sound = true;                          ///< false when its bytes are not what a serialiser writes
};

/// Read up to `count` arguments of an area of `length` bytes whose strings are offsets. Reads nothing outside of it;
/// there are fewer arguments than `count` when their descriptors do not fit the area.
std::vector<EventArgument> DecodeEventArguments(const std::byte *area, size_t length, uint32_t count);

/// Append the text of `format` with these arguments. What is missing or of another kind is rendered as far as it can
/// be, and "?" in place of nothing. False when the arguments do not suit the format.
bool RenderArguments(const char *format, std::span<const EventArgument> arguments, std::string *text);

/// Both in one: the text of `format` with the arguments of an area, which may hold anything. `*text` is set in any
/// case; false when the arguments do not suit the format.
bool RenderEvent(const char *format, const std::byte *area, size_t length, uint32_t count, std::string *text);

}  // namespace hosted
