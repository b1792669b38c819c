// Disks from messages that a Linux 6.1 has sent, and folders as its sysfs has them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "models/recorder.h"
#include "models/storage/diskModel.h"
#include "models/storage/smartWarning.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

/// A recorded message, NULs shown as '|'.
std::optional<Uevent> Parse(std::string text) {
  std::replace(text.begin(), text.end(), '|', '\0');
  return ParseUevent(std::as_bytes(std::span(text)));
}

/// A /sys of the test's own.
class Host {
 public:
  testing_support::TestRoot root;
  Recorder recorder;
  DiskModel model{root.Path(), &recorder.ledger, &recorder};

  void Plug(const std::string &path, const std::string &file = "", const std::string &text = "") {
    const std::string name = path.substr(path.rfind('/') + 1);
    std::filesystem::create_directories(root / "/block");
    for (const char *each : {"/uevent", "/device/uevent"}) testing_support::WriteFile(root.Path() + path + each, "");
    if (!file.empty()) testing_support::WriteFile(root.Path() + path + file, text + "\n");
    std::filesystem::create_symlink(".." + path, root / ("/block/" + name));
  }
  void Pull(const std::string &path) {
    std::filesystem::remove_all(root.Path() + path);
    std::filesystem::remove(root / ("/block/" + path.substr(path.rfind('/') + 1)));
  }
  std::string Send(const std::string &action, const std::string &path, const std::string &more = "|DEVTYPE=disk") {
    const auto event = Parse(action + "@" + path + "|ACTION=" + action + "|SUBSYSTEM=block" + more + "|");
    EXPECT_TRUE(event);
    model.Change(*event);
    return recorder.Take();
  }
};

constexpr char kFirst[] = "/devices/pci0000:00/0000:00:01.0/virtio0/host0/target0:0:0/0:0:0:0/block/sda";
constexpr char kSecond[] = "/devices/pci0000:00/0000:00:02.0/virtio1/host1/target1:0:0/1:0:0:0/block/sdb";
constexpr char kFlash[] = "/devices/pci0000:00/0000:00:03.0/nvme/nvme0/nvme0n1";

TEST(Disks, OneIsToldWhenItsFirstPathComesAndItsLastGoes) {
  Host host;
  host.Plug(kFirst, "/device/wwid", "naa.5000c50015ea71ac");
  host.Plug("/devices/virtual/block/dm-0");
  host.model.Look(0);
  EXPECT_EQ(host.recorder.Take(), "") << "found at the first start";
  host.Plug(kSecond, "/device/wwid", "naa.5000c50015ea71ac");
  EXPECT_EQ(host.Send("add", kSecond), "");
  host.Pull(kFirst);
  EXPECT_EQ(host.Send("remove", kFirst), "");
  host.Pull(kSecond);
  EXPECT_EQ(host.Send("remove", kSecond), "hcm.event.disk.removal naa.5000c50015ea71ac\n");
  EXPECT_EQ(host.Send("remove", kSecond), "") << "it was told";
  host.Plug(kFlash, "/wwid", "nvme.1b36-4e5631323334 ");
  EXPECT_EQ(host.Send("add", kFlash), "hcm.event.disk.insertion nvme.1b36-4e5631323334\n");
  const std::string nameless = "/devices/pci0000:00/0000:00:09.0/virtio4/block/vdb";
  host.Plug(nameless);
  EXPECT_EQ(host.Send("add", nameless), "hcm.event.disk.insertion vdb\n");
  EXPECT_EQ(host.Send("remove", nameless), "hcm.event.disk.removal vdb\n");
}

