#include "core/subscription.h"

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
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(SubscriptionAddPrefix(subscription.get(), "a"), 0);
    EXPECT_EQ(SubscriptionAddId(subscription.get(), "ryn.b"), 0);
  }
  EXPECT_EQ(SubscriptionAddPrefix(subscription.get(), "c"), 1);
  EXPECT_EQ(SubscriptionAddId(subscription.get(), "ryn.d"), 1);
  EXPECT_FALSE(SubscriptionMatches("ryn.c.x", *subscription));
  EXPECT_FALSE(SubscriptionMatches("ryn.d", *subscription));
}

}  // namespace
}  // namespace rynd
