#include "core/agents/subscription.h"

#include <algorithm>
#include <cstring>
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

constexpr std::string_view kIdStart = "ryn.";

/// Up to eight bytes of `text` as they would stand in memory, and with them, in `*mask`, which bytes they are.
uint64_t FirstBytes(std::string_view text, uint64_t *mask) {
  uint64_t bytes = 0;
  uint64_t given = 0;
  const size_t count = std::min(text.size(), sizeof bytes);
  std::memcpy(&bytes, text.data(), count);
  std::memset(&given, 0xff, count);
  *mask = given;
  return bytes;
}

}  // namespace

uint64_t IdKey(const char *id) {
  if (std::strncmp(id, kIdStart.data(), kIdStart.size()) != 0) return 0;
  const char *rest = id + kIdStart.size();
  uint64_t mask = 0;
  return FirstBytes({rest, strnlen(rest, sizeof mask)}, &mask);
}

IdFilter MakeIdFilter(const Subscription &subscription) {
  IdFilter filter;
  if (subscription.idCount > 0 || subscription.prefixCount != 1) return filter;
  filter.key = FirstBytes((subscription.prefixes[0] + ".").substr(kIdStart.size()), &filter.mask);
  return filter;
}

Subscription *SubscriptionCreate() {
  return new (std::nothrow) Subscription;
}

int SubscriptionAddPrefix(Subscription *subscription, const char *prefix) {
  return Add(&subscription->prefixes, &subscription->prefixCount, kIdStart, prefix);
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
