#include "core/subscription.h"

#include <new>
#include <string_view>

#include "platform/ryn.h"

namespace rynd {
namespace {

int Add(std::array<std::string, kMaxSubscriptions> *texts, size_t *count, std::string_view front, const char *text) {
  if (*count >= texts->size()) return 1;
  try {
    (*texts)[*count] = std::string(front) + text;
  } catch (const std::bad_alloc &) {
    return 1;
  }
  ++*count;
  return 0;
}

}  // namespace

Subscription *SubscriptionCreate() {
  return new (std::nothrow) Subscription;
}

int SubscriptionAddPrefix(Subscription *subscription, const char *prefix) {
  return Add(&subscription->prefixes, &subscription->prefixCount, "ryn.", prefix);
}

int SubscriptionAddId(Subscription *subscription, const char *id) {
  return Add(&subscription->ids, &subscription->idCount, "", id);
}

bool SubscriptionMatches(const char *id, const Subscription &subscription) {
  const std::string_view text(id);
  for (size_t i = 0; i < subscription.prefixCount; ++i) {
    const std::string &prefix = subscription.prefixes[i];
    if (text.size() > prefix.size() && text[prefix.size()] == '.' && text.starts_with(prefix)) return true;
  }
  for (size_t i = 0; i < subscription.idCount; ++i) {
    if (Ryn_IsID(id, subscription.ids[i].c_str())) return true;
  }
  return false;
}

void SubscriptionDestroy(Subscription *subscription) {
  delete subscription;
}

}  // namespace rynd
