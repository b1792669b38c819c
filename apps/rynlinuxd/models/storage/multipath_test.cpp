// Multipath devices from messages and answers of the device mapper of a Linux 6.1.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "models/recorder.h"
#include "models/storage/multipathModel.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

constexpr char kSomePaths[] = "2 0 0 0 2 1 A 0 1 2 8:0 A 0 5 1 E 0 1 2 8:16 F 3 0 1 ";
constexpr char kNoPaths[] = "2 1 0 0 1 1 E 0 2 0 8:0 F 1 8:16 F 1 ";
constexpr char kTable[] = "1 queue_if_no_path 0 1 1 round-robin 0 2 1 8:0 1 8:16 1 ";
constexpr char kFailing[] = "0 0 1 1 round-robin 0 2 1 8:0 1 8:16 1 ";
constexpr char kWwid[] = "35000c50015ea71ac";

TEST(DmDevice, PathsAndQueueingAreReadAndOtherTextsRefused) {
  const auto show = [](const std::optional<DmDevice> &device) {
    if (!device) return std::string("none");
    std::string text = device->isQueueing ? "queues" : "fails";
    for (const auto &[path, isActive] : device->isActive) text += ' ' + path + (isActive ? " on" : " dead");
    return text;
  };
  EXPECT_EQ(show(ParseDmDevice(kSomePaths, kTable)), "queues 8:0 on 8:16 dead");
  EXPECT_EQ(show(ParseDmDevice(kNoPaths, kFailing)), "fails 8:0 dead 8:16 dead");
  EXPECT_EQ(show(ParseDmDevice(kNoPaths, "3 pg_init_retries 50 queue_if_no_path 1 alua 1 1 x")),
            "queues 8:0 dead 8:16 dead");
  EXPECT_EQ(show(ParseDmDevice("2 0 0 0 0 0 ", "0 0 0 0")), "fails") << "every path was taken out of it";
  const std::string whole = kSomePaths;
  for (size_t size = 0; size < whole.size() - 2; ++size) {
    EXPECT_EQ(show(ParseDmDevice(whole.substr(0, size), kTable)), "none") << size;
  }
  for (const char *table : {"", "x", "-1", "99999999999 x"}) EXPECT_EQ(show(ParseDmDevice(kNoPaths, table)), "none");
  for (const char *status : {"2 0 0 0 1 1 E 0 2 0 8:0 ? 1 8:16 F 1", "linear 8:0 0", "0 0 9999 1"}) {
    EXPECT_EQ(show(ParseDmDevice(status, kTable)), "none") << status;
  }
  EXPECT_EQ(DmName("mpath-3600", "mpatha"), "3600");
  EXPECT_EQ(DmName("LVM-3600", "vg-root"), "vg-root");
}

/// A device mapper of the test's own, whose every question is answered.
class Host {
 public:
  testing_support::TestRoot root;
  Recorder recorder;
  MultipathModel model{root.Path(), &recorder.ledger, &recorder};
  std::optional<DmDevice> device;
  int64_t nowNs = 0;
  int questions = 0;

  Host() {
    std::filesystem::create_directories(root / "/dev/block");
    for (const auto &[number, name] : {std::pair("8:0", "sda"), std::pair("8:16", "sdb"), std::pair("8:32", "sdc")}) {
      std::filesystem::create_symlink("../../devices/pci0/block/" + std::string(name),
                                      root / ("/dev/block/" + std::string(number)));
    }
  }
  void Set(const char *status, const char *table) {
    device = ParseDmDevice(status, table);
    device->name = kWwid;
  }
  std::string Answer() {
    model.Answer("253:0", device, nowNs, 1);
    return recorder.Take();
  }
  /// Let it ask until it wants to know nothing, and show what was told.
  std::string Serve() {
    model.OnDue(nowNs);
    for (const std::string &number : model.TakeQuestions()) {
      ++questions;
      model.Answer(number, device, nowNs, 1);
    }
    return recorder.Take();
  }
  std::string After(double seconds) {
    nowNs += static_cast<int64_t>(seconds * 1e9);
    return Serve();
  }
  void Send(const char *action, const std::map<std::string, std::string> &values = {}) {
    Uevent event{action, "/devices/virtual/block/dm-0", {{"SUBSYSTEM", "block"}, {"MAJOR", "253"}, {"MINOR", "0"}}};
    event.values.insert(values.begin(), values.end());
    model.Change(event, nowNs);
  }
  /// As the kernel says that one path failed or came back.
  void Path(const char *action, int sequence, const char *path, int valid) {
    Send("change", {{"DM_TARGET", "multipath"},
                    {"DM_ACTION", std::string("PATH_") + action},
                    {"DM_SEQNUM", std::to_string(sequence)},
                    {"DM_PATH", path},
                    {"DM_NR_VALID_PATHS", std::to_string(valid)},
                    {"DM_NAME", "mpatha"},
                    {"DM_UUID", std::string("mpath-") + kWwid}});
  }
};

