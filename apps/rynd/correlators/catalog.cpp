#include "correlators/catalog.h"

#include <algorithm>

#include "correlators/correlators.h"

namespace rynd {
namespace {

CatalogMessage ToMessage(const PostRow &row) {
  const std::string_view text(row.format);
  const size_t idEnd = text.find(')');
  return {row.category, text.substr(kEventMarker.size(), idEnd - kEventMarker.size()), row.format + idEnd + 1};
}

std::vector<CatalogMessage> MakeCatalog() {
  std::vector<CatalogMessage> messages;
  for (const PostRow &row : ApdPostRows()) messages.push_back(ToMessage(row));
  std::ranges::sort(messages, {}, &CatalogMessage::name);
  return messages;
}

}  // namespace

const std::vector<CatalogMessage> &Catalog() {
  static const std::vector<CatalogMessage> catalog = MakeCatalog();
  return catalog;
}

const CatalogMessage *FindCatalogMessage(std::string_view name) {
  const auto place = std::ranges::lower_bound(Catalog(), name, {}, &CatalogMessage::name);
  return place != Catalog().end() && place->name == name ? &*place : nullptr;
}

}  // namespace rynd
