#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "hosted/host/machine.h"
#include "hosted/testSupport.h"
#include "platform/hostMgmt.h"
#include "platform/hsiRecords.h"
#include "platform/hykCtlResource.h"
#include "platform/hykCtlUtil.h"

namespace hosted {
namespace {

using HostMgmt::Lib::HostMgmtException;
using HykCtl::Util::Sysinfo;

using HostNodes = HostTreeTest;

TEST_F(HostNodes, NumbersHaveTheirRangesAndDefaults) {
  const struct {
    const char *node, *content;  ///< null: there is no file
    size_t size;
    int error;
    int64_t value;
  } rows[] = {{"system/ntpclock/rynReportInterval", nullptr, 4, ENOENT, 7},
              {"system/ntpclock/rynReportInterval", "-60\n", 4, 0, -60},
              {"system/ntpclock/rynReportInterval", "2147483648", 4, ERANGE, 7},
              {"system/pageRetire/threshold", nullptr, 8, 0, 1000},
              {"system/pageRetire/threshold", "9223372036854775807", 8, 0, INT64_MAX},
              {"system/pageRetire/threshold", "-1", 8, EINVAL, 7},
              {"system/pageRetire/threshold", "5", 4, EINVAL, 7},
              {"sched/offline/enabled", nullptr, 1, 0, 0},
              {"sched/offline/enabled", "1", 1, 0, 1},
              {"sched/offline/enabled", "2", 1, EINVAL, 7}};
  for (const auto &row : rows) {
    if (row.content != nullptr) PutHost(std::string("sysinfo/") + row.node, row.content);
    int64_t value = 7;
    EXPECT_EQ(HYK_ReturnStatusToErrno(HSI_Get(row.node, nullptr, &value, row.size)), row.error) << row.node;
    if (row.size == 4) value = static_cast<int32_t>(value);
    EXPECT_EQ(value, row.value) << row.node << " " << (row.content == nullptr ? "none" : row.content);
  }
}

TEST_F(HostNodes, PagesHaveAStatusEach) {
  uint8_t status[3] = {9, 9, 9};
  const auto get = [&](uint64_t page, size_t size = 2) {
    Sysinfo("system/pageRetire/MPNStatus").AddInput(static_cast<int64_t>(page)).Get(status, size);
  };
  get(0x1a);
  EXPECT_EQ(std::memcmp(status, "\0\0\x9", 3), 0);
  PutHost("sysinfo/system/pageRetire/MPNStatus/0x1a", "0 255");
  PutHost("sysinfo/system/pageRetire/MPNStatus/0xffffffffffffffff", "1 0");
  get(0x1a);
  EXPECT_EQ(std::memcmp(status, "\0\xff\x9", 3), 0);
  get(UINT64_MAX);
  EXPECT_EQ(std::memcmp(status, "\x1\0\x9", 3), 0);
  EXPECT_THROW(get(0x1a, 3), HostMgmtException);
  for (const char *text : {"1", "1 256", "1 -1", ""}) {
    PutHost("sysinfo/system/pageRetire/MPNStatus/0x1a", text);
    EXPECT_THROW(get(0x1a), HostMgmtException) << text;
  }
  EXPECT_THROW(Sysinfo("system/pageRetire/MPNStatus").Get(status, 2), HostMgmtException);
}

TEST_F(HostNodes, ProcessorsAreTheMachinesOwnOrWhatTheTreeHolds) {
  char info[kHsiCpuInfoSize + 1], list[kHsiCpuListSize + 1];
  uint32_t cores = 0, pcpus = 0;
  const auto getInfo = [&] {
    info[kHsiCpuInfoSize] = 'x';
    const int error = HYK_ReturnStatusToErrno(HSI_Get("hardware/cpu/cpuInfo", nullptr, info, kHsiCpuInfoSize));
    std::memcpy(&cores, info + 24, sizeof cores);
    std::memcpy(&pcpus, info + 28, sizeof pcpus);
    EXPECT_EQ(info[kHsiCpuInfoSize], 'x');
    return error;
  };
  const auto getVendor = [&] {
    list[kHsiCpuListSize] = 'x';
    Sysinfo("hardware/cpu/cpuList").AddInstancePath(int64_t{0}).Get(list, kHsiCpuListSize);
    EXPECT_EQ(list[kHsiCpuListSize], 'x');
    return std::string(list + 24);
  };
  EXPECT_EQ(getInfo(), 0);
  EXPECT_GE(cores, 1u);
  EXPECT_GE(pcpus, cores);
  EXPECT_EQ(getVendor(), MachineCpuVendor());
  PutHost("sysinfo/hardware/cpu/cpuInfo", "28 56");
  PutHost("sysinfo/hardware/cpu/vendor", "GenuineIntel\n");
  EXPECT_EQ(getInfo(), 0);
  EXPECT_EQ(cores, 28u);
  EXPECT_EQ(pcpus, 56u);
  EXPECT_EQ(getVendor(), "GenuineIntel");
  PutHost("sysinfo/hardware/cpu/vendor", std::string(107, 'v'));
  EXPECT_EQ(getVendor(), std::string(107, 'v'));
  PutHost("sysinfo/hardware/cpu/vendor", std::string(108, 'v'));
  EXPECT_THROW(getVendor(), HostMgmtException);
  for (const char *text : {"28", "28 4294967296", "-1 2", "1 2 3"}) {
    PutHost("sysinfo/hardware/cpu/cpuInfo", text);
    EXPECT_EQ(getInfo(), EINVAL) << text;
  }
}

TEST_F(HostNodes, ActionsAreRecordedInOrder) {
  Sysinfo("system/pageRetire/retireMPNs").AddInput(0x1a).AddInput(1).AddInput("NiceRetire").Set();
  Sysinfo("sched/pcpus/offline").AddInstancePath(3).Set();
  PutHost("vms/-7", "web 1\n");
  const HykCtl::Resource::ResourceInfoImpl resources;
  const auto machine = resources.GetVirtualMachineByWorldId(-7);
  EXPECT_EQ(machine->GetName(), "web 1");
  machine->Kill(0);
  EXPECT_THROW(machine->Kill(1), HostMgmtException);
  EXPECT_THROW(resources.GetVirtualMachineByWorldId(8), HostMgmtException);
  PutHost("vms/8", "two\nlines");
  EXPECT_THROW(resources.GetVirtualMachineByWorldId(8), HostMgmtException);

  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t26\t1\tNiceRetire;sched/pcpus/offline\t3;vm/kill\t-7;");
}

}  // namespace
}  // namespace hosted
