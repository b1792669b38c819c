// What the host's correlators post without any state: hardware platform, processors, memory tiering, HCM disks,
// scheduler QoS.
#include <gtest/gtest.h>

#include "correlators/hardware/cxlDeviceType.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"
#include "testing/coreSupport.h"
#include "testing/postedEvents.h"
#include "testing/sampleRows.h"

namespace rynd {
namespace {

using Events = std::vector<std::string>;

struct Correlator {
  HandlerTable handlers;
  std::span<const PostRow> rows;
};
std::vector<Correlator> Correlators() {
  return {{HardwareHandlers(), HardwarePostRows()},
          {CpuHandlers(), CpuPostRows()},
          {MemtierHandlers(), MemtierPostRows()},
          {HcmHandlers(), HcmPostRows()},
          {SchedHandlers(), SchedPostRows()}};
}

TEST(HostRows, PostEachRowWithItsArgumentsOrNothing) {
  CapturedLog log;
  for (const Correlator &correlator : Correlators()) {
    for (const PostRow &row : correlator.rows) {
      Arguments arguments = SampleOf(row);
      const Events events = EventsOf(correlator.handlers, row.id, arguments);
      ASSERT_EQ(events.size(), 1u) << row.id;
      log.Messages();  // makes room in its socket
      // The event's id is the observation's with another front.
      const std::string name = events[0].substr(0, events[0].find(' '));
      EXPECT_EQ(name, std::string(EventNamespace(row.message.category)) + (row.id + 4));
      EXPECT_TRUE(ShowsSample(row, events[0])) << events[0];
      if (arguments.empty()) continue;
      arguments.pop_back();
      EXPECT_EQ(EventsOf(correlator.handlers, row.id, arguments), Events{}) << row.id;
      arguments = SampleOf(row);
      arguments.back() = row.fields.types[arguments.size() - 1] == ArgType::kStr ? Int(1) : Str("1");
      EXPECT_EQ(EventsOf(correlator.handlers, row.id, arguments), Events{}) << row.id;
    }
  }
}

TEST(HardwareCorrelator, PostsTheWholeText) {
  EXPECT_EQ(EventsOf(HardwareHandlers(), "ryn.hardware.nvd.health.alarms.es.temperature.warning",
                     {Int(17), Str("DIMM0"), Int(-5)}),
            Events{"amb.audit.hardware.nvd.health.alarms.es.temperature.warning NVDIMM (handle 0x11, idString DIMM0): "
                   "Energy Source Temperature (-5 C) Warning tripped."});
  EXPECT_EQ(EventsOf(HardwareHandlers(), "ryn.hardware.nvd.health.module.es.charging", {Int(-1), NullStr()}),
            Events{"amb.problem.hardware.nvd.health.module.es.charging NVDIMM (handle 0xffffffff, idString (null)): "
                   "Energy Source still charging but does not have sufficient charge to support\ta backup. Persistency "
                   "is temporarily lost for the device."});
  EXPECT_EQ(EventsOf(HardwareHandlers(), "ryn.hardware.nvd.health.module.es.charged", {Int(1), Str("D")}),
            Events{"amb.clear.hardware.nvd.health.module.es.charged NVDIMM (handle 0x1, idString D): Energy Source is "
                   "sufficiently charged."});
  EXPECT_EQ(EventsOf(HardwareHandlers(), "ryn.hardware.acpi.interrupt.routing.pin.invalid", {Int(-1)}),
            Events{"amb.problem.hardware.acpi.interrupt.routing.pin.invalid Skipping interrupt routing entry with bad "
                   "device pin: 4294967295. This is a BIOS bug."});
}

TEST(HardwareCorrelator, KnowsCxlDeviceTypes) {
  EXPECT_STREQ(CxlDeviceTypeName(0), "CXL 1.1 Device");
  EXPECT_STREQ(CxlDeviceTypeName(8), "CXL Downstream Switch Port");
  for (const uint32_t type : {9u, 10u, UINT32_MAX}) {
    EXPECT_STREQ(CxlDeviceTypeName(type), "Invalid or unknown Device Type");
  }
}

TEST(HostRows, PostTheWholeText) {
  EXPECT_EQ(EventsOf(MemtierHandlers(), "ryn.memory.tiering.tier.size.lt.config.size", {Long(1024), Long(UINT64_MAX)}),
            Events{"amb.audit.memory.tiering.tier.size.lt.config.size NVMe tier size 1024MB is less than the "
                   "configured size 18446744073709551615MB."});
  EXPECT_EQ(EventsOf(HcmHandlers(), "ryn.hcm.event.disk.removal", {Str("naa.5000")}),
            Events{"amb.audit.hcm.event.disk.removal A physical disk has been removed (naa.5000)."});
}

TEST(SchedCorrelator, PostsTheWholeTextAndLogsWhatItCannotRead) {
  CapturedLog log;
  EXPECT_EQ(EventsOf(SchedHandlers(), "ryn.sched.qos.cat.noresource", {Str("vm1")}),
            Events{"amb.problem.sched.qos.cat.noresource Unable to support L3 cache allocation for virtual machine "
                   "vm1. Out of resources."});
  EXPECT_EQ(EventsOf(SchedHandlers(), "ryn.sched.qos.cat.noresource", {}), Events{});
  EXPECT_EQ(log.CountOf("Failed to arg: 75"), 1u);
  Dispatch(SchedHandlers(), PrintObservation, "ryn.sched.other", {}, "what was seen");
  EXPECT_EQ(log.CountOf("2us: [ryn.sched.other] what was seen"), 1u);
}

}  // namespace
}  // namespace rynd
