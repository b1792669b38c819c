// Stateless correlation as a checked table: one row says which event an observation posts, and the compiler refuses a
// row whose parts disagree.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>
#include <utility>

#include "core/agents/handlerTable.h"
#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "correlators/rows/eventMessage.h"
#include "platform/ryn.h"

namespace rynd {

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

template <ArgType kType>
struct ValueOf;
template <>
struct ValueOf<ArgType::kStr> {
  using type = const char *;
};
template <>
struct ValueOf<ArgType::kByte> {
  using type = uint8_t;
};
template <>
struct ValueOf<ArgType::kShort> {
  using type = uint16_t;
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

}  // namespace post_row

/// One observation id and the one event it posts.
struct PostRow {
  const char *id;        ///< observation id, "ryn." included
  EventMessage message;  ///< its category is handed to EventPost
  Fields fields;         ///< the arguments that are read; a failing read ends the handler
  Order order;           ///< which argument fills each placeholder

  consteval PostRow(const char *rowId, Category category, Fields rowFields, const char *format,
                    Order rowOrder = kInOrder)
      : id(rowId), message(category, format), fields(rowFields), order(rowOrder) {
    const ArgTypes wanted = post_row::ConversionTypes(post_row::MessageOf(format));
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

/// The rows of several tables in one.
template <typename... Tables>
consteval auto JoinRows(const Tables &...tables) {
  return std::apply([](const auto &...row) { return std::array<PostRow, sizeof...(row)>{row...}; },
                    std::tuple_cat(tables...));
}

namespace post_row {

/// How reading the arguments went: 0, or the status of `field`, the first that can't be read (0 for an extraction).
struct ReadResult {
  int status = 0;
  uint32_t field = 0;
};

/// Why nothing comes of an observation whose arguments can't be read.
inline void ReasonUnread(const char *extraction, const ReadResult &read) {
  if (extraction == nullptr) return Reason("argument %u cannot be read: status %d", read.field + 1, read.status);
  Reason("the arguments cannot be read as \"%s\": status %d", extraction, read.status);
}

/// Read the arguments of `kRows[kRow]` into a tuple.
template <const auto &kRows, size_t kRow, typename Values, size_t... kField>
ReadResult ReadFields(const Observation *observation, Values *values, std::index_sequence<kField...>) {
  ReadResult result;
  if constexpr (kRows[kRow].fields.extraction != nullptr) {
    result.status = Ryn_GetArgs(observation, kRows[kRow].fields.extraction, &std::get<kField>(*values)...);
  } else {
    static_cast<void>(
        ((result = {ReadOne(observation, kField, std::get<kField>(*values)), kField}, result.status == 0) && ...));
  }
  return result;
}

/// Post the event of `kRows[kRow]`, each placeholder filled with the argument that its order says.
template <const auto &kRows, size_t kRow, typename Values, size_t... kPlaceholder>
void PostPlaceholders(const Values &values, std::index_sequence<kPlaceholder...>) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // a literal that the row's own check has matched to its arguments
#pragma GCC diagnostic ignored "-Wformat-security"
  EventPost(kRows[kRow].message.category, kRows[kRow].message.format,
            std::get<kRows[kRow].order[kPlaceholder]>(values)...);
#pragma GCC diagnostic pop
}
template <const auto &kRows, size_t kRow, typename Values>
void Post(const Values &values) {
  constexpr size_t kPlaceholders = Count(ConversionTypes(MessageOf(kRows[kRow].message.format)));
  PostPlaceholders<kRows, kRow>(values, std::make_index_sequence<kPlaceholders>());
}

template <const auto &kRows, size_t kRow, size_t... kField>
auto MakeValues(std::index_sequence<kField...>) {
  return std::tuple<typename ValueOf<kRows[kRow].fields.types[kField]>::type...>();
}

/// Post the event of the first of `kRows` whose id `id` is.
template <const auto &kRows, typename Values, size_t... kRow>
void PostFirstMatch(const char *id, const Values &values, std::index_sequence<kRow...>) {
  static_cast<void>(((Ryn_IsID(id, kRows[kRow].id) && (Post<kRows, kRow>(values), true)) || ...));
}

template <const auto &kRows>
consteval bool ShareFields() {
  for (const PostRow &row : kRows) {
    const char *extraction = kRows[0].fields.extraction;
    if (row.fields.types != kRows[0].fields.types) return false;
    if ((row.fields.extraction == nullptr) != (extraction == nullptr)) return false;
    if (extraction != nullptr && std::string_view(row.fields.extraction) != extraction) return false;
  }
  return true;
}

}  // namespace post_row

/// Called when an argument can't be read: `field` is its index (0 when all are extracted at once), `status` why.
using ReadFailure = void (*)(const char *id, uint32_t field, int status);
inline void IgnoreReadFailure(const char * /*id*/, uint32_t /*field*/, int /*status*/) {}

/// The handler of `kRows[kRow]`: a plain function, one per id. Reads the arguments, stops with `kFailure` at the first
/// that fails, and posts those that the message names.
template <const auto &kRows, size_t kRow, ReadFailure kFailure = IgnoreReadFailure>
void PostRowHandler(Observation *observation) {
  constexpr auto kFields = std::make_index_sequence<post_row::Count(kRows[kRow].fields.types)>();
  auto values = post_row::MakeValues<kRows, kRow>(kFields);
  const post_row::ReadResult read = post_row::ReadFields<kRows, kRow>(observation, &values, kFields);
  if (read.status != 0) {
    post_row::ReasonUnread(kRows[kRow].fields.extraction, read);
    return kFailure(kRows[kRow].id, read.field, read.status);
  }
  post_row::Post<kRows, kRow>(values);
}

/// The one handler of `kRows`, whose ids share their arguments: reads them once, stops with `kFailure` at the first
/// that fails, and posts the first row whose id is the observation's; nothing when none is. A null id is logged.
template <const auto &kRows, ReadFailure kFailure = IgnoreReadFailure>
void SharedRowsHandler(Observation *observation) {
  static_assert(post_row::ShareFields<kRows>(), "ids that share a handler read the same arguments");
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  constexpr auto kFields = std::make_index_sequence<post_row::Count(kRows[0].fields.types)>();
  auto values = post_row::MakeValues<kRows, 0>(kFields);
  const post_row::ReadResult read = post_row::ReadFields<kRows, 0>(observation, &values, kFields);
  if (read.status != 0) {
    post_row::ReasonUnread(kRows[0].fields.extraction, read);
    return kFailure(id, read.field, read.status);
  }
  post_row::PostFirstMatch<kRows>(id, values, std::make_index_sequence<kRows.size()>());
}

namespace post_row {

template <const auto &kRows, ReadFailure kFailure, size_t... kRow>
void AddRows(HandlerTable *table, std::index_sequence<kRow...>) {
  (((*table)[kRows[kRow].id] = PostRowHandler<kRows, kRow, kFailure>), ...);
}

}  // namespace post_row

/// Add a handler for each of `kRows` to `table`.
template <const auto &kRows, ReadFailure kFailure = IgnoreReadFailure>
void AddPostRows(HandlerTable *table) {
  post_row::AddRows<kRows, kFailure>(table, std::make_index_sequence<kRows.size()>());
}

/// Add the one handler that all of `kRows` share to `table`.
template <const auto &kRows, ReadFailure kFailure = IgnoreReadFailure>
void AddSharedRows(HandlerTable *table) {
  for (const PostRow &row : kRows) (*table)[row.id] = SharedRowsHandler<kRows, kFailure>;
}

}  // namespace rynd
