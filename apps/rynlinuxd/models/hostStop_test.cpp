// The queue of jobs as systemctl prints it.
#include "models/hostStop.h"

#include <gtest/gtest.h>

namespace rynlinuxd {
namespace {

TEST(HostStop, OnlyAQueuedTargetIsTheHostsEnd) {
  const struct {
    const char *jobs;
    StopKind kind;
  } kCases[] = {
      {"", StopKind::kNone},
      {"812 rynlinuxd.service restart running\n", StopKind::kNone},
      {" 901 reboot.target           start waiting\n 77 rynd.service stop running\n", StopKind::kReboot},
      {"1 a.service stop running\n2 poweroff.target start waiting", StopKind::kShutdown},
      {"2 halt.target start waiting\n", StopKind::kShutdown},
      {"2 kexec.target start waiting\n", StopKind::kReboot},
      {"2 reboot.target stop waiting\n", StopKind::kNone},
      {"2 my-reboot.target start waiting\n3 reboot.target.wants start waiting\n", StopKind::kNone},
      {"reboot.target start\n", StopKind::kNone},
      {"\n\n   \n1\n", StopKind::kNone},
  };
  for (const auto &[jobs, kind] : kCases) EXPECT_EQ(ParseStopJobs(jobs), kind) << jobs;
}

}  // namespace
}  // namespace rynlinuxd
