#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "hosted/host/hostTree.h"
#include "hosted/testSupport.h"
#include "platform/hostMgmt.h"
#include "platform/hostMgmtNetwork.h"
#include "platform/hykCtlAdv.h"
#include "platform/hykCtlStorage.h"
#include "platform/hykCtlUtil.h"

namespace hosted {
namespace {

using HostMgmt::Lib::HostMgmtException;
using HykCtl::Util::Sysinfo;

using HykCtlTest = HostTreeTest;

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
  for (const char *name : {"b", "a/b%", "", ".a", "\n"}) PutHost("folder/" + HostComponent(name), "");
  for (const char *foreign : {"%2f", "%4", "%41", ".hidden", "%00", "x%"})
    PutHost(std::string("folder/") + foreign, "");
  EXPECT_EQ(ListHostFolder("folder", &names), 0);
  EXPECT_EQ(names, (std::vector<std::string>{"", "\n", ".a", "a/b%", "b"}));
  PutHost("file", "");
  EXPECT_EQ(ListHostFolder("file", &names), ENOTDIR);
}

TEST_F(HykCtlTest, FileSystemsHaveALabelAndAUuid) {
  const auto all = [] {
    std::string shown;
    for (const auto &one : HykCtl::Storage::StorageInfoImpl().GetFileSystems()) {
      shown += one.GetUuid() + "=" + one.GetLabel() + ";";
    }
    return shown;
  };
  EXPECT_EQ(all(), "");
  PutHost("storage/filesystems/5f1a-22", "datastore1\n");
  PutHost("storage/filesystems/11-aa", "");
  PutHost("storage/filesystems/a%2Fb", "remote");
  std::filesystem::create_symlink("nowhere", HostTreePath("storage/filesystems/gone"));
  EXPECT_EQ(all(), "11-aa=;5f1a-22=datastore1;a/b=remote;") << "one that has just gone is none";
  // One that can't be read spoils no other.
  PutHost("storage/filesystems/5f1a-22", "two\nlines");
  PutHost("storage/filesystems/%zz", "no name is written like this");
  log_.AllMessages();
  EXPECT_EQ(all(), "11-aa=;a/b=remote;");
  EXPECT_EQ(log_.NextMessage(), "Left out " + HostTreePath("storage/filesystems/%zz") + ": it is no name of the tree");
  EXPECT_EQ(log_.NextMessage(),
            "Cannot read " + HostTreePath("storage/filesystems/5f1a-22") + ": it holds more than one line");
  std::filesystem::remove_all(HostTreePath("storage/filesystems"));
  PutHost("storage/filesystems", "no folder");
  EXPECT_THROW(all(), HostMgmtException);
}

TEST_F(HykCtlTest, OptionsAreUnsignedAnd32BitsWide) {
  const HykCtl::Adv::AdvancedIntegerOptionImpl option({"Net"}, "LinkFlappingThreshold");
  EXPECT_EQ(option.GetValue(), 0u);
  PutHost("sysinfo/config/intOpts/Net/LinkFlappingThreshold", "4294967295\n");
  EXPECT_EQ(option.GetValue(), 4294967295u);
  for (const char *bad : {"4294967296", "-1", "many"}) {
    PutHost("sysinfo/config/intOpts/Net/LinkFlappingThreshold", bad);
    EXPECT_THROW(static_cast<void>(option.GetValue()), HostMgmtException) << bad;
  }
}

TEST_F(HykCtlTest, TheGroupOfAVirtualMachineHasItsDisplayName) {
  HsiVmmGroupInfo info{};
  const auto read = [&info](int64_t id, size_t size = sizeof info) {
    Sysinfo("vm/vmmGroupInfo").AddInstancePath(id).Get(&info, size);
  };
  EXPECT_THROW(read(77), HostMgmtException);
  PutHost("sysinfo/vm/vmmGroupInfo/77", "web server\n");
  read(77);
  EXPECT_EQ(info.groupId, 77u);
  EXPECT_STREQ(info.displayName, "web server");
  for (const int64_t sameGroup : {int64_t{-2}, int64_t{4294967294}}) {
    PutHost("sysinfo/vm/vmmGroupInfo/4294967294", "the last but one\n");
    read(sameGroup);
    EXPECT_EQ(info.groupId, 4294967294u);
  }
  EXPECT_THROW(read(int64_t{77} + (int64_t{1} << 32)), HostMgmtException) << "no group has 33 bits";
  EXPECT_THROW(read(77, 3395), HostMgmtException);
  PutHost("sysinfo/vm/vmmGroupInfo/77", std::string(3391, 'n'));
  read(77);
  EXPECT_EQ(std::string(info.displayName), std::string(3391, 'n'));
  PutHost("sysinfo/vm/vmmGroupInfo/77", std::string(3392, 'n'));
  EXPECT_THROW(read(77), HostMgmtException);
}

TEST_F(HykCtlTest, FindsPortGroupsAndPortsOfSwitches) {
  using HostMgmt::Network::NetworkFactory;
  PutHost("net/portgroups/pg%2F1", "vSwitch0\n");
  EXPECT_EQ(NetworkFactory::GetPortGroupByName("pg/1")->GetVirtualSwitchName(), "vSwitch0");
  EXPECT_THROW(NetworkFactory::GetPortGroupByName(".."), HostMgmtException);
  PutHost("net/dvports/dvs/17", "whatever\nstands here");
  const auto port = NetworkFactory::GetDVPort("dvs", "17");
  EXPECT_TRUE(port->Exists());
  std::filesystem::remove(HostTreePath("net/dvports/dvs/17"));
  EXPECT_FALSE(port->Exists());
  EXPECT_THROW(NetworkFactory::GetDVPort("dvs", std::string(300, 'p')), HostMgmtException);
}

}  // namespace
}  // namespace hosted
