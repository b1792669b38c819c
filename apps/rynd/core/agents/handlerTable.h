// The map from observation ids to handlers.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

struct Observation;

namespace rynd {

/// Called with one observation, which it borrows. Agent's thread.
using Handler = void (*)(Observation *observation);

/// An ordered map from full observation ids to handlers. It refers to the ids that it is given, which must outlive it
/// and its copies; a copy is one allocation.
class HandlerTable {
 public:
  /// The handler of `id`; an id without a row gets one with an empty handler.
  Handler &operator[](std::string_view id);
  size_t Size() const { return rows_.size(); }
  /// The ids in order.
  std::vector<std::string_view> Ids() const;

 private:
  struct Row {
    std::string_view id;
    Handler handler;
  };
  std::vector<Row> rows_;  ///< ordered by id, byte-wise
};

}  // namespace rynd
