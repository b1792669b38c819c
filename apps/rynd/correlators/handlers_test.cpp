// Handlers that are more than a row, by what they make of their arguments. The texts of whole observations are those of
// the catalogue's examples, which testing/system/eventTexts.txt holds to the byte.

#include "correlators/hardware/cxlDeviceType.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

struct Case {
  const char *id;  ///< without "ryn."
  Arguments arguments;
  const char *part;              ///< of what is posted; null: nothing is
  const char *logged = nullptr;  ///< the last line behind "Failed to "; null: none but the observation's own
};

void ExpectEach(const HandlerTable &handlers, const std::vector<Case> &cases) {
  CapturedLog log;
  for (const Case &one : cases) {
    const size_t before = log.Messages().size();
    const Events events = EventsOf(handlers, std::string("ryn.") + one.id, one.arguments);
    ASSERT_EQ(events.size(), one.part == nullptr ? 0u : 1u) << one.id;
    if (one.part != nullptr) {
      EXPECT_NE(events[0].find(one.part), std::string::npos) << events[0];
    }
    if (one.logged != nullptr) {
      EXPECT_EQ(log.Messages().back(), std::string("Failed to ") + one.logged) << one.id;
    } else {
      EXPECT_LE(log.Messages().size(), before + 1) << log.Messages().back();
    }
  }
}

TEST(Handlers, OfTheNetwork) {
  PutHost("sysinfo/vm/vmmGroupInfo/31", "web 100%s\n");
  ExpectEach(NetHandlers(),
             {{"net.fence.port.fail", {Str("p"), Str("sw"), Int(5), Int(5)}, "net.fence.resource.limited "},
              {"net.fence.port.fail", {Str("p"), Str("sw"), Int(5)}, nullptr},
              {"net.e1000.tso6.notsupported", {Int(31)}, " Virtual Machine web 100%s, or "},
              {"net.e1000.tso6.notsupported", {Int(32)}, nullptr},
              {"net.e1000.tso6.notsupported", {Str("31")}, nullptr}});
  const char *const shutdown = "migrate.zmove.server.pending.cnx.listen.socket.shutdown";
  ExpectEach(MigrateHandlers(), {{shutdown, {Str("Limit 100%d")}, " Failure status: Limit 100%d"},
                                 {shutdown, {NullStr()}, " Failure status: unknown"},
                                 {shutdown, {}, nullptr}});
}

TEST(Handlers, OfVirtualDisksAndTargets) {
  const auto login = [](uint32_t status) { return Arguments{Str("hba64"), Str("iqn.t"), Long(status)}; };
  const char *const id = "iscsi.target.login.error", *const unknown = "error: Unknown login response received.";
  ExpectEach(IscsiHandlers(),
             {{id, login(0x0000), "error: Login is proceeding okay."},
              {id, login(0x0101), "error: Requested ITN has moved temporarily to the address provided."},
              {id, login(0x020b), "error: Invalid request type during login."},
              {id, login(0x0302), "error: Target has insufficient session, connection or other resources."},
              {id, login(0x10201), "error: Initiator could not be successfully authenticated."},
              {id, login(0xffff0300), "error: Target hardware or software error."},
              {id, login(0x020c), unknown},
              {id, login(0x0100), unknown},
              {id, login(0x0400), unknown},
              {id, {Str("hba64"), Str("iqn.t")}, nullptr},
              {"iscsi.connection.error", {Str("p")}, nullptr}});
  const char *const attach = "vscsi.shared.hydk.filter.attach.failed";
  const char *const npiv = "vscsi.npiv.configuration.dropped";
  ExpectEach(
      VscsiHandlers(),
      {{"vscsi.shared.hydk.virtual.machine.power.on.failed", {Str("vm1")}, "(vm1 and ) sharing", "get VM-2 name: 75"},
       {npiv, {Int(3), Long(UINT32_MAX), Str("vm1")}, "scsi3:4294967295 (VMName: vm1)."},
       {npiv, {Str("x"), Int(4), Str("vm")}, "scsi0:4 (VMName: vm).", "get adapter ID: 22"},
       {npiv, {Int(3), Int(4), Int(5)}, "scsi3:4 (VMName: ).", "get VM Name: 22"},
       {"vscsi.shared.hydk.no.free.slot.available", {}, " MSCS cluster are 0", "get args: 75"},
       {attach, {}, nullptr, "get filterName: 75"},
       {attach, {Str("f")}, nullptr, "get devName: 75"},
       {attach, {Str("f"), Str("d")}, nullptr, "get worldName: 75"}});
}

