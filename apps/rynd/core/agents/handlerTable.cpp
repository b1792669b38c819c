#include "core/agents/handlerTable.h"

#include <algorithm>

namespace rynd {

Handler &HandlerTable::operator[](std::string_view id) {
  const auto place = std::lower_bound(rows_.begin(), rows_.end(), id,
                                      [](const Row &row, std::string_view wanted) { return row.id < wanted; });
  if (place != rows_.end() && place->id == id) return place->handler;
  return rows_.insert(place, Row{id, nullptr})->handler;
}

std::vector<std::string_view> HandlerTable::Ids() const {
  std::vector<std::string_view> ids;
  for (const Row &row : rows_) ids.push_back(row.id);
  return ids;
}

}  // namespace rynd
