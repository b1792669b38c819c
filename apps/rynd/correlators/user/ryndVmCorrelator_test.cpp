#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(VmKill, PostsInEveryCase) {
  const std::string start = "amb.problem.vm.kill.unexpected.";
  EXPECT_EQ(EventsOf(VmHandlers(), "ryn.vm.kill.unexpected.noSwapResponse", {Str("/a.cfg"), Int(5), Long(60)}),
            Events{start + "noSwapResponse.2 /a.cfg did not respond to 5 swap actions in 60 seconds and is forcefully "
                           "powered off to prevent system instability."});
  EXPECT_EQ(EventsOf(VmHandlers(), "ryn.vm.kill.unexpected.noSwapResponse", {Str("/a.cfg"), Str("?")}),
            Events{start + "noSwapResponse.2 /a.cfg did not respond to 0 swap actions in 0 seconds and is forcefully "
                           "powered off to prevent system instability."});
  EXPECT_EQ(EventsOf(VmHandlers(), "ryn.vm.kill.unexpected.forcefulPageRetire.64", {Str("/a.cfg"), Long(0xfffffffff)}),
            Events{start + "forcefulPageRetire.64.2 /a.cfg contained the host physical page 0xfffffffff which was "
                           "scheduled for immediate retirement. To avoid system instability the virtual machine is "
                           "forcefully powered off."});
  for (const char *id : {"hytrack", "hyx.fault.failure", "fault.failure", "forcefulPageRetire.64"}) {
    const Events events = EventsOf(VmHandlers(), std::string("ryn.vm.kill.unexpected.") + id, {});
    ASSERT_EQ(events.size(), 1u) << id;
    EXPECT_TRUE(events[0].starts_with(start + id + ".2  ")) << events[0];
  }
}

TEST(VmKill, NamesTheVolumeOfTheSwapFile) {
  EXPECT_EQ(EventsOf(VmHandlers(), "ryn.vm.kill.unexpected.fault.failure", {Str("/a.cfg"), Str("/tmp/vm1.vswp")}),
            Events{"amb.problem.vm.kill.unexpected.fault.failure.2 /a.cfg could not fault in a guest physical page "
                   "from the hypervisor level swap file on (invalid). The VM is terminated as further progress is "
                   "impossible."});
}

}  // namespace
}  // namespace rynd