constexpr char kBothOn[] = "2 1 0 0 1 1 A 0 2 0 8:0 A 0 8:16 A 0 ";
const std::string kDead = "scsi.scsipath.pathstate.deadver2 ", kOn = "scsi.scsipath.pathstate.on ";
const std::string kStart = std::string("storage.apd.start ") + kWwid + '\n';
const std::string kExit = std::string("storage.apd.exit ") + kWwid + '\n';

std::string Dead(const char *path) {
  return kDead + path + " on " + kWwid + '\n';
}

TEST(Multipath, PathsFailAndComeBackInTheirOrder) {
  Host host;
  host.Set(kBothOn, kTable);
  EXPECT_EQ(host.Answer(), "") << "as it is";
  // The last message is the first to come; the mapper answers late, and then not as it is any more.
  host.Path("FAILED", 2, "8:16", 0);
  host.Path("FAILED", 1, "8:0", 1);
  EXPECT_EQ(host.recorder.Take(), "") << "nobody knows which is the first";
  host.Set(kNoPaths, kTable);
  EXPECT_EQ(host.After(0.2), Dead("sda") + Dead("sdb") + kStart);
  EXPECT_EQ(host.After(30), "");
  host.Path("REINSTATED", 4, "8:0", 2);
  EXPECT_EQ(host.recorder.Take(), "") << "the one in front of it is still to come";
  host.Path("REINSTATED", 3, "8:16", 1);
  host.Set(kBothOn, kTable);
  EXPECT_EQ(host.recorder.Take(), kOn + "sdb dead\n" + kExit + kOn + "sda dead\n");
  host.questions = 0;
  EXPECT_EQ(host.After(100), "");
  EXPECT_EQ(host.questions, 0) << "with a path the mapper is left alone";
  host.Path("FAILED", 3, "8:0", 1);
  host.Path("FAILED", 7, "8:0", 1);
  EXPECT_EQ(host.recorder.Take(), "") << "one of the past, one too early";
  EXPECT_EQ(host.After(0.2), Dead("sda")) << "those in front of it were lost";
}

TEST(Multipath, TheHostTreeSaysWhatPathsAreWorth) {
  Host host;
  host.Set("2 1 0 0 1 1 A 0 3 0 8:0 A 0 8:16 A 0 8:32 A 0 ", kTable);
  host.Answer();
  std::string told;
  int sequence = 0;
  for (const auto &[path, valid] : {std::pair("8:0", 3), std::pair("8:16", 1), std::pair("8:32", 0)}) {
    host.Path("FAILED", ++sequence, path, valid);
  }
  host.model.OnDue(MultipathModel::kOrderNs);
  for (const Report &report : host.recorder.reports) {
    for (const HostFile &file : report.files) told += file.path + '=' + file.text + ' ';
  }
  const std::string redundancy = std::string("storage/devices/") + kWwid + "/redundancy=";
  EXPECT_EQ(told, ("storage/paths/sda=" + std::string(kWwid) + ' ' + redundancy + "3 storage/paths/sdb=" + kWwid + ' ' +
                   redundancy + "2 storage/paths/sdc=" + kWwid + ' ' + redundancy + "1 "))
      << told;
}

