// The catalogue as JSON, for programs.
#pragma once

#include <nlohmann/json.hpp>

#include "catalog/catalog.h"

namespace catalog {

/// Of the layout of what follows. A key that is added does not change it.
constexpr int kJsonVersion = 1;

/// One entry, with what follows from others: "posted_by", "cleared_by", and an event's "message_id".
nlohmann::ordered_json ToJson(const Event &event);
nlohmann::ordered_json ToJson(const Observation &observation);

/// {"version":1,"program":"rynd 0.1.0","events":[...],"observations":[...]}.
nlohmann::ordered_json WholeCatalog();

}  // namespace catalog
