// The catalogue of messages: every event that the agents can post, read from the very formats that they post with.
#pragma once

#include <string_view>
#include <vector>

#include "correlators/rows/postRow.h"
#include "post/category.h"

namespace rynd {

/// One event. `name` has its namespace ("amb.problem.storage.apd.start"); `message` is its printf format,
/// NUL-terminated. Both are literals.
struct CatalogMessage {
  Category category;
  std::string_view name;
  const char *message;
};

/// Every event, ordered by name. Any thread.
const std::vector<CatalogMessage> &Catalog();
/// Every observation that a row translates into an event.
std::vector<const PostRow *> AllPostRows();
/// The event called `name`, or null.
const CatalogMessage *FindCatalogMessage(std::string_view name);

}  // namespace rynd