TEST(Multipath, WaitingWithoutPathsEndsByAPathOrByTime) {
  Host host;
  host.Set(kNoPaths, kTable);
  EXPECT_EQ(host.Answer(), kStart) << "hard facts are told at the first start";
  EXPECT_EQ(host.After(60), "");
  host.Set(kNoPaths, kFailing);
  EXPECT_EQ(host.After(80), std::string("storage.apd.timeout ") + kWwid + " 140\n");
  EXPECT_EQ(host.After(60), "");
  host.recorder.ledger.MarkStale();
  host.model.Retell();
  EXPECT_EQ(host.After(0), std::string("storage.apd.timeout ") + kWwid + " 200\n") << "a new daemon";
  host.Path("REINSTATED", 9, "8:0", 1);
  host.Set("2 1 0 0 1 1 E 0 2 0 8:0 A 1 8:16 F 1 ", kTable);
  EXPECT_EQ(host.After(0.2), kOn + "sda dead\n" + kExit);
  // Requests fail at once: nothing has waited.
  Host other;
  other.Set(kNoPaths, kFailing);
  EXPECT_EQ(other.Answer(), "");
  EXPECT_EQ(other.After(1000), "");
}

TEST(Multipath, ADeviceThatGoesWithoutPathsIsNotBack) {
  Host host;
  host.Set(kNoPaths, kTable);
  EXPECT_EQ(host.Answer(), kStart);
  for (int i = 0; i < 3; ++i) {
    host.Send("remove");
    EXPECT_EQ(host.After(20), std::string("external.warning storage device ") + kWwid +
                                  " man:rynlinuxd(8) it was removed while no path to it worked\n");
    host.Send("add");
    host.Send("change", {{"DM_COOKIE", "1"}});
    EXPECT_EQ(host.After(1), "") << "it is as it was";
  }
  host.Send("remove");
  host.recorder.Take();
  host.Send("change", {{"DM_COOKIE", "1"}});
  host.Set(kBothOn, kTable);
  EXPECT_EQ(host.After(1), kOn + "sda dead\n" + kOn + "sdb dead\n" + kExit);
  EXPECT_EQ(host.model.Due(), INT64_MAX);
  // Others are none of its business, and are not asked for again and again.
  host.device.reset();
  host.Send("remove");
  host.Send("change", {{"DM_COOKIE", "2"}});
  host.Send("change", {{"SYNTH_UUID", "0"}});
  EXPECT_EQ(host.After(1), "");
  EXPECT_EQ(host.model.Due(), INT64_MAX);
}

TEST(Multipath, ANewTableAndLostMessagesAreMadeUpFor) {
  Host host;
  host.Set(kBothOn, kTable);
  host.Answer();
  host.Send("change", {{"DM_COOKIE", "1"}});
  host.Set("2 1 0 0 1 1 A 0 2 0 8:0 A 0 8:32 A 0 ", kTable);
  EXPECT_EQ(host.After(0), "scsi.scsipath.remove sdb\nscsi.scsipath.add sdc\n");
  host.Path("FAILED", 1, "8:0", 1);
  EXPECT_EQ(host.After(0.2), Dead("sda"));
  host.Send("change", {{"DM_COOKIE", "2"}});
  EXPECT_EQ(host.After(0), kOn + "sda dead\n") << "the table was loaded anew, which begins with all of them";
  // All went, and nobody heard it.
  host.Set("2 1 0 0 1 1 E 0 2 0 8:0 F 0 8:32 F 0 ", kTable);
  host.model.AskForAll();
  EXPECT_EQ(host.After(0), Dead("sda") + Dead("sdc") + kStart);
  // An answer that a message has overtaken is of no use.
  host.model.AskForAll();
  ASSERT_EQ(host.model.TakeQuestions().size(), 1u);
  host.Path("REINSTATED", 5, "8:0", 1);
  EXPECT_EQ(host.Answer(), "");
  host.Set("2 1 0 0 1 1 E 0 2 0 8:0 A 0 8:32 F 0 ", kTable);
  EXPECT_EQ(host.After(0.2), kOn + "sda dead\n" + kExit);
}

}  // namespace
}  // namespace rynlinuxd
