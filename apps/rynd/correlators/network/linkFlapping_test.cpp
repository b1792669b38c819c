#include "correlators/network/linkFlapping.h"

#include <filesystem>

#include "platform/hostMgmt.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

class LinkFlappingTest : public testing::Test {
 protected:
  void SetUp() override { ClearHost(); }
  static void SetThreshold(const std::string &value) {
    PutHost("sysinfo/config/intOpts/Net/LinkFlappingThreshold", value);
  }
  bool IsTakenDown(const std::string &uplink, int64_t nowS) {
    detector.CheckLinkFlapping(uplink, nowS);
    return !TakeEvents().empty();
  }
  LinkFlapDetector detector;
};

TEST_F(LinkFlappingTest, TheLossAboveTheThresholdTakesTheNicDown) {
  SetThreshold("3\n");
  for (const int64_t at : {1000, 1001, 1060}) EXPECT_FALSE(IsTakenDown("hynic0", at)) << at;
  EXPECT_EQ(TakeActions(), "");
  detector.CheckLinkFlapping("hynic0", 1060);
  EXPECT_EQ(TakeEvents(), Events{"amb.problem.net.hynic.linkstate.flapping Taking down physical NIC hynic0 because "
                                 "the link is flapping."});
  EXPECT_EQ(TakeActions(), "net/pNics/linkFlapping\thynic0\t1;");
}

TEST_F(LinkFlappingTest, CountsOneMinuteOfEachNic) {
  SetThreshold("1");
  EXPECT_FALSE(IsTakenDown("hynic0", 1000));
  EXPECT_FALSE(IsTakenDown("hynic1", 1001));
  EXPECT_FALSE(IsTakenDown("hynic0", 1061)) << "61 s are outside of the window";
  EXPECT_TRUE(IsTakenDown("hynic0", 1121)) << "60 s are within";
  // Off, it goes on counting.
  SetThreshold("0");
  for (int i = 0; i < 1000; ++i) EXPECT_FALSE(IsTakenDown("hynic0", 2000));
  SetThreshold("1000");
  EXPECT_TRUE(IsTakenDown("hynic0", 2059));
  EXPECT_EQ(detector.CountOf("hynic0"), 0u);
}

TEST_F(LinkFlappingTest, WhatCannotBeReadOrDoneIsThrown) {
  SetThreshold("many");
  EXPECT_THROW(detector.CheckLinkFlapping("hynic0", 1000), HostMgmt::Lib::HostMgmtException);
  SetThreshold("1");
  std::filesystem::create_directories(ProcessRoot() / "/var/lib/corvane/actions.log");
  EXPECT_THROW(detector.CheckLinkFlapping("hynic0", 1000), HostMgmt::Lib::HostMgmtException);
  EXPECT_EQ(TakeEvents(), Events{});
  std::filesystem::remove(ProcessRoot() / "/var/lib/corvane/actions.log");
  EXPECT_TRUE(IsTakenDown("hynic0", 1000)) << "the next loss tries again";
}

}  // namespace
}  // namespace rynd
