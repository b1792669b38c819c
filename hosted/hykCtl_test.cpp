#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "hosted/hostTree.h"
#include "hosted/testSupport.h"
#include "platform/hostMgmt.h"
#include "platform/hykCtlStorage.h"
#include "platform/hykCtlUtil.h"

namespace hosted {
namespace {

using HostMgmt::Lib::HostMgmtException;
using HykCtl::Util::Sysinfo;

/// Every test starts with an empty host tree.
class HykCtlTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(HostTreePath("")); }
  static void Put(const std::string &path, const std::string &content) {
    testing_support::WriteFile(HostTreePath(path), content);
  }
  LogListener log_;
};

TEST_F(HykCtlTest, SysinfoReadsAndWritesByInstance) {
  int64_t value = 0;
  Sysinfo("config/intOpts").AddInstancePath("Net").AddInstancePath("X").AddInput(42).Set();
  Sysinfo("config/intOpts").AddInstancePath("Net").AddInstancePath("X").Get(&value, sizeof value);
  EXPECT_EQ(value, 42);
  // Without an instance, what a read is about stands in the inputs.
  value = 0;
  Sysinfo("config/intOpts").AddInput("Net").AddInput("X").Get(&value, sizeof value);
  EXPECT_EQ(value, 42);
}

TEST_F(HykCtlTest, SysinfoFailuresNameTheNodeAndTheReason) {
  int64_t value = 7;
  try {
    Sysinfo("config/intOpts").AddInstancePath("Net").AddInstancePath("None").Get(&value, sizeof value);
    FAIL() << "it was read";
  } catch (const HostMgmtException &failure) {
    EXPECT_EQ(failure.GetDetailedMessage(), "cannot read the sysinfo node config/intOpts: No such file or directory");
  }
  EXPECT_EQ(value, 7);
  EXPECT_THROW(Sysinfo("no/such/node").Set(), HostMgmtException);
  EXPECT_THROW(Sysinfo("config/intOpts").AddInstancePath(nullptr), HostMgmtException);
  EXPECT_THROW(Sysinfo("config/intOpts").AddInstancePath(1).Get(&value, sizeof value), HostMgmtException);
}

TEST_F(HykCtlTest, ListsWhatStandsInAFolder) {
  std::vector<std::string> names = {"old"};
  EXPECT_EQ(ListHostFolder("none", &names), 0);
  EXPECT_TRUE(names.empty());
  for (const char *name : {"b", "a/b%", "", ".a", "\n"}) {
    Put("folder/" + HostComponent(name), "");
  }
  for (const char *foreign : {"%2f", "%4", "%41", ".hidden", "%00", "x%"}) Put(std::string("folder/") + foreign, "");
  EXPECT_EQ(ListHostFolder("folder", &names), 0);
  EXPECT_EQ(names, (std::vector<std::string>{"", "\n", ".a", "a/b%", "b"}));
  Put("file", "");
  EXPECT_EQ(ListHostFolder("file", &names), ENOTDIR);
}

TEST_F(HykCtlTest, FileSystemsHaveALabelAndAUuid) {
  EXPECT_TRUE(HykCtl::Storage::StorageInfoImpl().GetFileSystems().empty());
  Put("storage/filesystems/5f1a-22", "datastore1\n");
  Put("storage/filesystems/11-aa", "");
  const auto all = HykCtl::Storage::StorageInfoImpl().GetFileSystems();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].GetUuid(), "11-aa");
  EXPECT_EQ(all[0].GetLabel(), "");
  EXPECT_EQ(all[1].GetUuid(), "5f1a-22");
  EXPECT_EQ(all[1].GetLabel(), "datastore1");
  Put("storage/filesystems/5f1a-22", "two\nlines");
  EXPECT_THROW(HykCtl::Storage::StorageInfoImpl().GetFileSystems(), HostMgmtException);
}

}  // namespace
}  // namespace hosted
