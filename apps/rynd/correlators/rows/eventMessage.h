// An event as a literal that the compiler checks: its namespace against its category, its conversions against what it
// is posted with.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/basics/printfTypes.h"
#include "post/ryndKprob.h"

namespace rynd {

namespace post_row {

// Called only while a row is checked and not constexpr: the name is the compiler's message.
void ErrorRowCategoryIsNotTheEventNamespace();
void ErrorRowFormatHasNoMarkerOrNoEventId();
void ErrorRowArgumentsDoNotMatchTheMessageConversions();
void ErrorRowExtractionDoesNotMatchItsTypes();

/// The printf message of a post format.
constexpr std::string_view MessageOf(std::string_view format) {
  return format.substr(format.find(')') + 1);
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