TEST(Handlers, OfDevicesAndPaths) {
  ExpectEach(
      ScsiHandlers(),
      {{"scsi.scsipath.limitreached", {Int(1)}, nullptr, "get path limit reached path name: 75"},
       {"scsi.device.thinprov.atquota", {}, nullptr, "get thin provisioned device name: 75"},
       {"scsi.device.nmp.satp.option.failed", {}, nullptr, "get NMP SATP options: 75"},
       {"scsi.device.nmp.satp.option.failed", {Str("o")}, nullptr, "get path name: 75"},
       {"scsi.scsipath.badpath.unreachpe", {NullStr()}, nullptr, "get PE-incapable adapter name for path (null) : 75"},
       {"scsi.device.too.many.io.error",
        {Str("d"), Int(65536)},
        nullptr,
        "get params for correlation ryn.scsi.device.too.many.io.error: 34"},
       {"scsi.scsipath.pathstate.deadver2", {Str("p"), Str("on")}, nullptr},
       {"scsi.scsipath.por", {}, nullptr}});
  ExpectEach(PsaStorHandlers(),
             {{"psastor.device.limitreached", {Int(1), Int(1)}, nullptr, "get device limit reached plugin name: 22"},
              {"psastor.psastorpath.pathstate.on", {Str("p")}, nullptr}});
  const struct {
    const char *front;
    bool withId;
    std::vector<const char *> ids;
  } rows[] = {
      {"correlate",
       true,
       {"scsi.device.io.latency.high", "scsi.device.io.latency.improved", "psastor.device.io.latency.high",
        "scsi.device.close.failed", "scsi.device.is.ssd.failed", "psastor.device.is.local.failed",
        "scsi.device.io.qerr.change.config", "scsi.device.io.qerr.changed", "scsi.unsupported.plugin.type",
        "psastor.unsupported.plugin.type"}},
      {"get params for correlation",
       true,
       {"scsi.device.invalid.xcopy.request", "scsi.device.filter.attach.failed", "scsi.device.detach.failed",
        "scsi.device.too.many.io.error", "psastor.device.too.many.io.error"}},
      {"get device name",
       false,
       {"scsi.device.state.on", "scsi.device.state.permanentloss", "scsi.device.state.permanentloss.noopens",
        "scsi.device.state.permanentloss.pluggedback", "psastor.device.state.off",
        "psastor.device.state.permanentloss.deviceonline", "psastor.device.state.permanentloss.withreservationheld"}},
      {"get path limit reached path count", false, {"scsi.scsipath.limitreached", "psastor.psastorpath.limitreached"}},
      {"get device limit reached device count", false, {"scsi.device.limitreached", "psastor.device.limitreached"}},
      {"get path add remove path name", false, {"scsi.scsipath.add", "psastor.psastorpath.remove"}},
      {"get path name", false, {"scsi.scsipath.badpath.unsafepe", "scsi.scsipath.badpath.unreachpe"}}};
  for (const auto &row : rows) {
    for (const std::string id : row.ids) {
      const std::string logged = row.front + (row.withId ? " ryn." + id : "") + ": 75";
      ExpectEach(id.starts_with("psastor.") ? PsaStorHandlers() : ScsiHandlers(),
                 {{id.c_str(), {}, nullptr, logged.c_str()}});
    }
  }
}

TEST(Handlers, OfFileSystems) {
  const char *const latency = "hyfs.nfs.volume.io.latency.high.exceed.threshold";
  const std::string failed = std::string("correlate ryn.") + latency + ": 75";
  ExpectEach(HyfsHandlers(), {{latency, {Str("v"), Long(1), Long(2)}, nullptr, failed.c_str()},
                              {"hyfs.sesparse.bloomfilter.disabled", {Str("d")}, nullptr},
                              {"hyfs.heartbeat.timedout", {Int(1)}, nullptr}});
  ExpectEach(VelfsHandlers(), {{"velfs.tardisk.readonlyfile", {Str("p")}, nullptr}});
  ExpectEach(VfatHandlers(), {{"vfat.filesystem.full", {Str("p")}, nullptr}});
}

TEST(Handlers, OfMachinesAndPrograms) {
  const std::string kill = "vm.kill.unexpected.";
  const auto killed = [&](const char *how, Arguments arguments, const char *part) {
    const std::string id = kill + how;
    ExpectEach(VmHandlers(), {{id.c_str(), std::move(arguments), part}});
  };
  killed("noSwapResponse", {Str("/a.cfg"), Str("?")}, " /a.cfg did not respond to 0 swap actions in 0 seconds and ");
  killed("forcefulPageRetire.64", {Str("/a.cfg"), Long(0xfffffffff)}, " page 0xfffffffff which ");
  killed("fault.failure", {Str("/a.cfg"), Str("/tmp/vm1.vswp")}, " on (invalid). ");
  for (const char *how : {"hytrack", "hyx.fault.failure", "fault.failure", "forcefulPageRetire.64"}) {
    killed(how, {}, (kill + how + ".2  ").c_str());  // the machine's name is empty
  }
  ExpectEach(GenericHandlers(), {{"external.error", {Str("acme"), Str(""), Str("slow")}, " link () to see "},
                                 {"user.external.info", {Str("acme"), NullStr(), Str("m")}, nullptr},
                                 {"external.warning", {Str("acme"), Str("kb/1")}, nullptr}});
  ExpectEach(SchedHandlers(), {{"sched.qos.cat.noresource", {}, nullptr, "arg: 75"}});
  for (const uint32_t type : {9u, 10u, UINT32_MAX}) {
    EXPECT_STREQ(CxlDeviceTypeName(type), "Invalid or unknown Device Type");
  }
}

}  // namespace
}  // namespace rynd
