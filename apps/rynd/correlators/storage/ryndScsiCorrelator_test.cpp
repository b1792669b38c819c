#include <filesystem>

#include "correlators/storage/storageCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

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
