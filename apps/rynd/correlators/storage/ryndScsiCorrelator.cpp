// The SCSI correlator: reports what the kernel's SCSI layer observes about devices and paths. Its state, on its agent's
// thread, is which paths were reported down and how often paths change or see a PowerOn Reset.
#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/storage/storageHandlers.h"

namespace rynd {
namespace {

constexpr Fields kNone = {};
constexpr Fields kDevice = {{ArgType::kStr}};
constexpr Fields kIntAndText = {{ArgType::kInt, ArgType::kStr}};
constexpr Fields kPluginType = {{ArgType::kInt}};
constexpr Fields kDeviceAndPlugin = {{ArgType::kStr, ArgType::kStr}, "%p %p"};
constexpr Fields kLatencies = {{ArgType::kStr, ArgType::kLong, ArgType::kLong}, "%p %lu %lu"};
constexpr Fields kTwoTexts = {{ArgType::kStr, ArgType::kStr}};
constexpr Fields kQErr = {{ArgType::kInt, ArgType::kStr, ArgType::kInt}, "%d %p %d"};
constexpr Fields kCopyRequest = {{ArgType::kStr, ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kStr,
                                  ArgType::kInt, ArgType::kInt, ArgType::kInt, ArgType::kStr},
                                 "%p %d %d %d %p %d %d %d %p"};

// Rows that share what is logged when their arguments can't be read.
constexpr auto kPathLimitRows = std::to_array<PostRow>({
    {"ryn.scsi.scsipath.limitreached", kProblem, kIntAndText,
     "@&!*@*@(amb.problem.scsi.scsipath.limitreached)The maximum number of supported paths of %d has been reached. "
     "Path %s could not be added."},
});
constexpr auto kDeviceLimitRows = std::to_array<PostRow>({
    {"ryn.scsi.device.limitreached", kProblem, kIntAndText,
     "@&!*@*@(amb.problem.scsi.device.limitreached)The maximum number of supported devices of %d has been reached. A "
     "device from plugin %s could not be created."},
});
constexpr auto kDeviceRows = std::to_array<PostRow>({
    {"ryn.scsi.device.state.permanentloss.pluggedback", kProblem, kDevice,
     "@&!*@*@(amb.problem.scsi.device.state.permanentloss.pluggedback)Device: %s has been plugged back in after being "
     "marked permanently inaccessible. No data consistency guarantees."},
    {"ryn.scsi.device.state.permanentloss.deviceonline", kClear, kDevice,
     "@&!*@*@(amb.clear.scsi.device.state.permanentloss.deviceonline)Device: %s, that was permanently inaccessible, "
     "is now online. No data consistency guarantees."},
    {"ryn.scsi.device.state.off", kProblem, kDevice,
     "@&!*@*@(amb.problem.scsi.device.state.off)Device: %s  has been turned off administratively"},
    {"ryn.scsi.device.state.on", kClear, kDevice,
     "@&!*@*@(amb.clear.scsi.device.state.on)Device: %s  has been turned on administratively"},
});
constexpr auto kOptionRows = std::to_array<PostRow>({
    {"ryn.scsi.device.nmp.satp.option.failed", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.scsi.device.nmp.satp.option.failed)Invalid config parameter: \"%s\" provided in the nmp "
     "satp claimrule, this setting was not applied while claiming the path %s"},
});
constexpr auto kCopyRows = std::to_array<PostRow>({
    {"ryn.scsi.device.invalid.xcopy.request", kProblem, kCopyRequest,
     "@&!*@*@(amb.problem.scsi.device.invalid.xcopy.request)Invalid XCOPY request for device %s. Host %#x, Device "
     "%#x, Plugin %#x, %s sense, sense.key = %#x, sense.asc = %#x, sense.ascq = %#x: %s"},
});
constexpr auto kOtherRows = std::to_array<PostRow>({
    {"ryn.scsi.unsupported.plugin.type", kProblem, kPluginType,
     "@&!*@*@(amb.problem.scsi.unsupported.plugin.type)Scsi Device Allocation not supported for plugin type %x"},
    {"ryn.scsi.apd.event.descriptor.alloc.failed", kProblem, kNone,
     "@&!*@*@(amb.problem.scsi.apd.event.descriptor.alloc.failed)No memory to allocate APD (All Paths Down) event "
     "subsystem"},
});

// Ids that share a handler; the first that matches is posted.
constexpr auto kQErrRows = std::to_array<PostRow>({
    {"ryn.scsi.device.io.qerr.change.config", kProblem, kQErr,
     "@&!*@*@(amb.problem.scsi.device.io.qerr.change.config)QErr set to 0x%x for device %s. This may cause unexpected "
     "behavior. The system is not configured to change the Qerr setting of device. The Qerr value supported by system "
     "is 0x%x. Please check the SCSI ChangeQErrSetting configuration value for AMB."},
    {"ryn.scsi.device.io.qerr.changed", kProblem, kQErr,
     "@&!*@*@(amb.problem.scsi.device.io.qerr.changed)QErr set to 0x%x for device %s. This may cause unexpected "
     "behavior. The device was originally configured to the supported QErr setting of 0x%x, but this has been changed "
     "and could not be reset."},
});
constexpr auto kPluginRows = std::to_array<PostRow>({
    {"ryn.scsi.device.io.bad.plugin.type", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.io.bad.plugin.type)Bad Plugin type for device %s, plugin %s"},
    {"ryn.scsi.device.io.inquiry.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.io.inquiry.failed)Failed to get standard inquiry for device %s from Plugin %s."},
    {"ryn.scsi.device.is.pseudo.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.is.pseudo.failed)Failed to verify if the device %s from plugin %s is a pseudo "
     "device"},
    {"ryn.scsi.device.is.ssd.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.is.ssd.failed)Failed to verify if the device %s from plugin %s is a Solid State "
     "Disk device"},
    {"ryn.scsi.device.is.local.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.is.local.failed)Failed to verify if the device %s from plugin %s is a local - "
     "not shared - device"},
    {"ryn.scsi.device.close.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.scsi.device.close.failed)Failed to close the device %s properly, plugin %s"},
});
constexpr auto kFilterRows = std::to_array<PostRow>({
    {"ryn.scsi.device.filter.attach.failed", kProblem, kDevice,
     "@&!*@*@(amb.problem.scsi.device.filter.attach.failed)Failed to attach filters to device '%s' during "
     "registration. Plugin load failed or the filter rules are incorrect."},
    {"ryn.scsi.device.detach.failed", kProblem, kDevice,
     "@&!*@*@(amb.problem.scsi.device.detach.failed)Detach failed for device :%s. Exceeded the number of devices that "
     "can be detached, please cleanup stale detach entries."},
});
constexpr auto kLatencyRows = std::to_array<PostRow>({
    {"ryn.scsi.device.io.latency.high", kProblem, kLatencies,
     "@&!*@*@(amb.problem.scsi.device.io.latency.high)Device %s performance has deteriorated. I/O latency increased "
     "from average value of %ld microseconds to %ld microseconds."},
    {"ryn.scsi.device.io.latency.improved", kClear, kLatencies,
     "@&!*@*@(amb.clear.scsi.device.io.latency.improved)Device %s performance has improved. I/O latency reduced from "
     "%ld microseconds to %ld microseconds."},
});

constexpr EventMessage kAtQuota = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.device.thinprov.atquota)Space utilization on thin-provisioned device %s exceeded "
    "configured threshold. Affected datastores (if any): %s."};
