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
       {"scsi.device.close.failed", {Int(1), Str("p")}, nullptr, "correlate ryn.scsi.device.close.failed: 22"},
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
  // What is said when an id's arguments can't be read, before the id where that is said too.
  const std::pair<std::string, const char *> rows[] = {
      {"correlate ", "scsi.device.io.latency.high"},
      {"correlate ", "psastor.device.io.latency.improved"},
      {"correlate ", "scsi.device.close.failed"},
      {"correlate ", "psastor.device.is.local.failed"},
      {"correlate ", "scsi.device.io.qerr.changed"},
      {"correlate ", "scsi.unsupported.plugin.type"},
      {"correlate ", "psastor.unsupported.plugin.type"},
      {"get params for correlation ", "scsi.device.invalid.xcopy.request"},
      {"get params for correlation ", "scsi.device.detach.failed"},
      {"get params for correlation ", "scsi.device.too.many.io.error"},
      {"get params for correlation ", "psastor.device.too.many.io.error"},
      {"get device name", "scsi.device.state.on"},
      {"get device name", "scsi.device.state.permanentloss"},
      {"get device name", "scsi.device.state.permanentloss.noopens"},
      {"get device name", "psastor.device.state.off"},
      {"get device name", "psastor.device.state.permanentloss.withreservationheld"},
      {"get path limit reached path count", "scsi.scsipath.limitreached"},
      {"get path limit reached path count", "psastor.psastorpath.limitreached"},
      {"get device limit reached device count", "scsi.device.limitreached"},
      {"get device limit reached device count", "psastor.device.limitreached"},
      {"get path add remove path name", "scsi.scsipath.add"},
      {"get path add remove path name", "psastor.psastorpath.remove"},
      {"get path name", "scsi.scsipath.badpath.unsafepe"}};
  for (const auto &[front, id] : rows) {
    const std::string logged = front + (front.ends_with(' ') ? "ryn." + std::string(id) : "") + ": 75";
    ExpectEach(*id == 'p' ? PsaStorHandlers() : ScsiHandlers(), {{id, {}, nullptr, logged.c_str()}});
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
