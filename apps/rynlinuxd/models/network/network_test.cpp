// Cards that stop sending, from folders as sysfs has them, and addresses that others have, from messages and log
// records.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>

#include <filesystem>

#include "models/network/addressModel.h"
#include "models/network/txTimeouts.h"
#include "models/recorder.h"
#include "models/testSupport.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

using testing_support::WriteFile;

TEST(TxTimeouts, OnlyWhatRoseIsTold) {
  const testing_support::TestRoot root;
  Recorder recorder;
  TxTimeouts model(root.Path(), {"veth*"}, &recorder);
  const auto put = [&](const std::string &card, const char *index, const std::vector<std::string> &queues) {
    std::filesystem::remove_all(root / ("/" + card));
    WriteFile(root / ("/" + card + "/ifindex"), index);
    for (size_t i = 0; i < queues.size(); ++i) {
      WriteFile(root / ("/" + card + "/queues/tx-" + std::to_string(i) + "/tx_timeout"), queues[i] + "\n");
    }
    WriteFile(root / ("/" + card + "/queues/rx-0/rps_cpus"), "9\n");
  };
  const auto look = [&] {
    if (std::filesystem::exists(root / "/eth0")) WriteFile(root / "/eth0/device/vendor", "");
    model.Look();
    return recorder.Take();
  };
  put("eth0", "2", {"7", "1"});
  put("br0", "3", {"4"});
  EXPECT_EQ(look(), "") << "of the past";
  put("eth0", "2", {"7", "2"});
  put("br0", "3", {"5"});
  EXPECT_EQ(look(), "net.uplink.watchdog.timeout eth0\n") << "a bridge has no driver that could hang";
  EXPECT_EQ(look(), "");
  put("eth0", "2", {"7"});
  EXPECT_EQ(look(), "") << "a queue less";
  put("eth0", "2", {"8"});
  put("veth1", "9", {"1"});
  EXPECT_EQ(look(), "net.uplink.watchdog.timeout eth0\nnet.uplink.watchdog.timeout veth1\n");
  put("eth0", "12", {"0"});
  EXPECT_EQ(look(), "") << "another card of the same name";
  put("eth0", "12", {"1"});
  std::filesystem::remove_all(root / "/veth1");
  EXPECT_EQ(look(), "net.uplink.watchdog.timeout eth0\n");
  put("eth0", "12", {"1", "4"});
  EXPECT_EQ(look(), "net.uplink.watchdog.timeout eth0\n");
  put("eth0", "12", {"1"});
  EXPECT_EQ(look(), "");
  std::filesystem::remove_all(root / "/eth0");
  put("veth7", "12", {"1", "4"});
  EXPECT_EQ(look(), "") << "another name, and its queue is there again";
  std::filesystem::rename(root / "/veth7", root / "/eth0");
  std::filesystem::remove(root / "/eth0/ifindex");
  put("veth2", "14", {"x", "0"});
  EXPECT_EQ(look(), "") << "gone while it is read";
}

constexpr char kLine[] =
    "6,1016,5431,-;IPv6: eth0: IPv6 duplicate address 2001:db8::1 used by 52:54:00:12:34:56 detected!\n";

TEST(KernelLog, OnlyTheKernelSaysWhoHasAnAddress) {
  const auto line = ParseDuplicateLine(kLine);
  ASSERT_TRUE(line);
  EXPECT_EQ(line->link + ' ' + line->address + ' ' + line->owner, "eth0 2001:db8::1 52:54:00:12:34:56");
  for (const char *record : {
           "14,1016,5431,-;IPv6: eth0: IPv6 duplicate address 2001:db8::1 used by 52:54:00:12:34:56 detected!\n",
           "6,1016,5431,-;eth0: IPv6 duplicate address 2001:db8::1 used by 52:54:00:12:34:56 detected!\n",
           "6,1016,5431,-;IPv6: eth0: IPv6 duplicate address 2001:db8::1\n",
           "6,1016,5431,-;IPv6:  used by : IPv6 duplicate address  detected!\n",
           "6;",
           "",
       }) {
    EXPECT_FALSE(ParseDuplicateLine(record)) << record;
  }
}

