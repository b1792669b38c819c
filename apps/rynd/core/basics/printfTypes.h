// What the conversions of a printf format read, for the compiler to compare with what they are given.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace rynd {

constexpr size_t kMaxRowArguments = 10;

/// What an argument of an observation, and the conversion that shows it, is.
enum class ArgType : uint8_t { kNone, kStr, kByte, kShort, kInt, kLong };
using ArgTypes = std::array<ArgType, kMaxRowArguments>;

namespace post_row {

// Called only while a format is checked and not constexpr: the name is the compiler's message.
void ErrorConversionIsNotSupported();

constexpr bool IsOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

/// The types of the printf conversions of `format`, in order; "%p" of an extraction format is a string.
constexpr ArgTypes ConversionTypes(std::string_view format) {
  ArgTypes types{};
  size_t count = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    ++i;
    if (i < format.size() && format[i] == '%') continue;
    while (i < format.size() && IsOneOf(format[i], " #+-0123456789.")) ++i;
    size_t longs = 0, shorts = 0;
    for (; i < format.size() && IsOneOf(format[i], "hl"); ++i) ++(format[i] == 'l' ? longs : shorts);
    const char letter = i < format.size() ? format[i] : '\0';
    if (count == kMaxRowArguments) ErrorConversionIsNotSupported();
    if (letter == 's' || letter == 'p') {
      types[count++] = ArgType::kStr;
    } else if (IsOneOf(letter, "diuxXo")) {
      constexpr ArgType kNarrow[] = {ArgType::kInt, ArgType::kShort, ArgType::kByte};
      types[count++] = longs > 0 ? ArgType::kLong : kNarrow[std::min<size_t>(shorts, 2)];
    } else {
      ErrorConversionIsNotSupported();
    }
  }
  return types;
}

constexpr size_t Count(const ArgTypes &types) {
  return static_cast<size_t>(std::find(types.begin(), types.end(), ArgType::kNone) - types.begin());
}

/// The type of a value that is handed to printf.
template <typename Value>
constexpr ArgType TypeOf() {
  if constexpr (std::is_same_v<Value, const char *>) return ArgType::kStr;
  if constexpr (!std::integral<Value>) return ArgType::kNone;
  if constexpr (sizeof(Value) == sizeof(int8_t)) return ArgType::kByte;
  if constexpr (sizeof(Value) == sizeof(int16_t)) return ArgType::kShort;
  return sizeof(Value) == sizeof(int64_t) ? ArgType::kLong : ArgType::kInt;
}

}  // namespace post_row

}  // namespace rynd
