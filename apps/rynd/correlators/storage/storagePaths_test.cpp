#include "correlators/storage/storagePaths.h"

#include <filesystem>
#include "correlators/storage/storageCorrelators.h"
#include "correlators/storage/storageLookups.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using Change = ChangeCounter::Change;
constexpr int64_t kNow = 1'700'000'000;

const char kPath[] = "hba1:C0:T0:L0";

/// Every test starts with two devices: naa.1 has two volumes and the path kPath, naa.2 has none.
class StoragePathsTest : public testing::Test {
 protected:
  void SetUp() override {
    ClearHost();
    std::filesystem::create_directories(ProcessRoot() / "/hyfs/volumes");
    for (const auto &[number, volume] :
         {std::pair("0", "the whole device"), {"1", "ds1"}, {"2", ""}, {"10", "ds1"}, {"3", "ds 2"}}) {
      Put(std::string("devices/naa.1/partitions/") + number, volume);
    }
    Put("devices/naa.1/redundancy", "1");
    Put("devices/naa.2/redundancy", "3");
    Put(std::string("paths/") + kPath, "naa.1");
    TakeEvents();
  }
  static void Put(const std::string &path, const std::string &content) { PutHost("storage/" + path, content); }

  /// What the loss of kPath posts while its device has `status`.
  Events Down(const char *status, const char *previousState = "on") {
    Put("devices/naa.1/redundancy", status);
    paths_.PathDown(kPath, previousState, "naa.1", now_ += 61);
    return TakeEvents();
  }
  Events Restored(const char *status, const char *previousState = "dead") {
    Put("devices/naa.1/redundancy", status);
    paths_.PathRestored(kPath, previousState, now_ += 61);
    return TakeEvents();
  }
  int64_t now_ = kNow;  // far enough apart for no path to change too often
  CapturedLog log_;     // keeps failing look-ups off the terminal
  StoragePaths paths_{"apps/rynd/ryndTest", 7};
};