AddressFacts Address(bool isDuplicate, bool isGone = false) {
  return {2, isGone, isDuplicate, "2001:db8::1"};
}

TEST(Addresses, ADuplicateIsToldOnceItIsKnownWhoHasIt) {
  constexpr char kTold[] = "net.hyknic.ip.duplicate 2001:db8::1 eth0 52:54:00:12:34:56\n";
  constexpr char kEnded[] =
      "external.info address 2001:db8::1 man:rynlinuxd(8) it is no longer that of another host, or no longer one of "
      "eth0\n";
  const DuplicateLine line = ParseDuplicateLine(kLine).value();
  Recorder recorder;
  AddressModel model(&recorder);
  // The log is first.
  model.TakeLine(line, 0);
  model.TakeLine({"eth7", "2001:db8::1", "52:54:00:00:00:07"}, 0);
  model.Change(Address(false), "eth0", false, 0);
  EXPECT_EQ(recorder.Take(), "") << "of another network";
  model.Change(Address(true), "eth0", false, 0);
  model.Change(Address(true), "eth0", false, 0);
  EXPECT_EQ(recorder.Take(), kTold);
  recorder.ledger.MarkStale();
  model.Retell();
  EXPECT_EQ(recorder.Take(), kTold) << "a new daemon";
  model.Change(Address(true, true), "", false, 0);
  EXPECT_EQ(recorder.Take(), kEnded);
  // The log is last, and writes it in another way.
  model.Change(Address(true), "eth0", false, 0);
  EXPECT_EQ(recorder.Take(), "");
  model.TakeLine({"eth0", "2001:0DB8:0::1", line.owner}, 1);
  EXPECT_EQ(recorder.Take(), kTold);
  EXPECT_EQ(model.Due(), INT64_MAX);
  model.Change(Address(false), "", false, 0);
  EXPECT_EQ(recorder.Take(), kEnded) << "tried again, with success";
  // The log says nothing.
  model.Change(Address(true), "eth0", false, 5);
  EXPECT_EQ(model.Due(), 5 + AddressModel::kOwnerNs);
  model.OnDue(5 + AddressModel::kOwnerNs);
  EXPECT_EQ(recorder.Take(),
            "external.error address 2001:db8::1 man:rynlinuxd(8) another host has it too: eth0 does not use it\n");
  // Before anybody looked; and gone before it was told.
  Recorder second;
  AddressModel later(&second);
  later.Change(Address(true), "eth0", true, 0);
  later.Change({3, false, true, "fe80::1"}, "eth1", false, 0);
  later.Change({3, true, true, "fe80::1"}, "", false, 1);
  later.OnDue(AddressModel::kOwnerNs);
  EXPECT_EQ(second.Take(), "");
}

TEST(Addresses, MessagesAreReadAndOtherBytesSurvived) {
  struct {
    nlmsghdr header;
    ifaddrmsg address;
    rtattr name;
    in6_addr bytes;
    rtattr wide;
    uint32_t flags;
  } message{};
  message.header = {sizeof message, RTM_NEWADDR, 0, 0, 0};
  message.address = {AF_INET6, 64, 0, 0, 2};
  message.name = {sizeof message.name + sizeof message.bytes, IFA_ADDRESS};
  inet_pton(AF_INET6, "2001:db8::1", &message.bytes);
  message.wide = {sizeof message.wide + sizeof message.flags, IFA_FLAGS};
  message.flags = IFA_F_DADFAILED | IFA_F_STABLE_PRIVACY;
  const auto bytes = std::as_bytes(std::span(&message, 1));
  const AddressDatagram read = ParseAddressDatagram(bytes);
  ASSERT_EQ(read.addresses.size(), 1u);
  EXPECT_TRUE(read.addresses[0].isDuplicate && read.addresses[0].index == 2);
  EXPECT_EQ(read.addresses[0].address, "2001:db8::1");
  message.address.ifa_family = AF_INET;
  EXPECT_TRUE(ParseAddressDatagram(bytes).addresses.empty());
  ReadDamaged(bytes, ParseAddressDatagram);
}

}  // namespace
}  // namespace rynlinuxd
