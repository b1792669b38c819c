// Why a handler does what it does, and most of all why it does nothing: told by a replay, and no code at all in the
// daemon, whose build does not define RYND_REASONS.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "core/basics/printfTypes.h"

namespace rynd {

#ifdef RYND_REASONS
inline constexpr bool kTellsReasons = true;
#else
inline constexpr bool kTellsReasons = false;
#endif

// Called only while a reason is checked and not constexpr: the name is the compiler's message.
void ErrorReasonArgumentsDoNotMatchItsConversions();

namespace reason {

template <typename Value>
inline constexpr bool kIsText = std::is_convertible_v<const Value &, std::string_view>;

/// The type of the conversion that shows a value; texts of any kind are shown by %s.
template <typename Value>
constexpr ArgType TypeOf() {
  return kIsText<Value> ? ArgType::kStr : post_row::TypeOf<Value>();
}

/// A value as printf takes it, for as long as this lives.
template <typename Value>
class Shown {
 public:
  explicit Shown(const Value &value) : value_(value) {}
  auto Get() const { return value_; }

 private:
  Value value_;
};
template <typename Value>
requires kIsText<Value>
class Shown<Value> {
 public:
  explicit Shown(const std::string_view value) : text_(value.data() == nullptr ? "(null)" : value) {}
  const char *Get() const { return text_.c_str(); }

 private:
  std::string text_;
};

}  // namespace reason

/// A printf literal, checked against what it is given.
template <typename... Values>
struct ReasonFormat {
  const char *text;

  consteval ReasonFormat(const char *format) : text(format) {
    if (post_row::ConversionTypes(format) != ArgTypes{reason::TypeOf<Values>()...}) {
      ErrorReasonArgumentsDoNotMatchItsConversions();
    }
  }
};

/// What a replay does with a reason; nothing defines it in the daemon.
[[gnu::format(printf, 1, 2)]] void TellReason(const char *format, ...);

/// Say why, in a few words: "counter of hynic0 at 2 of 3". A text that is shown must not be a null pointer. Any thread.
template <typename... Values>
void Reason([[maybe_unused]] std::type_identity_t<ReasonFormat<Values...>> format,
            [[maybe_unused]] const Values &...values) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // a literal that has just been matched to its values
#pragma GCC diagnostic ignored "-Wformat-security"
  if constexpr (kTellsReasons) TellReason(format.text, reason::Shown<Values>(values).Get()...);
#pragma GCC diagnostic pop
}

}  // namespace rynd
