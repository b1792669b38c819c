// Stateless correlation as a checked table: one row says which event an observation posts, and the compiler refuses a
// row whose parts disagree.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>
#include <utility>

#include "core/handlerTable.h"
#include "platform/ryn.h"
#include "post/ryndKprob.h"

namespace rynd {

constexpr size_t kMaxRowArguments = 10;

/// What an argument of an observation, and the conversion that shows it, is.
enum class ArgType : uint8_t { kNone, kStr, kInt, kLong };
using ArgTypes = std::array<ArgType, kMaxRowArguments>;

/// The arguments that a row reads: by index, up to the first that is none; or, with `extraction`, all at once by
/// Ryn_GetArgs and that format.
struct Fields {
  ArgTypes types{};
  const char *extraction = nullptr;
};

/// Which argument fills each placeholder of the message; in order by default.
using Order = std::array<uint8_t, kMaxRowArguments>;
constexpr Order kInOrder = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

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
    size_t longs = 0;
    for (; i < format.size() && IsOneOf(format[i], "hl"); ++i) longs += format[i] == 'l' ? 1 : 0;
    const char letter = i < format.size() ? format[i] : '\0';
    if (count == kMaxRowArguments) ErrorConversionIsNotSupported();
    if (letter == 's' || letter == 'p') {
      types[count++] = ArgType::kStr;
    } else if (IsOneOf(letter, "diuxXo")) {
      types[count++] = longs > 0 ? ArgType::kLong : ArgType::kInt;
    } else {
      ErrorConversionIsNotSupported();
    }
  }
  return types;
}

constexpr size_t Count(const ArgTypes &types) {
  return static_cast<size_t>(std::find(types.begin(), types.end(), ArgType::kNone) - types.begin());
}

template <ArgType kType>
struct ValueOf;
template <>
struct ValueOf<ArgType::kStr> {
  using type = const char *;
};
template <>
struct ValueOf<ArgType::kInt> {
  using type = int32_t;
};
template <>
struct ValueOf<ArgType::kLong> {
  using type = int64_t;
};

inline int ReadOne(const Observation *observation, uint32_t index, const char *&text) {
  return Ryn_GetStringArg(observation, index, &text);
}
inline int ReadOne(const Observation *observation, uint32_t index, int32_t &value) {
  return Ryn_GetIntArg(observation, index, &value);
}

/// The printf message of a post format.
constexpr std::string_view MessageOf(std::string_view format) {
  return format.substr(format.find(')') + 1);
}

}  // namespace post_row

/// One observation id and the one event it posts.
struct PostRow {
  const char *id;      ///< observation id, "ryn." included
  Category category;   ///< handed to EventPost; the namespace word of `format`
  Fields fields;       ///< the arguments that are read; a failing read ends the handler silently
  const char *format;  ///< whole post format: marker, event id, ")", printf message
  Order order;         ///< which argument fills each placeholder

  consteval PostRow(const char *rowId, Category rowCategory, Fields rowFields, const char *rowFormat,
                    Order rowOrder = kInOrder)
      : id(rowId), category(rowCategory), fields(rowFields), format(rowFormat), order(rowOrder) {
    std::string_view text(format);
    const size_t idEnd = text.find(')');
    if (!text.starts_with(kEventMarker) || idEnd == std::string_view::npos) {
      post_row::ErrorRowFormatHasNoMarkerOrNoEventId();
    }
    if (!text.substr(kEventMarker.size()).starts_with(EventNamespace(category))) {
      post_row::ErrorRowCategoryIsNotTheEventNamespace();
    }
    const ArgTypes wanted = post_row::ConversionTypes(text.substr(idEnd + 1));
    for (size_t i = 0; i < post_row::Count(wanted); ++i) {
      if (wanted[i] != fields.types[order[i]]) post_row::ErrorRowArgumentsDoNotMatchTheMessageConversions();
    }
    if (fields.extraction != nullptr && post_row::ConversionTypes(fields.extraction) != fields.types) {
      post_row::ErrorRowExtractionDoesNotMatchItsTypes();
    }
  }
};

/// True when no id stands in two rows.
template <size_t kSize>
consteval bool UniqueIds(const std::array<PostRow, kSize> &rows) {
  for (size_t i = 0; i < kSize; ++i) {
    for (size_t j = i + 1; j < kSize; ++j) {
      if (std::string_view(rows[i].id) == rows[j].id) return false;
    }
  }
  return true;
}

namespace post_row {

/// Read the arguments of `kRows[kRow]` into a tuple. False when one can't be read.
template <const auto &kRows, size_t kRow, typename Values, size_t... kField>
bool ReadFields(const Observation *observation, Values *values, std::index_sequence<kField...>) {
  if constexpr (kRows[kRow].fields.extraction != nullptr) {
    return Ryn_GetArgs(observation, kRows[kRow].fields.extraction, &std::get<kField>(*values)...) == 0;
  } else {
    return ((ReadOne(observation, kField, std::get<kField>(*values)) == 0) && ...);
  }
}

/// Post the event of `kRows[kRow]`, each placeholder filled with the argument that its order says.
template <const auto &kRows, size_t kRow, typename Values, size_t... kPlaceholder>
void Post(const Values &values, std::index_sequence<kPlaceholder...>) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // a literal that the row's own check has matched to its arguments
  EventPost(kRows[kRow].category, kRows[kRow].format, std::get<kRows[kRow].order[kPlaceholder]>(values)...);
#pragma GCC diagnostic pop
}

template <const auto &kRows, size_t kRow, size_t... kField>
auto MakeValues(std::index_sequence<kField...>) {
  return std::tuple<typename ValueOf<kRows[kRow].fields.types[kField]>::type...>();
}

}  // namespace post_row

/// The handler of `kRows[kRow]`: a plain function, one per id. Reads the arguments, stops silently at the first that
/// fails, and posts those that the message names.
template <const auto &kRows, size_t kRow>
void PostRowHandler(Observation *observation) {
  static constexpr const PostRow &row = kRows[kRow];
  constexpr auto kFields = std::make_index_sequence<post_row::Count(row.fields.types)>();
  auto values = post_row::MakeValues<kRows, kRow>(kFields);
  if (!post_row::ReadFields<kRows, kRow>(observation, &values, kFields)) return;
  constexpr size_t kPlaceholders = post_row::Count(post_row::ConversionTypes(post_row::MessageOf(row.format)));
  post_row::Post<kRows, kRow>(values, std::make_index_sequence<kPlaceholders>());
}

namespace post_row {

template <const auto &kRows, size_t... kRow>
void AddRows(HandlerTable *table, std::index_sequence<kRow...>) {
  (((*table)[kRows[kRow].id] = PostRowHandler<kRows, kRow>), ...);
}

}  // namespace post_row

/// Add a handler for each of `kRows` to `table`.
template <const auto &kRows>
void AddPostRows(HandlerTable *table) {
  post_row::AddRows<kRows>(table, std::make_index_sequence<kRows.size()>());
}

}  // namespace rynd
