// One argument of an observation as a person writes it: typed ("i32:5"), a bare number, or text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hosted/records/rawRecord.h"

namespace rynctl {

/// An integer of up to 64 bits and a sign, before its type is chosen.
struct Integer {
  bool negative = false;
  uint64_t magnitude = 0;
};

/// The number that the whole of `text` is: decimal or 0x-hexadecimal, a '-' in front for a negative one. Nothing when
/// it is none, or beyond 64 bits.
std::optional<Integer> ParseInteger(std::string_view text);

/// `value` as the integer type called `type` ("i8" to "u64"). Nothing, and `error` saying the range, when it does not
/// fit; nothing, and `error` naming the types, when there is no such type.
std::optional<hosted::RawArgument> TypedInteger(std::string_view type, Integer value, std::string *error);

/// `value` in the first of i32, i64, u64 that it fits. Nothing, with `error`, when it fits none.
std::optional<hosted::RawArgument> SmallestInteger(Integer value, std::string *error);

/// True when `type` names an integer type.
bool IsIntegerType(std::string_view type);

/// A string argument.
hosted::RawArgument TextArgument(std::string_view text);
/// A null string.
hosted::RawArgument NullArgument();

/// Parse one word of the command line: "TYPE:NUMBER", "s:TEXT", "null", a bare number, or else text. Nothing, with
/// `error` naming the word, when its number is none or out of its type's range.
std::optional<hosted::RawArgument> ParseArgument(std::string_view word, std::string *error);

}  // namespace rynctl
