#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "hosted/host/hostTree.h"
#include "hosted/records/littleEndian.h"
#include "hosted/testSupport.h"
#include "platform/hsi.h"
#include "platform/system.h"

namespace hosted {
namespace {

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

TEST_F(SysinfoTest, HasTheAgreedDefaults) {
  const struct {
    const char *group, *name;
    int64_t value;
  } rows[] = {{"Misc", "RynAsyncEnable", 0},
              {"PageRetire", "PageErrorCorrThreshold", 2},
              {"PageRetire", "PageErrorCorrPeriod", 30},
              {"PageRetire", "ThresholdInterval", 10},
              {"PageRetire", "ApeiLoggingEnabled", 0},
              {"Cpu", "CPUOfflineThreshold", 0},
              {"Net", "LinkFlappingThreshold", 0}};
  for (const auto &row : rows) {
    const std::string path = std::string("sysinfo/config/intOpts/") + row.group + "/" + row.name;
    int64_t value = -1;
    EXPECT_EQ(GetOption(row.group, row.name, &value), 0) << row.name;
    EXPECT_EQ(value, row.value) << row.name;
    PutHost(path, "-77\n");
    EXPECT_EQ(GetOption(row.group, row.name, &value), 0) << row.name;
    EXPECT_EQ(value, -77) << row.name;
    PutHost(path, "many");
    EXPECT_EQ(GetOption(row.group, row.name, &value), EINVAL) << row.name;  // never the default
  }
  int64_t value = -1;
  EXPECT_EQ(GetOption("Misc", "Other", &value), ENOENT);
  EXPECT_EQ(GetOption("Cpu", "RynAsyncEnable", &value), ENOENT);
  EXPECT_EQ(GetOption("..", "..", &value), ENOENT);
}

TEST_F(SysinfoTest, ReadsOptionsOfTwoWidths) {
  int32_t narrow = -1;
  int16_t odd = -1;
  PutHost("sysinfo/config/intOpts/Net/LinkFlappingThreshold", "2147483647");
  EXPECT_EQ(GetOption("Net", "LinkFlappingThreshold", &narrow), 0);
  EXPECT_EQ(narrow, INT32_MAX);
  EXPECT_EQ(GetOption("Net", "LinkFlappingThreshold", &odd), EINVAL);
  for (const char *text : {"2147483648", "-2147483649"}) {
    PutHost("sysinfo/config/intOpts/Net/LinkFlappingThreshold", text);
    EXPECT_EQ(GetOption("Net", "LinkFlappingThreshold", &narrow), ERANGE);
  }
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
