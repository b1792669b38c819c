// What of the host's correlators is more than a row: hardware platform, scheduler QoS.
#include "correlators/hardware/cxlDeviceType.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(HardwareCorrelator, KnowsCxlDeviceTypes) {
  EXPECT_STREQ(CxlDeviceTypeName(0), "CXL 1.1 Device");
  EXPECT_STREQ(CxlDeviceTypeName(8), "CXL Downstream Switch Port");
  for (const uint32_t type : {9u, 10u, UINT32_MAX}) {
    EXPECT_STREQ(CxlDeviceTypeName(type), "Invalid or unknown Device Type");
  }
}

TEST(SchedCorrelator, LogsWhatItCannotRead) {
  CapturedLog log;
  EXPECT_EQ(EventsOf(SchedHandlers(), "ryn.sched.qos.cat.noresource", {}), Events{});
  EXPECT_EQ(log.CountOf("Failed to arg: 75"), 1u);
  Dispatch(SchedHandlers(), PrintObservation, "ryn.sched.other", {}, "what was seen");
  EXPECT_EQ(log.CountOf("2us: [ryn.sched.other] what was seen"), 1u);
}

}  // namespace
}  // namespace rynd
