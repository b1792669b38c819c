#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(Generic, PassesOnWhatComponentsReport) {
  const Arguments report = {Str("acme"), Str(""), Str("disk slow")};
  for (const std::string id : {"error", "warning", "info"}) {
    const std::string front = "amb.problem.3rdParty." + (id == "info" ? "information" : id) +
                              " A 3rd party component, acme, running on Ambi has reported a";

    for (const std::string prefix : {"ryn.external.", "ryn.user.external."}) {
      const Events events = EventsOf(GenericHandlers(), prefix + id, report);
      ASSERT_EQ(events.size(), 1u);
      EXPECT_TRUE(events[0].starts_with(front)) << events[0];
      EXPECT_NE(events[0].find(" link () to see "), std::string::npos) << events[0];
      EXPECT_TRUE(events[0].ends_with("The message reported is: disk slow.")) << events[0];
      EXPECT_EQ(EventsOf(GenericHandlers(), prefix + id, {Str("acme"), NullStr(), Str("m")}), Events{});
      EXPECT_EQ(EventsOf(GenericHandlers(), prefix + id, {Str("acme"), Str("kb/1")}), Events{});
    }
  }
}

}  // namespace
}  // namespace rynd
