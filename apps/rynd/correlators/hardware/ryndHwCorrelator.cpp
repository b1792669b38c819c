// The hardware platform correlator: passes on what the kernel reports of Fibre Channel fabrics, TPM, BMC, NVDIMMs and
// interrupt routing, one event an observation. It keeps no state.
#include "core/agents/runner.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"

namespace rynd {
namespace {

constexpr Fields kNone = {};
constexpr Fields kFpin = {{ArgType::kStr, ArgType::kStr}};    // host port WWPN, target port WWPN
constexpr Fields kNvdimm = {{ArgType::kInt, ArgType::kStr}};  // handle, id string
constexpr Fields kNvdimmValue = {{ArgType::kInt, ArgType::kStr, ArgType::kInt}};
constexpr Fields kNvdimmValueLimit = {{ArgType::kInt, ArgType::kStr, ArgType::kInt, ArgType::kInt}};
constexpr Fields kNumber = {{ArgType::kInt}};  // of an IOAPIC, a device pin or a device

constexpr auto kHardwareRows = std::to_array<PostRow>({
    {"ryn.hardware.fpin.fc.peercongestion.devicespecific", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.peercongestion.devicespecific)FPIN FC device specific peer congestion: Host "
     "WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.peercongestion.oversubscription", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.peercongestion.oversubscription)FPIN FC oversubscription peer congestion: "
     "Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.peercongestion.creditstall", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.peercongestion.creditstall)FPIN FC credit stall peer congestion: Host WWPN "
     "%s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.peercongestion.lostcredit", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.peercongestion.lostcredit)FPIN FC lost credit peer congestion: Host WWPN "
     "%s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.peercongestion.clear", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.peercongestion.clear)FPIN FC peer congestion clear: Host WWPN %s, target "
     "WWPN %s."},
    {"ryn.hardware.fpin.fc.congestion.devicespecific", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.congestion.devicespecific)FPIN FC device specific congestion: Host WWPN %s, "
     "target WWPN %s."},
    {"ryn.hardware.fpin.fc.congestion.oversubscription", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.congestion.oversubscription)FPIN FC oversubscription congestion: Host WWPN "
     "%s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.congestion.creditstall", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.congestion.creditstall)FPIN FC credit stall congestion: Host WWPN %s, "
     "target WWPN %s."},
    {"ryn.hardware.fpin.fc.congestion.lostcredit", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.congestion.lostcredit)FPIN FC lost credit congestion: Host WWPN %s, target "
     "WWPN %s."},
    {"ryn.hardware.fpin.fc.congestion.clear", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.congestion.clear)FPIN FC congestion clear: Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.delivery.devicespecific", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.delivery.devicespecific)FPIN FC device specific delivery notification: Host "
     "WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.delivery.unabletoroute", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.delivery.unabletoroute)FPIN FC delivery unable to route: Host WWPN %s, "
     "target WWPN %s."},
    {"ryn.hardware.fpin.fc.delivery.timeout", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.delivery.timeout)FPIN FC delivery time out: Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.delivery.unknown", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.delivery.unknown)FPIN FC unknown delivery notification: Host WWPN %s, "
     "target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.devicespecific", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.devicespecific)FPIN FC device specific link integrity "
     "notification: Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.uncorrectableFECerror", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.uncorrectableFECerror)FPIN FC link uncorrectable FEC error: "
     "Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.invalidCRC", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.invalidCRC)FPIN FC link invalid CRC: Host WWPN %s, target "
     "WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.invalidtransmissionword", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.invalidtransmissionword)FPIN FC link invalid transmission "
     "word: Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.primitivesequenceprotocolerror", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.primitivesequenceprotocolerror)FPIN FC link primitive "
     "sequence protocol error: Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.lossofsignal", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.lossofsignal)FPIN FC link loss of signal: Host WWPN %s, "
     "target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.lossofsynchronization", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.lossofsynchronization)FPIN FC link loss of synchronization: "
     "Host WWPN %s, target WWPN %s."},
    {"ryn.hardware.fpin.fc.linkintegrity.linkfailure", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.linkfailure)FPIN FC link failure: Host WWPN %s, target WWPN "
     "%s."},
    {"ryn.hardware.fpin.fc.linkintegrity.unknown", kProblem, kFpin,
     "@&!*@*@(amb.problem.hardware.fpin.fc.linkintegrity.unknown)FPIN FC unknown link integrity notification: Host "
     "WWPN %s, target WWPN %s."},
    {"ryn.hardware.tpm2.notis", kProblem, kNone,
     "@&!*@*@(amb.problem.hardware.tpm2.notis)TPM 2 TIS interface is not active. Please reboot and activate it in the "
     "BIOS."},
    {"ryn.hardware.tpm2.nosha256", kProblem, kNone,
     "@&!*@*@(amb.problem.hardware.tpm2.nosha256)TPM 2 SHA-256 PCR bank not found to be active. Please activate it in "
     "the BIOS."},
    {"ryn.hardware.ipmi.bmc.bad", kProblem, kNone,
     "@&!*@*@(amb.problem.hardware.ipmi.bmc.bad)Failed to communicate with the BMC. IPMI functionality will be "
     "unavailable on this system."},
    {"ryn.hardware.nvd.health.module.vendor.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.vendor.error)NVDIMM (handle %#x, idString %s): Vendor specific "
     "error."},
    {"ryn.hardware.nvd.health.module.uce", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.uce)NVDIMM (handle %#x, idString %s): Count of DRAM uncorrectable "
     "ECC errors above threshold."},
    {"ryn.hardware.nvd.health.module.ops.flush.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ops.flush.fail)NVDIMM (handle %#x, idString %s): The Platform "
     "flush failed. The restored data may be inconsistent."},
    {"ryn.hardware.nvd.health.module.ops.save.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ops.save.fail)NVDIMM (handle %#x, idString %s): Previous SAVE "
     "operation failed."},
    {"ryn.hardware.nvd.health.module.ops.restore.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ops.restore.fail)NVDIMM (handle %#x, idString %s): Last RESTORE "
     "operation failed."},
    {"ryn.hardware.nvd.health.module.ops.erase.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ops.erase.fail)NVDIMM (handle %#x, idString %s): Previous ERASE "
     "operation failed."},
    {"ryn.hardware.nvd.health.module.ops.arm.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ops.arm.fail)NVDIMM (handle %#x, idString %s): Previous ARM "
     "operation failed."},
    {"ryn.hardware.nvd.health.module.es.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.es.fail)NVDIMM (handle %#x, idString %s): Energy Source failure "
     "detected. Persistency is lost for the device."},
    {"ryn.hardware.nvd.health.module.es.charging", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.es.charging)NVDIMM (handle %#x, idString %s): Energy Source still "
     "charging but does not have sufficient charge to support\ta backup. Persistency is temporarily lost for the "
     "device."},
    {"ryn.hardware.nvd.health.module.es.charged", kClear, kNvdimm,
     "@&!*@*@(amb.clear.hardware.nvd.health.module.es.charged)NVDIMM (handle %#x, idString %s): Energy Source is "
     "sufficiently charged."},
    {"ryn.hardware.nvd.health.module.ctlr.fw.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ctlr.fw.error)NVDIMM (handle %#x, idString %s): Controller "
     "firmware error detected."},
    {"ryn.hardware.nvd.health.module.ctlr.fail", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.ctlr.fail)NVDIMM (handle %#x, idString %s): Controller failure "
     "detected. Access to the device and its capabilities are lost."},
    {"ryn.hardware.nvd.health.module.config.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.module.config.error)NVDIMM (handle %#x, idString %s): Configuration "
     "error detected."},
    {"ryn.hardware.nvd.health.module.ce", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.module.ce)NVDIMM (handle %#x, idString %s): Count of DRAM correctable ECC "
     "errors above threshold."},
    {"ryn.hardware.nvd.health.alarms.es.temperature.error", kProblem, kNvdimmValue,
     "@&!*@*@(amb.problem.hardware.nvd.health.alarms.es.temperature.error)NVDIMM (handle %#x, idString %s): Energy "
     "Source Temperature (%d C) Error tripped."},
    {"ryn.hardware.nvd.health.alarms.es.temperature.warning", kAudit, kNvdimmValue,
     "@&!*@*@(amb.audit.hardware.nvd.health.alarms.es.temperature.warning)NVDIMM (handle %#x, idString %s): Energy "
     "Source Temperature (%d C) Warning tripped."},
    {"ryn.hardware.nvd.health.alarms.es.lifetime.error", kProblem, kNvdimmValue,
     "@&!*@*@(amb.problem.hardware.nvd.health.alarms.es.lifetime.error)NVDIMM (handle %#x, idString %s): Energy Source "
     "Lifetime (%u) Error tripped."},
    {"ryn.hardware.nvd.health.alarms.es.lifetime.warning", kAudit, kNvdimmValue,
     "@&!*@*@(amb.audit.hardware.nvd.health.alarms.es.lifetime.warning)NVDIMM (handle %#x, idString %s): Energy Source "
     "Lifetime (%u) Warning tripped."},
    {"ryn.hardware.nvd.health.alarms.lifetime.error", kProblem, kNvdimmValue,
     "@&!*@*@(amb.problem.hardware.nvd.health.alarms.lifetime.error)NVDIMM (handle %#x, idString %s): Lifetime (%u) "
     "Error tripped."},
    {"ryn.hardware.nvd.health.alarms.lifetime.warning", kAudit, kNvdimmValue,
     "@&!*@*@(amb.audit.hardware.nvd.health.alarms.lifetime.warning)NVDIMM (handle %#x, idString %s): Lifetime (%u) "
     "Warning tripped."},
    {"ryn.hardware.nvd.health.alarms.spareblocks", kAudit, kNvdimmValue,
     "@&!*@*@(amb.audit.hardware.nvd.health.alarms.spareblocks)NVDIMM (handle %#x, idString %s): SpareBlocksPct (%u) "
     "has reached the pre-programmed threshold limit."},
    {"ryn.hardware.nvd.health.alarms.temperature", kAudit, kNvdimmValue,
     "@&!*@*@(amb.audit.hardware.nvd.health.alarms.temperature)NVDIMM (handle %#x, idString %s): Temperature (%d C) "
     "has reached the pre-programmed threshold limit."},
    {"ryn.hardware.nvd.health.life.pctused", kAudit, kNvdimmValueLimit,
     "@&!*@*@(amb.audit.hardware.nvd.health.life.pctused)NVDIMM (handle %#x, idString %s): Life Percentage Used (%u) "
     "has reached the threshold limit (%u)."},
    {"ryn.hardware.nvd.health.lastshutdownstatus", kProblem, kNvdimmValue,
     "@&!*@*@(amb.problem.hardware.nvd.health.lastshutdownstatus)NVDIMM (handle %#x, idString %s): Last Shutdown "
     "Status (%u) Not a clean Shutdown, there was either a platform or memory device-related failure while saving data "
     "targeted for this memory device."},
    {"ryn.hardware.nvd.health.cvn.statusflags.perfDegraded", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.perfDegraded)NVDIMM (handle %#x, idString %s): "
     "Performance degraded."},
    {"ryn.hardware.nvd.health.cvn.statusflags.maintNeeded", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.cvn.statusflags.maintNeeded)NVDIMM (handle %#x, idString %s): Maintenance "
     "needed."},
    {"ryn.hardware.nvd.health.cvn.statusflags.wpLossNow", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.wpLossNow)NVDIMM (handle %#x, idString %s): Subsequent "
     "writes may not persist."},
    {"ryn.hardware.nvd.health.cvn.statusflags.wpLossInShutdown", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.wpLossInShutdown)NVDIMM (handle %#x, idString %s): Write "
     "persistency loss may happen in event of shutdown."},
    {"ryn.hardware.nvd.health.cvn.statusflags.wpLossInPowerLoss", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.wpLossInPowerLoss)NVDIMM (handle %#x, idString %s): "
     "Write persistency loss may happen in event of power loss."},
    {"ryn.hardware.nvd.health.cvn.statusflags.allDataLossNow", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.allDataLossNow)NVDIMM (handle %#x, idString %s): "
     "Subsequent reads may fail or return invalid data and subsequent writes may not persist."},
    {"ryn.hardware.nvd.health.cvn.statusflags.allDataLossInShutdown", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.allDataLossInShutdown)NVDIMM (handle %#x, idString %s): "
     "All data may be lost in the event of shutdown."},
    {"ryn.hardware.nvd.health.cvn.statusflags.allDataLossInPowerLoss", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.statusflags.allDataLossInPowerLoss)NVDIMM (handle %#x, idString %s): "
     "All data may be lost in the event of power loss."},
    {"ryn.hardware.nvd.health.cvn.alarms.module.temperature.warning", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.cvn.alarms.module.temperature.warning)NVDIMM (handle %#x, idString %s): "
     "Module Temperature Warning tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.module.temperature.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.alarms.module.temperature.error)NVDIMM (handle %#x, idString %s): "
     "Module Temperature Error tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.module.lifetime.warning", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.cvn.alarms.module.lifetime.warning)NVDIMM (handle %#x, idString %s): "
     "Module Lifetime Warning tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.module.lifetime.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.alarms.module.lifetime.error)NVDIMM (handle %#x, idString %s): "
     "Module Lifetime Error tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.es.temperature.warning", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.cvn.alarms.es.temperature.warning)NVDIMM (handle %#x, idString %s): Energy "
     "Source Temperature Warning tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.es.temperature.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.alarms.es.temperature.error)NVDIMM (handle %#x, idString %s): Energy "
     "Source Temperature Error tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.es.lifetime.warning", kAudit, kNvdimm,
     "@&!*@*@(amb.audit.hardware.nvd.health.cvn.alarms.es.lifetime.warning)NVDIMM (handle %#x, idString %s): Energy "
     "Source Lifetime Warning tripped."},
    {"ryn.hardware.nvd.health.cvn.alarms.es.lifetime.error", kProblem, kNvdimm,
     "@&!*@*@(amb.problem.hardware.nvd.health.cvn.alarms.es.lifetime.error)NVDIMM (handle %#x, idString %s): Energy "
     "Source Lifetime Error tripped."},
    {"ryn.hardware.ioapic.missing", kProblem, kNumber,
     "@&!*@*@(amb.problem.hardware.ioapic.missing)IOAPIC Num %d is missing. Please check BIOS settings to enable this "
     "IOAPIC."},
    {"ryn.hardware.acpi.interrupt.routing.pin.invalid", kProblem, kNumber,
     "@&!*@*@(amb.problem.hardware.acpi.interrupt.routing.pin.invalid)Skipping interrupt routing entry with bad device "
     "pin: %u. This is a BIOS bug."},
    {"ryn.hardware.acpi.interrupt.routing.device.invalid", kProblem, kNumber,
     "@&!*@*@(amb.problem.hardware.acpi.interrupt.routing.device.invalid)Skipping interrupt routing entry with bad "
     "device number: %u. This is a BIOS bug."},
});
static_assert(kHardwareRows.size() == 69);
static_assert(UniqueIds(kHardwareRows));

}  // namespace

std::span<const PostRow> HardwarePostRows() {
  return kHardwareRows;
}

HandlerTable HardwareHandlers() {
  HandlerTable table;
  AddPostRows<kHardwareRows>(&table);
  return table;
}

void RyndHwCorrelator() {
  RunCorrelator("Hardware", "hardware", IgnoreObservation, HardwareHandlers());
}

}  // namespace rynd
