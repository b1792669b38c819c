// An event as a literal that the compiler checks: its namespace against its category, its conversions against what it
// is posted with.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "post/ryndKprob.h"

namespace rynd {

constexpr size_t kMaxRowArguments = 10;

/// What an argument of an observation, and the conversion that shows it, is.
enum class ArgType : uint8_t { kNone, kStr, kByte, kShort, kInt, kLong };
using ArgTypes = std::array<ArgType, kMaxRowArguments>;

namespace post_row {

// Called only while a row is checked and not constexpr: the name is the compiler's message.
void ErrorRowCategoryIsNotTheEventNamespace();
void ErrorRowFormatHasNoMarkerOrNoEventId();
void ErrorRowArgumentsDoNotMatchTheMessageConversions();
void ErrorRowExtractionDoesNotMatchItsTypes();
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

/// The printf message of a post format.
constexpr std::string_view MessageOf(std::string_view format) {
  return format.substr(format.find(')') + 1);
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

/// One event. `format` is the whole post format: marker, event id, ")", printf message.
struct EventMessage {
  Category category;
  const char *format;

  consteval EventMessage(Category eventCategory, const char *eventFormat)
      : category(eventCategory), format(eventFormat) {
    const std::string_view text(format);
    if (!text.starts_with(kEventMarker) || text.find(')') == std::string_view::npos) {
      post_row::ErrorRowFormatHasNoMarkerOrNoEventId();
    }
    if (!text.substr(kEventMarker.size()).starts_with(EventNamespace(category))) {
      post_row::ErrorRowCategoryIsNotTheEventNamespace();
    }
  }
};

/// Post `kMessages[kMessage]` with `values`, whose types and number the compiler compares with its conversions. Any
/// thread.
template <const auto &kMessages, size_t kMessage, typename... Values>
void PostMessage(Values... values) {
  static_assert(post_row::ConversionTypes(post_row::MessageOf(kMessages[kMessage].format)) ==
                    ArgTypes{post_row::TypeOf<Values>()...},
                "the values do not match the message's conversions");
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // a literal that has just been matched to its values
#pragma GCC diagnostic ignored "-Wformat-security"
  EventPost(kMessages[kMessage].category, kMessages[kMessage].format, values...);
#pragma GCC diagnostic pop
}
/// The same for one message by itself.
template <const EventMessage &kMessage, typename... Values>
void PostMessage(Values... values) {
  static constexpr EventMessage kOne[] = {kMessage};
  PostMessage<kOne, 0>(values...);
}

}  // namespace rynd
