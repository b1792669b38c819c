// Which observations an agent wants: id prefixes and exact ids.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace rynd {

constexpr size_t kMaxSubscriptions = 10;  ///< prefixes in one subscription, and exact ids

/// Two short lists of owned texts. Prefixes are stored with "ryn." in front ("ryn.storage.apd"), exact ids as given.
struct Subscription {
  std::array<std::string, kMaxSubscriptions> prefixes;
  size_t prefixCount = 0;
  std::array<std::string, kMaxSubscriptions> ids;
  size_t idCount = 0;
};

/// The first bytes of an id behind "ryn.", up to eight; 0 for an id that does not begin so.
uint64_t IdKey(const char *id);

/// A quick no: which keys the ids of a subscription may have.
struct IdFilter {
  uint64_t mask = 0;  ///< 0: any
  uint64_t key = 0;
  bool MayMatch(uint64_t idKey) const { return (idKey & mask) == key; }
};
/// The filter that suits `subscription`.
IdFilter MakeIdFilter(const Subscription &subscription);

/// A new empty subscription, or null without memory. SubscriptionDestroy frees it.
Subscription *SubscriptionCreate();
/// Add the ids that begin with "ryn." + `prefix` + ".". 0, or 1 when ten prefixes are held or memory is short.
int SubscriptionAddPrefix(Subscription *subscription, const char *prefix);
/// Add one exact id. 0, or 1 as above.
int SubscriptionAddId(Subscription *subscription, const char *id);
/// True when `id` lies under a prefix (the character after it is a dot) or is one of the exact ids.
bool SubscriptionMatches(const char *id, const Subscription &subscription);
/// Free a subscription; null does nothing.
void SubscriptionDestroy(Subscription *subscription);

}  // namespace rynd
