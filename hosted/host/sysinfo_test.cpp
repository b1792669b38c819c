#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "hosted/host/hostTree.h"
#include "hosted/host/machine.h"
#include "hosted/records/littleEndian.h"
#include "hosted/testSupport.h"
#include "platform/hostMgmt.h"
#include "platform/hsi.h"
#include "platform/hsiRecords.h"
#include "platform/hykCtlUtil.h"
#include "platform/system.h"

namespace hosted {
namespace {

using HostMgmt::Lib::HostMgmtException;
using HykCtl::Util::Sysinfo;

using SysinfoTest = HostTreeTest;

struct DestroyList {
  void operator()(HSI_ParamList *list) const { HSI_ParamListDestroy(list); }
};
using ListPtr = std::unique_ptr<HSI_ParamList, DestroyList>;

ListPtr Texts(std::initializer_list<const char *> texts) {
  ListPtr list(HSI_ParamListCreate());
  for (const char *text : texts) EXPECT_EQ(HSI_ParamListAddString(list.get(), text), kHykOk);
  return list;
}

ListPtr Integer(int64_t value) {
  ListPtr list(HSI_ParamListCreate());
  EXPECT_EQ(HSI_ParamListAddInt(list.get(), value), kHykOk);
  return list;
}

/// The errno value of reading an option into a T.
template <typename T>
int GetOption(const char *group, const char *name, T *value) {
  return HYK_ReturnStatusToErrno(HSI_Get("config/intOpts", Texts({group, name}).get(), value, sizeof *value));
}

TEST_F(SysinfoTest, ReadsOptionsOfTwoWidths) {
  int64_t value = -1;
  int32_t narrow = -1;
  int16_t odd = -1;
  EXPECT_EQ(GetOption("PageRetire", "PageErrorCorrPeriod", &value), 0);
  EXPECT_EQ(value, 30) << "the default";
  const auto put = [](const char *text) { PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", text); };
  put("2147483647");
  EXPECT_EQ(GetOption("PageRetire", "PageErrorCorrPeriod", &narrow), 0);
  EXPECT_EQ(narrow, INT32_MAX);
  EXPECT_EQ(GetOption("PageRetire", "PageErrorCorrPeriod", &odd), EINVAL);
  for (const char *text : {"2147483648", "-2147483649"}) {
    put(text);
    EXPECT_EQ(GetOption("PageRetire", "PageErrorCorrPeriod", &narrow), ERANGE);
  }
  put("many");
  EXPECT_EQ(GetOption("PageRetire", "PageErrorCorrPeriod", &value), EINVAL) << "never the default";
  EXPECT_EQ(GetOption("Misc", "Other", &value), ENOENT);
  EXPECT_EQ(GetOption("Cpu", "RynAsyncEnable", &value), ENOENT);
  EXPECT_EQ(GetOption("..", "..", &value), ENOENT);
}

TEST_F(SysinfoTest, SetsAnOptionAndRecordsIt) {
  const ListPtr option = Texts({"Misc", "RynAsyncEnable"});
  int64_t value = 0;
  EXPECT_EQ(HSI_Set("config/intOpts", option.get(), Integer(1).get()), kHykOk);
  EXPECT_EQ(GetOption("Misc", "RynAsyncEnable", &value), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(testing_support::ReadFile(HostTreePath("sysinfo/config/intOpts/Misc/RynAsyncEnable")), "1\n");
  EXPECT_EQ(TakeActions(), "config/intOpts\tMisc\tRynAsyncEnable\t1;");
  // What fails is not recorded.
  EXPECT_NE(HSI_Set("config/intOpts", option.get(), option.get()), kHykOk);
  EXPECT_NE(HSI_Set("config/intOpts", option.get(), nullptr), kHykOk);
  EXPECT_NE(HSI_Set("config/intOpts", Texts({"Misc"}).get(), Integer(1).get()), kHykOk);
  EXPECT_NE(HSI_Set("system/systemUuid", nullptr, Integer(1).get()), kHykOk);
  EXPECT_NE(HSI_Set("no/such/node", nullptr, nullptr), kHykOk);
  EXPECT_EQ(TakeActions(), "");
}

TEST_F(SysinfoTest, RefusesWhatIsNoInstanceOfANode) {
  int64_t value = 0;
  const auto get = [&](const char *path, const ListPtr &instance) {
    return HYK_ReturnStatusToErrno(HSI_Get(path, instance.get(), &value, sizeof value));
  };
  EXPECT_EQ(get("config/intOpts", nullptr), EINVAL);
  EXPECT_EQ(get("config/intOpts", Texts({"Misc"})), EINVAL);
  EXPECT_EQ(get("config/intOpts", Texts({"Misc", "RynAsyncEnable", "x"})), EINVAL);
  EXPECT_EQ(get("config/intOpts", Integer(1)), EINVAL);
  EXPECT_EQ(get("config", Texts({"Misc", "RynAsyncEnable"})), ENOENT);
  EXPECT_EQ(get(nullptr, nullptr), ENOENT);
  EXPECT_NE(HSI_ParamListAddString(nullptr, "x"), kHykOk);
  EXPECT_NE(HSI_ParamListAddString(Texts({}).get(), nullptr), kHykOk);
}

TEST_F(SysinfoTest, GivesTheUuidInBinaryAndText) {
  unsigned char record[kHsiSystemUuidSize];
  const auto get = [&](size_t size = kHsiSystemUuidSize) {
    std::memset(record, 0xee, sizeof record);
    return HYK_ReturnStatusToErrno(HSI_Get("system/systemUuid", nullptr, record, size));
  };
  PutHost("sysinfo/system/systemUuid", "00112233-4455-6677-8899-aAbBcCdDeEfF\n");
  ASSERT_EQ(get(), 0);
  for (unsigned i = 0; i < 16; ++i) EXPECT_EQ(record[i], i * 0x11);
  EXPECT_EQ(std::memcmp(record + 16, "00112233-4455-6677-8899-aAbBcCdDeEfF\0\0", 38), 0);
  EXPECT_EQ(get(53), EINVAL);
  for (const char *text : {"", "00112233-4455-6677-8899-aabbccddeef", "00112233-4455-6677-8899-aabbccddeeffa",
                           "00112233-4455-6677-8899-aabbccddeefg", "001122334-455-6677-8899-aabbccddeeff",
                           "00112233445566778899aabbccddeeff"}) {
    PutHost("sysinfo/system/systemUuid", text);
    EXPECT_EQ(get(), EINVAL) << text;
  }
  // Without the file it is the machine's own, the same every time.
  std::filesystem::remove(HostTreePath("sysinfo/system/systemUuid"));
  ASSERT_EQ(get(), 0);
  const std::string first(reinterpret_cast<const char *>(record), sizeof record);
  ASSERT_EQ(get(), 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(record), sizeof record), first);
  EXPECT_EQ(first[16 + 8], '-');
}

TEST_F(SysinfoTest, ComparesTheBuilds) {
  char kernelDate[kHsiBuildDateSize] = "";
  const char *ownDate = nullptr;
  EXPECT_EQ(HSI_CheckSig(kernelDate, sizeof kernelDate, &ownDate), 0);
  ASSERT_EQ(std::strlen(ownDate), kHsiBuildDateSize - 1);
  EXPECT_STREQ(kernelDate, ownDate);
  PutHost("sysinfo/system/buildSignature", std::string(ownDate) + "\n");
  EXPECT_EQ(HSI_CheckSig(kernelDate, sizeof kernelDate, &ownDate), 0);
  const std::pair<std::string, std::string> others[] = {{"Jan  1 2001 00:00:00", "Jan  1 2001 00:00:00"},
                                                        {std::string(100, 'x'), std::string(20, 'x')},
                                                        {"", ""},
                                                        {"two\nlines", "unreadable"}};
  for (const auto &[content, expected] : others) {
    PutHost("sysinfo/system/buildSignature", content);
    EXPECT_NE(HSI_CheckSig(kernelDate, sizeof kernelDate, &ownDate), 0);
    EXPECT_EQ(kernelDate, expected);
  }
}

TEST_F(SysinfoTest, NumbersHaveTheirRangesAndDefaults) {
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

TEST_F(SysinfoTest, PagesHaveAStatusEach) {
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

TEST_F(SysinfoTest, ProcessorsAreTheMachinesOwnOrWhatTheTreeHolds) {
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

TEST(SysinfoStatus, BecomesAnErrnoValue) {
  const std::pair<HYK_ReturnStatus, int> rows[] = {
      {0, 0},   {kHykNoMemory, ENOMEM}, {0xbad10002, ENOENT}, {0xbad10000, EIO}, {0xbad0001, EIO},
      {2, EIO}, {0xffffffff, EIO}};
  for (const auto &[status, error] : rows) EXPECT_EQ(HYK_ReturnStatusToErrno(status), error) << std::hex << status;
}

TEST(EventStamp, CountsByOneAcrossThreads) {
  std::byte header[kHykEventHeaderSize];
  Hyk_StampEvent(header);
  const auto before = LoadLittle<uint64_t>(header + 8);
  EXPECT_GT(before, 0u);
  EXPECT_NEAR(static_cast<double>(LoadLittle<uint64_t>(header)) / 1e6, static_cast<double>(time(nullptr)), 60);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      std::byte own[kHykEventHeaderSize];
      for (int k = 0; k < 100; ++k) Hyk_StampEvent(own);
    });
  }
  for (std::thread &thread : threads) thread.join();
  Hyk_StampEvent(header);
  EXPECT_EQ(LoadLittle<uint64_t>(header + 8), before + 401);
}

}  // namespace
}  // namespace hosted
