// The storage correlators' handlers that keep no state, and the way that observations take to those that do.

#include <filesystem>

#include "correlators/storage/storageCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(StorageRows, SayWhichArgumentCannotBeRead) {
  CapturedLog log;
  const auto said = [&log](const HandlerTable &handlers, const std::string &id, const Arguments &arguments) {
    EXPECT_EQ(EventsOf(handlers, "ryn." + id, arguments), Events{}) << id;
    return log.Messages().back();
  };
  const HandlerTable scsi = ScsiHandlers();
  const HandlerTable psa = PsaStorHandlers();
  const auto eachSays = [&](const std::string &front, bool withId, const std::vector<std::string> &ids) {
    for (const std::string &id : ids) {
      EXPECT_EQ(said(id.starts_with("psastor.") ? psa : scsi, id, {}), front + (withId ? " ryn." + id : "") + ": 75");
    }
  };
  eachSays("Failed to correlate", true,
           {"scsi.device.io.latency.high", "scsi.device.io.latency.improved", "psastor.device.io.latency.high",
            "scsi.device.close.failed", "scsi.device.is.ssd.failed", "psastor.device.is.local.failed",
            "scsi.device.io.qerr.change.config", "scsi.device.io.qerr.changed", "scsi.unsupported.plugin.type",
            "psastor.unsupported.plugin.type"});
  eachSays("Failed to get params for correlation", true,
           {"scsi.device.invalid.xcopy.request", "scsi.device.filter.attach.failed", "scsi.device.detach.failed",
            "scsi.device.too.many.io.error", "psastor.device.too.many.io.error"});
  eachSays(
      "Failed to get device name", false,
      {"scsi.device.state.on", "scsi.device.state.permanentloss", "scsi.device.state.permanentloss.noopens",
       "scsi.device.state.permanentloss.pluggedback", "psastor.device.state.off",
       "psastor.device.state.permanentloss.deviceonline", "psastor.device.state.permanentloss.withreservationheld"});
  eachSays("Failed to get path limit reached path count", false,
           {"scsi.scsipath.limitreached", "psastor.psastorpath.limitreached"});
  eachSays("Failed to get device limit reached device count", false,
           {"scsi.device.limitreached", "psastor.device.limitreached"});
  eachSays("Failed to get path add remove path name", false, {"scsi.scsipath.add", "psastor.psastorpath.remove"});
  eachSays("Failed to get path name", false, {"scsi.scsipath.badpath.unsafepe", "scsi.scsipath.badpath.unreachpe"});
  EXPECT_EQ(said(scsi, "scsi.scsipath.limitreached", {Int(1)}), "Failed to get path limit reached path name: 75");
  EXPECT_EQ(said(psa, "psastor.device.limitreached", {Int(1), Int(1)}),
            "Failed to get device limit reached plugin name: 22");
  EXPECT_EQ(said(scsi, "scsi.device.thinprov.atquota", {}), "Failed to get thin provisioned device name: 75");
  EXPECT_EQ(said(scsi, "scsi.device.nmp.satp.option.failed", {}), "Failed to get NMP SATP options: 75");
  EXPECT_EQ(said(scsi, "scsi.device.nmp.satp.option.failed", {Str("o")}), "Failed to get path name: 75");
  EXPECT_EQ(said(scsi, "scsi.scsipath.badpath.unreachpe", {NullStr()}),
            "Failed to get PE-incapable adapter name for path (null) : 75");
  EXPECT_EQ(said(scsi, "scsi.device.too.many.io.error", {Str("d"), Int(65536)}),
            "Failed to get params for correlation ryn.scsi.device.too.many.io.error: 34");
  EXPECT_EQ(said(HyfsHandlers(), "hyfs.nfs.volume.io.latency.high.exceed.threshold", {Str("v"), Long(1), Long(2)}),
            "Failed to correlate ryn.hyfs.nfs.volume.io.latency.high.exceed.threshold: 75");
  const char *const attach = "vscsi.shared.hydk.filter.attach.failed";
  EXPECT_EQ(said(VscsiHandlers(), attach, {}), "Failed to get filterName: 75");
  EXPECT_EQ(said(VscsiHandlers(), attach, {Str("f")}), "Failed to get devName: 75");
  EXPECT_EQ(said(VscsiHandlers(), attach, {Str("f"), Str("d")}), "Failed to get worldName: 75");
}

TEST(StorageRows, OthersStopWithoutALine) {
  CapturedLog log;
  EXPECT_EQ(EventsOf(HyfsHandlers(), "ryn.hyfs.sesparse.bloomfilter.disabled", {Str("d")}), Events{});
  EXPECT_EQ(EventsOf(HyfsHandlers(), "ryn.hyfs.heartbeat.timedout", {Int(1)}), Events{});
  EXPECT_EQ(EventsOf(ScsiHandlers(), "ryn.scsi.scsipath.pathstate.deadver2", {Str("p"), Str("on")}), Events{});
  EXPECT_EQ(EventsOf(PsaStorHandlers(), "ryn.psastor.psastorpath.pathstate.on", {Str("p")}), Events{});
  EXPECT_EQ(EventsOf(ScsiHandlers(), "ryn.scsi.scsipath.por", {}), Events{});
  EXPECT_EQ(EventsOf(IscsiHandlers(), "ryn.iscsi.connection.error", {Str("p")}), Events{});
  EXPECT_EQ(EventsOf(VelfsHandlers(), "ryn.velfs.tardisk.readonlyfile", {Str("p")}), Events{});
  EXPECT_EQ(EventsOf(VfatHandlers(), "ryn.vfat.filesystem.full", {Str("p")}), Events{});
  EXPECT_EQ(log.Messages().size(), 8u) << "each observation is logged, and nothing else";
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