constexpr EventMessage kLossWithoutOpens = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.device.state.permanentloss.noopens)Permanently inaccessible device: %s has no more "
    "opens. It is now safe to unmount datastores (if any): %s and delete the device"};
constexpr EventMessage kLoss = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.device.state.permanentloss)Device: %s has been removed or is permanently inaccessible. "
    "Affected datastores (if any): %s."};
constexpr EventMessage kLossWithReservation = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.device.state.permanentloss.withreservationheld)Device: %s has been removed or is "
    "permanently inaccessible while holding a reservation. Affected datastores (if any): %s."};
constexpr EventMessage kUnsafePath = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.scsipath.badpath.unsafepe)Sanity check failed for path %s. Could not safely determine "
    "if the path is to a KVol PE. Path dropped."};
constexpr EventMessage kUnreachablePath = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.scsipath.badpath.unreachpe)Sanity check failed for path %s. The path is to a KVol PE, "
    "but it goes out of adapter %s which is not PE capable. Path dropped."};
constexpr EventMessage kTooManyErrors = {
    kProblem,
    "@&!*@*@(amb.problem.scsi.device.too.many.io.error)Too many errors observed for device %s errPercentage %hu"};
constexpr EventMessage kMessages[] = {kAtQuota,    kLossWithoutOpens, kLoss,         kLossWithReservation,
                                      kUnsafePath, kUnreachablePath,  kTooManyErrors};

constexpr auto kAllRows = JoinRows(kPathLimitRows, kDeviceLimitRows, kDeviceRows, kOptionRows, kCopyRows, kOtherRows,
                                   kQErrRows, kPluginRows, kFilterRows, kLatencyRows);
static_assert(kAllRows.size() == 22);
static_assert(UniqueIds(kAllRows));