TEST_F(StoragePathsTest, ListsEachVolumeOfADeviceOnce) {
  EXPECT_EQ(DatastoreList("naa.1"), "\"ds1\", \"ds 2\"");
  EXPECT_EQ(DatastoreList("naa.2"), "");
  for (const char *unknown : {"naa.3", "", "..", "/", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(DatastoreList(unknown), std::nullopt);
    EXPECT_EQ(DatastoresOrUnknown(unknown), "Unknown");
  }
  Put("devices/naa.1/partitions/2", "two\nlines");
  EXPECT_EQ(DatastoreList("naa.1"), "\"ds1\"") << "a query that fails ends the walk";
  Put("devices/naa.1/disk", "0");
  EXPECT_EQ(DatastoreList("naa.1"), "") << "no disk device";
  Put("devices/naa.1/disk", "maybe");
  EXPECT_EQ(DatastoreList("naa.1"), std::nullopt) << "the look-up throws";
  std::filesystem::remove_all(ProcessRoot() / "/hyfs");
  EXPECT_EQ(DatastoreList("naa.2"), std::nullopt) << "no volumes directory";
}

TEST_F(StoragePathsTest, ANameThatDoesNotFitTheQueryIsNotCutOff) {
  Put("devices/d/partitions/3", "another device's");
  for (const size_t digits : {123U, 125U}) {  // ":1" just fits; what is left of it would name d's partition
    const std::string name = "d:" + std::string(digits - 1, '0') + "3";
    Put("devices/" + name + "/partitions/1", "first");
    EXPECT_EQ(DatastoreList(name.c_str()), digits == 123 ? "\"first\"" : "");
  }
}

TEST_F(StoragePathsTest, ReportsALostPathByWhatIsLeft) {
  const std::string device = " storage device naa.1",
                    down = ". Path hba1:C0:T0:L0 is down. Affected datastores: \"ds1\", \"ds 2\".";
  EXPECT_EQ(Down("1"), Events{"amb.problem.storage.connectivity.lost Lost connectivity to" + device + down});
  EXPECT_EQ(Down("2", "standby"),
            Events{"amb.problem.storage.redundancy.lost Lost path redundancy to" + device + down});
  EXPECT_EQ(Down("3"),
            Events{"amb.problem.storage.redundancy.degraded Path redundancy to" + device + " degraded" + down});

  EXPECT_EQ(paths_.ReportedDown(), 1u);
  paths_.PathDown("p", "on", "naa.2", kNow);
  EXPECT_TRUE(TakeEvents()[0].ends_with("Affected datastores: ."));
  std::filesystem::remove_all(ProcessRoot() / "/hyfs");
  EXPECT_TRUE(Down("1")[0].ends_with("Affected datastores: Unknown."));
}

TEST_F(StoragePathsTest, APathThatWasNotInUseOrIsNotKnownIsNotReported) {
  for (const char *state : {"off", "dead", "", "On", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(Down("1", state), Events{});
  }
  EXPECT_EQ(Down("0"), Events{});
  EXPECT_EQ(Down("x"), Events{});
  paths_.PathDown(kPath, "on", "naa.3", kNow);
  paths_.PathDown(kPath, "on", nullptr, kNow);
  EXPECT_EQ(paths_.ReportedDown(), 0u);
  EXPECT_EQ(Restored("2"), Events{});
  EXPECT_EQ(paths_.ReportedDown(), 1u) << "an entry for a path that was not reported down";
  EXPECT_EQ(Restored("2", "on"), Events{});
  std::filesystem::remove(HostPath(std::string("storage/paths/") + kPath));
  EXPECT_EQ(Restored("2"), Events{});
  EXPECT_EQ(TakeEvents(), Events{});
}

TEST_F(StoragePathsTest, ReportsTheEndOfALossOnce) {
  Down("1");
  EXPECT_EQ(Restored("2", "off"),
            Events{"amb.clear.storage.connectivity.restored Connectivity to storage device naa.1 (Datastores: \"ds1\", "
                   "\"ds 2\") restored. Path hba1:C0:T0:L0 is active again."});
  EXPECT_EQ(Restored("2"), Events{});
  Down("2");
  EXPECT_EQ(Restored("3"), Events{"amb.clear.storage.redundancy.restored Path redundancy to storage device naa.1 "
                                  "(Datastores: \"ds1\", \"ds 2\") restored. Path hba1:C0:T0:L0 is active again."});
  for (const char *status : {"1", "0", "4", "x"}) {
    Down("1");
    EXPECT_EQ(Restored(status), Events{}) << status;
    EXPECT_EQ(Restored("2"), Events{}) << "the entry is gone all the same";
  }
}

TEST_F(StoragePathsTest, AChangeThatAlarmsNamesTheDevice) {
  const auto tenChanges = [](const char *path) {
    StoragePaths paths("", 0);
    paths.CountChange("other", Change::kState, kNow);
    for (int i = 0; i < 10; ++i) paths.CountChange(path, Change::kState, kNow);
    return TakeEvents();
  };
  const std::string front =
      "amb.problem.storage.connectivity.pathstatechanges Frequent path state changes are occurring for path "
      "hba1:C0:T0:L0. This may indicate a storage problem. Affected device: naa.1. Affected datastores: ";
  EXPECT_EQ(tenChanges(kPath), Events{front + "\"ds1\", \"ds 2\"."});
  Put("devices/naa.1/redundancy", "0");
  EXPECT_EQ(tenChanges(kPath), Events{front + "Unknown."});
  Put("devices/naa.1/redundancy", "x");
  EXPECT_EQ(tenChanges(kPath), Events{});
  EXPECT_EQ(tenChanges("unknown"), Events{});
  EXPECT_EQ(tenChanges(nullptr), Events{});
  // Both kinds of a path's changes count.
  Put("devices/naa.1/redundancy", "0");
  paths_.CountChange(kPath, Change::kAdd, kNow);
  for (int i = 0; i < 5; ++i) paths_.PathDown(kPath, "on", "naa.1", kNow);
  for (int i = 0; i < 4; ++i) paths_.PathRestored(kPath, "dead", kNow);
  EXPECT_EQ(TakeEvents(), Events{});
  paths_.PathRestored(kPath, "dead", kNow);
  EXPECT_EQ(TakeEvents(), Events{front + "Unknown."});
}

TEST_F(StoragePathsTest, TheEleventhPowerOnResetAlarms) {
  const auto resets = [](const char *path) {
    PowerOnResets counter;
    for (int i = 0; i < 10; ++i) counter.Count(path, kNow);
    EXPECT_EQ(TakeEvents(), Events{});
    for (int i = 0; i < 20; ++i) counter.Count(path, kNow);
    return TakeEvents();
  };
  EXPECT_EQ(resets(kPath),
            Events{"amb.problem.storage.connectivity.pathpor Frequent PowerOn Reset Unit Attentions are occurring on "
                   "path hba1:C0:T0:L0. This may indicate a storage problem. Affected device: naa.1. Affected "
                   "datastores: \"ds1\", \"ds 2\"."});
  Put("paths/%00", "naa.2");  // where the platform files a path without a name
  EXPECT_EQ(resets(nullptr),
            Events{"amb.problem.storage.connectivity.devicepor Frequent PowerOn Reset Unit Attentions are occurring "
                   "on device naa.2. This may indicate a storage problem. Affected datastores: ."});
  EXPECT_EQ(resets("unknown"), Events{});
}

TEST(ScsiCorrelator, NamesTheDatastoresOfALostDevice) {
  const CapturedLog log;
  ClearHost();
  std::filesystem::create_directories(ProcessRoot() / "/hyfs/volumes");
  std::filesystem::create_directories(HostPath("storage/devices/empty"));
  PutHost("storage/devices/full/partitions/1", "ds1");
  const struct {
    HandlerTable handlers;
    const char *id, *back;
  } rows[] = {{ScsiHandlers(), "scsi.device.thinprov.atquota", "."},
              {ScsiHandlers(), "scsi.device.state.permanentloss.noopens", " and delete the device"},
              {PsaStorHandlers(), "psastor.device.state.permanentloss", "."},
              {PsaStorHandlers(), "psastor.device.state.permanentloss.withreservationheld", "."}};

  for (const auto &row : rows) {
    const std::string id = std::string("ryn.") + row.id;
    const auto post = [&](const hosted::RawArgument &device) { return EventsOf(row.handlers, id, {device})[0]; };
    EXPECT_TRUE(post(Str("full")).starts_with(std::string("amb.problem.") + row.id + " "));
    EXPECT_TRUE(post(Str("full")).ends_with(std::string("(if any): \"ds1\"") + row.back)) << id;
    EXPECT_NE(post(Str("full")).find(" full "), std::string::npos) << id;
    EXPECT_TRUE(post(Str("empty")).ends_with(std::string(": None") + row.back)) << id;
    EXPECT_TRUE(post(Str("none")).ends_with(std::string(": Unknown") + row.back)) << id;

    EXPECT_TRUE(post(NullStr()).ends_with(std::string(": Unknown") + row.back)) << id;
  }
}

TEST(ScsiCorrelator, SharesNoStateWithTheOtherStack) {
  const CapturedLog log;
  PutHost("storage/devices/naa.7/redundancy", "2");
  PutHost("storage/paths/shared", "naa.7");

  const auto times = [](int count, const HandlerTable &handlers, const char *id, const Arguments &arguments) {
    size_t events = 0;
    while (count-- > 0) events += EventsOf(handlers, id, arguments).size();
    return events;
  };
  // The first change of a run is swept.
  times(1, ScsiHandlers(), "ryn.scsi.scsipath.add", {Str("other")});
  times(1, PsaStorHandlers(), "ryn.psastor.psastorpath.add", {Str("other")});
  EXPECT_EQ(times(9, ScsiHandlers(), "ryn.scsi.scsipath.pathstate.on", {Str("shared"), Str("on")}), 0u);
  EXPECT_EQ(times(9, PsaStorHandlers(), "ryn.psastor.psastorpath.pathstate.standby", {Str("shared"), Str("on")}), 0u);
  EXPECT_EQ(times(1, PsaStorHandlers(), "ryn.psastor.psastorpath.add", {Str("shared")}), 1u);
  EXPECT_EQ(times(1, ScsiHandlers(), "ryn.scsi.scsipath.remove", {Str("shared")}), 0u);
  EXPECT_EQ(times(9, ScsiHandlers(), "ryn.scsi.scsipath.pathstate.on", {Str("shared"), Str("on")}), 0u);
  // What one reported down the other does not report as restored.
  const Arguments lost = {Str("shared"), Str("on"), Str("naa.7")};
  const Arguments restored = {Str("shared"), Str("dead")};
  EXPECT_EQ(times(1, ScsiHandlers(), "ryn.scsi.scsipath.remove", {Str("shared")}), 0u);
  EXPECT_EQ(times(1, ScsiHandlers(), "ryn.scsi.scsipath.pathstate.deadver2", lost), 1u);
  EXPECT_EQ(times(1, PsaStorHandlers(), "ryn.psastor.psastorpath.pathstate.on", restored), 0u);
  EXPECT_EQ(times(1, PsaStorHandlers(), "ryn.psastor.psastorpath.pathstate.dead", lost), 1u);
  EXPECT_EQ(times(1, ScsiHandlers(), "ryn.scsi.scsipath.pathstate.on", restored), 1u);
  EXPECT_EQ(times(10, ScsiHandlers(), "ryn.scsi.scsipath.por", {Str("shared")}), 0u);
  EXPECT_EQ(times(1, ScsiHandlers(), "ryn.scsi.scsipath.por", {Str("shared")}), 1u);
}

}  // namespace
}  // namespace rynd
