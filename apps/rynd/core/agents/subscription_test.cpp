#include "core/agents/subscription.h"

#include <gtest/gtest.h>

#include <memory>

namespace rynd {
namespace {

struct Destroy {
  void operator()(Subscription *subscription) const { SubscriptionDestroy(subscription); }
};
using Owned = std::unique_ptr<Subscription, Destroy>;

TEST(Subscription, MatchesPrefixesAtADotAndExactIds) {
  const Owned subscription(SubscriptionCreate());
  ASSERT_EQ(SubscriptionAddPrefix(subscription.get(), "storage.apd"), 0);
  ASSERT_EQ(SubscriptionAddId(subscription.get(), "ryn.net.one"), 0);
  ASSERT_EQ(SubscriptionAddId(subscription.get(), "net.two"), 0);
  for (const char *id : {"ryn.storage.apd.start", "ryn.storage.apd.", "ryn.net.one", "ryn.net.two", "net.two"}) {
    EXPECT_TRUE(SubscriptionMatches(id, *subscription)) << id;
  }
  for (const char *id : {"", "ryn", "ryn.storage.apd", "ryn.storage.apdx", "ryn.storage.apdx.start",
                         "storage.apd.start", "ryn.storage", "ryn.net.one.more", "ryn.ryn.net.two"}) {
    EXPECT_FALSE(SubscriptionMatches(id, *subscription)) << id;
  }
}

TEST(Subscription, HoldsTenOfEach) {
  const Owned subscription(SubscriptionCreate());
  for (int i = 0; i < 11; ++i) {
    EXPECT_EQ(SubscriptionAddPrefix(subscription.get(), i < 10 ? "a" : "c"), i < 10 ? 0 : 1);
    EXPECT_EQ(SubscriptionAddId(subscription.get(), i < 10 ? "ryn.b" : "ryn.d"), i < 10 ? 0 : 1);
  }
  EXPECT_FALSE(SubscriptionMatches("ryn.c.x", *subscription));
  EXPECT_FALSE(SubscriptionMatches("ryn.d", *subscription));
}

TEST(Subscription, TheFilterNeverHidesAMatchAndTellsPrefixesApart) {
  const char *const prefixes[] = {"", "a", "ab", "storage", "storage.apd", "abcdefg", "abcdefgh", "abcdefghi", "net"};
  size_t hidden = 0;
  for (const char *prefix : prefixes) {
    const Owned subscription(SubscriptionCreate());
    ASSERT_EQ(SubscriptionAddPrefix(subscription.get(), prefix), 0);
    const IdFilter filter = MakeIdFilter(*subscription);
    for (const char *id :
         {"", "ryn", "ryn.", "ryn..x", "ryn.a", "ryn.a.b", "ryn.ab.c", "ryn.net.x", "ryn.netx.y", "ryn.storage.",
          "ryn.abcdefg.x", "ryn.abcdefgh.x", "a.b", "net.x", "ryn.storage.apd.start", "ryn.abcdefghi.x"}) {
      const bool may = filter.MayMatch(IdKey(id));
      EXPECT_TRUE(may || !SubscriptionMatches(id, *subscription)) << prefix << " " << id;
      hidden += may ? 0 : 1;
    }
    ASSERT_EQ(SubscriptionAddId(subscription.get(), "x"), 0);
    EXPECT_TRUE(MakeIdFilter(*subscription).MayMatch(IdKey("x")));
  }
  EXPECT_GT(hidden, 100u);
}

}  // namespace
}  // namespace rynd