constexpr PathAddRemoveIds kAddRemove = {"ryn.scsi.scsipath.add", "ryn.scsi.scsipath.remove"};
// Kept: without "ryn.", which Ryn_IsID puts in front.
constexpr char kTooManyErrorsId[] = "scsi.device.too.many.io.error";

StoragePaths &ScsiPaths() {
  static StoragePaths &paths = *new StoragePaths("apps/rynd/ryndScsiCorrelator", 1050);  // outlives its thread
  return paths;
}

void OnPowerOnReset(Observation *observation) {
  static PowerOnResets &resets = *new PowerOnResets;  // outlives its thread
  const char *path = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) return;
  resets.Count(path, WindowClockS());
}

void LogNoThinDeviceName(const char * /*id*/, uint32_t /*field*/, int status) {
  Log("Failed to get thin provisioned device name: %d\n", status);
}

void LogNoOption(const char * /*id*/, uint32_t field, int status) {
  if (field == 0) return Log("Failed to get NMP SATP options: %d\n", status);
  Log("Failed to get path name: %d\n", status);
}

void OnBadPath(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) return Log("FAIL: Received NULL rynID\n");
  const char *path = nullptr;
  int status = Ryn_GetStringArg(observation, 0, &path);
  if (status != 0) return Log("Failed to get path name: %d\n", status);
  if (Ryn_IsID(id, "ryn.scsi.scsipath.badpath.unsafepe")) return PostMessage<kUnsafePath>(path);
  if (!Ryn_IsID(id, "ryn.scsi.scsipath.badpath.unreachpe")) return Log("Unknown RYN ID: %s\n", id);
  const char *adapter = nullptr;
  status = Ryn_GetStringArg(observation, 1, &adapter);
  if (status != 0) return Log("Failed to get PE-incapable adapter name for path %s : %d\n", path, status);
  PostMessage<kUnreachablePath>(path, adapter);
}

void AddRows(HandlerTable *table) {
  AddPostRows<kPathLimitRows, LogNoPathLimit>(table);
  AddPostRows<kDeviceLimitRows, LogNoDeviceLimit>(table);
  AddPostRows<kDeviceRows, LogNoDeviceName>(table);
  AddPostRows<kOptionRows, LogNoOption>(table);
  AddPostRows<kCopyRows, LogNoParams>(table);
  AddPostRows<kOtherRows, LogNotCorrelated>(table);
  AddSharedRows<kQErrRows, LogNotCorrelated>(table);
  AddSharedRows<kPluginRows, LogNotCorrelated>(table);
  AddSharedRows<kFilterRows, LogNoParams>(table);
  AddSharedRows<kLatencyRows, LogNotCorrelated>(table);
}

}  // namespace

std::span<const PostRow> ScsiPostRows() {
  return kAllRows;
}

std::span<const EventMessage> ScsiMessages() {
  return kMessages;
}

HandlerTable ScsiHandlers() {
  HandlerTable table;
  AddRows(&table);
  table["ryn.scsi.scsipath.pathstate.deadver2"] = OnPathDown<ScsiPaths>;
  table["ryn.scsi.scsipath.pathstate.offver2"] = OnPathDown<ScsiPaths>;
  table["ryn.scsi.scsipath.pathstate.on"] = OnPathRestored<ScsiPaths>;
  table["ryn.scsi.scsipath.pathstate.standby"] = OnPathRestored<ScsiPaths>;
  table[kAddRemove.add] = OnPathAddRemove<ScsiPaths, kAddRemove>;
  table[kAddRemove.remove] = OnPathAddRemove<ScsiPaths, kAddRemove>;
  table["ryn.scsi.scsipath.por"] = OnPowerOnReset;
  table["ryn.scsi.scsipath.badpath.unsafepe"] = OnBadPath;
  table["ryn.scsi.scsipath.badpath.unreachpe"] = OnBadPath;
  table["ryn.scsi.device.thinprov.atquota"] = OnDeviceWithDatastores<kAtQuota, LogNoThinDeviceName>;
  table["ryn.scsi.device.state.permanentloss.noopens"] = OnDeviceWithDatastores<kLossWithoutOpens, LogNoDeviceName>;
  table["ryn.scsi.device.state.permanentloss"] = OnDeviceWithDatastores<kLoss, LogNoDeviceName>;
  table["ryn.scsi.device.state.permanentloss.withreservationheld"] =
      OnDeviceWithDatastores<kLossWithReservation, LogNoDeviceName>;
  table["ryn.scsi.device.too.many.io.error"] = OnTooManyErrors<kTooManyErrors, kTooManyErrorsId>;
  return table;
}

void RyndScsiCorrelator() {
  RunCorrelator("scsi", "scsi", LogNoCorrelator, ScsiHandlers());
}

}  // namespace rynd