TEST(Disks, WhatIsNoDiskThatComesOrGoesIsNotTold) {
  Host host;
  host.Plug(kFirst, "/device/wwid", "t10.ATA     QEMU   HARDDISK");
  host.model.Look(0);
  const std::string cd = "/devices/pci0000:00/0000:00:01.1/ata2/host1/target1:0:0/1:0:0:0/block/sr0";
  host.Plug(cd, "/device/type", "5");
  EXPECT_EQ(host.Send("add", kFirst), "") << "it is known";
  EXPECT_EQ(host.Send("change", kFirst), "");
  EXPECT_EQ(host.Send("remove", kFirst, "|SYNTH_UUID=0|DEVTYPE=disk"), "");
  EXPECT_EQ(host.Send("add", kSecond, "|SYNTH_UUID=0b3c...|DEVTYPE=disk"), "");
  EXPECT_EQ(host.Send("remove", std::string(kFirst) + "/sda1", "|DEVTYPE=partition"), "");
  EXPECT_EQ(host.Send("add", cd), "");
  EXPECT_EQ(host.Send("add", "/devices/virtual/block/loop7"), "");
  EXPECT_EQ(host.Send("add", "/devices/platform/floppy.0/block/fd0"), "");
  for (const char *text : {"", "add", "@/devices/x", "libudev|\xfe\xed\xca\xfe", "add@x|ACTION=add"}) {
    EXPECT_FALSE(Parse(text)) << text;
  }
}

TEST(Disks, WhatChangedMeanwhileIsTold) {
  Host host;
  host.recorder.ledger.RecordTold({"", "", {}, "disk naa.old", "in"}, 1);
  host.recorder.ledger.RecordTold({"", "", {}, "disk naa.slow", "in"}, 1);
  host.Plug(kFirst, "/device/wwid", "naa.new");
  host.Plug("/devices/pci0000:00/0000:00:09.0/virtio4/block/vdb");
  host.model.Look(0);
  EXPECT_EQ(host.recorder.Take(), "hcm.event.disk.insertion naa.new\n") << "vdb may have been there under another name";
  host.Plug(kSecond, "/device/wwid", "naa.slow");
  EXPECT_EQ(host.Send("add", kSecond), "") << "its driver was slow";
  host.model.OnDue(DiskModel::kProbeNs);
  EXPECT_EQ(host.recorder.Take(), "hcm.event.disk.removal naa.old\n");
  EXPECT_EQ(host.model.Due(), INT64_MAX);
  // Messages were lost.
  host.Pull(kSecond);
  host.Plug(kFlash, "/wwid", "eui.0025385b01");
  host.model.Look(DiskModel::kProbeNs);
  EXPECT_EQ(host.recorder.Take(), "hcm.event.disk.insertion eui.0025385b01\nhcm.event.disk.removal naa.slow\n");
}

TEST(SmartWarning, OnlyTheDisksOwnVerdictIsAPrediction) {
  const struct {
    const char *kind, *device, *shown, *told;
  } kCases[] = {
      {"Health", "/dev/sda", "/dev/sda", "hcm.event.disk.predictive.failure naa.1"},
      {"Health", "/dev/sda", "/dev/sda [SAT]", "hcm.event.disk.predictive.failure naa.1"},
      {"Health", "/dev/sda", "/dev/sda [megaraid_disk_03]",
       "hcm.event.disk.predictive.failure /dev/sda [megaraid_disk_03]"},
      {"Health", "/dev/gone", "/dev/gone", "hcm.event.disk.predictive.failure /dev/gone"},
      {"CurrentPendingSector", "/dev/sda", "/dev/sda",
       "external.warning disk naa.1 man:rynlinuxd(8) smartd reports CurrentPendingSector: 8 sectors"},
      {"EmailTest", "/dev/sda", "/dev/sda",
       "external.info disk naa.1 man:rynlinuxd(8) smartd tries whether it is heard: 8 sectors"},
      {"", "/dev/sda", "/dev/sda", ""},
      {"Health", "", "", ""},
  };
  for (const auto &[kind, device, shown, told] : kCases) {
    std::map<std::string, std::string> values = {{"SMARTD_FAILTYPE", kind},
                                                 {"SMARTD_DEVICE", device},
                                                 {"SMARTD_DEVICESTRING", shown},
                                                 {"SMARTD_MESSAGE", "8 sectors"}};
    Recorder recorder;
    const auto report = ReadSmartWarning([&](const char *name) { return values[name]; },
                                         [](const std::string &file) { return file == "/dev/sda" ? "naa.1" : ""; });
    if (report) recorder.Tell(*report);
    EXPECT_EQ(recorder.Take(), *told == '\0' ? "" : std::string(told) + '\n') << kind;
  }
}

}  // namespace
}  // namespace rynlinuxd
