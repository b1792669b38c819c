#include <gtest/gtest.h>

#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using Events = std::vector<std::string>;

TEST(Generic, PassesOnWhatComponentsReport) {
  const Arguments report = {Str("acme"), Str(""), Str("disk slow")};
  const struct {
    const char *id, *event;
  } rows[] = {
      {"error",
       "error A 3rd party component, acme, running on Ambi has reported an error. Please follow the knowledge base "
       "link "
       "() to see the steps to remedy the problem as reported by acme. The message reported is: disk slow."},
      {"warning",
       "warning A 3rd party component, acme, running on Ambi has reported a warning related to a problem. Please "
       "follow "
       "the knowledge base link () to see the steps to remedy the problem as reported by acme. The message reported "
       "is: "
       "disk slow."},
      {"info",
       "information A 3rd party component, acme, running on Ambi has reported an informational event. If needed, "
       "please "
       "follow the knowledge base link () to see the steps to remedythe problem as reported by acme. The message "
       "reported is: disk slow."},
  };
  for (const auto &row : rows) {
    for (const std::string prefix : {"ryn.external.", "ryn.user.external."}) {
      EXPECT_EQ(EventsOf(GenericHandlers(), prefix + row.id, report),
                Events{std::string("amb.problem.3rdParty.") + row.event});
      EXPECT_EQ(EventsOf(GenericHandlers(), prefix + row.id, {Str("acme"), NullStr(), Str("m")}), Events{});
      EXPECT_EQ(EventsOf(GenericHandlers(), prefix + row.id, {Str("acme"), Str("kb/1")}), Events{});
    }
  }
}

}  // namespace
}  // namespace rynd
