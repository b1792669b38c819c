// The correlator of the pluggable storage stack: reports what that stack observes about devices and paths. It is built
// as the SCSI correlator is and shares none of its state; its agent's thread.
#include "core/agents/runner.h"
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

// Rows that share what is logged when their arguments can't be read.
constexpr auto kPathLimitRows = std::to_array<PostRow>({
    {"ryn.psastor.psastorpath.limitreached", kProblem, kIntAndText,
     "@&!*@*@(amb.problem.psastor.psastorpath.limitreached)The maximum number of supported paths of %d has been "
     "reached. Path %s could not be added."},
});
constexpr auto kDeviceLimitRows = std::to_array<PostRow>({
    {"ryn.psastor.device.limitreached", kProblem, kIntAndText,
     "@&!*@*@(amb.problem.psastor.device.limitreached)The maximum number of supported devices of %d has been reached. "
     "A device from plugin %s could not be created."},
});
constexpr auto kDeviceRows = std::to_array<PostRow>({
    {"ryn.psastor.device.state.permanentloss.pluggedback", kProblem, kDevice,
     "@&!*@*@(amb.problem.psastor.device.state.permanentloss.pluggedback)Device: %s has been plugged back in after "
     "being marked permanently inaccessible. No data consistency guarantees."},
    {"ryn.psastor.device.state.permanentloss.deviceonline", kClear, kDevice,
     "@&!*@*@(amb.clear.psastor.device.state.permanentloss.deviceonline)Device: %s, that was permanently "
     "inaccessible, is now online. No data consistency guarantees."},
    {"ryn.psastor.device.state.off", kProblem, kDevice,
     "@&!*@*@(amb.problem.psastor.device.state.off)Device: %s  has been turned off administratively"},
    {"ryn.psastor.device.state.on", kClear, kDevice,
     "@&!*@*@(amb.clear.psastor.device.state.on)Device: %s  has been turned on administratively"},
});
constexpr auto kOtherRows = std::to_array<PostRow>({
    {"ryn.psastor.unsupported.plugin.type", kProblem, kPluginType,
     "@&!*@*@(amb.problem.psastor.unsupported.plugin.type)Storage Device Allocation not supported for plugin type %x"},
    {"ryn.psastor.apd.event.descriptor.alloc.failed", kProblem, kNone,
     "@&!*@*@(amb.problem.psastor.apd.event.descriptor.alloc.failed)No memory to allocate APD (All Paths Down) event "
     "subsystem"},
});

// Ids that share a handler; the first that matches is posted.
constexpr auto kPluginRows = std::to_array<PostRow>({
    {"ryn.psastor.device.io.bad.plugin.type", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.psastor.device.io.bad.plugin.type)Bad Plugin type for device %s, plugin %s"},
    {"ryn.psastor.device.is.pseudo.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.psastor.device.is.pseudo.failed)Failed to verify if the device %s from plugin %s is a "
     "pseudo device"},
    {"ryn.psastor.device.is.ssd.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.psastor.device.is.ssd.failed)Failed to verify if the device %s from plugin %s is a Solid "
     "State Disk device"},
    {"ryn.psastor.device.is.local.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.psastor.device.is.local.failed)Failed to verify if the device %s from plugin %s is a local "
     "- not shared - device"},
    {"ryn.psastor.device.close.failed", kProblem, kDeviceAndPlugin,
     "@&!*@*@(amb.problem.psastor.device.close.failed)Failed to close the device %s properly, plugin %s"},
});
constexpr auto kLatencyRows = std::to_array<PostRow>({
    {"ryn.psastor.device.io.latency.high", kProblem, kLatencies,
     "@&!*@*@(amb.problem.psastor.device.io.latency.high)Device %s performance has deteriorated. I/O latency "
     "increased from average value of %ld microseconds to %ld microseconds."},
    {"ryn.psastor.device.io.latency.improved", kClear, kLatencies,
     "@&!*@*@(amb.clear.psastor.device.io.latency.improved)Device %s performance has improved. I/O latency reduced "
     "from %ld microseconds to %ld microseconds."},
});

constexpr EventMessage kLossWithoutOpens = {
    kProblem,
    "@&!*@*@(amb.problem.psastor.device.state.permanentloss.noopens)Permanently inaccessible device: %s has no more "
    "opens. It is now safe to unmount datastores (if any): %s and delete the device"};
constexpr EventMessage kLoss = {
    kProblem,
    "@&!*@*@(amb.problem.psastor.device.state.permanentloss)Device: %s has been removed or is permanently "
    "inaccessible. Affected datastores (if any): %s."};
constexpr EventMessage kLossWithReservation = {
    kProblem,
    "@&!*@*@(amb.problem.psastor.device.state.permanentloss.withreservationheld)Device: %s has been removed or is "
    "permanently inaccessible while holding a reservation. Affected datastores (if any): %s."};
constexpr EventMessage kTooManyErrors = {
    kProblem,
    "@&!*@*@(amb.problem.psastor.device.too.many.io.error)Too many errors observed for device %s errPercentage %hu"};
constexpr EventMessage kMessages[] = {kLossWithoutOpens, kLoss, kLossWithReservation, kTooManyErrors};

constexpr auto kAllRows =
    JoinRows(kPathLimitRows, kDeviceLimitRows, kDeviceRows, kOtherRows, kPluginRows, kLatencyRows);
static_assert(kAllRows.size() == 15);
static_assert(UniqueIds(kAllRows));

constexpr PathAddRemoveIds kAddRemove = {"ryn.psastor.psastorpath.add", "ryn.psastor.psastorpath.remove"};
// Kept: without "ryn.", which Ryn_IsID puts in front.
constexpr char kTooManyErrorsId[] = "psastor.device.too.many.io.error";

StoragePaths &PsaPaths() {
  static StoragePaths &paths = *new StoragePaths("apps/rynd/ryndPsaStorCorrelator", 1061);  // outlives its thread
  return paths;
}

void AddRows(HandlerTable *table) {
  AddPostRows<kPathLimitRows, LogNoPathLimit>(table);
  AddPostRows<kDeviceLimitRows, LogNoDeviceLimit>(table);
  AddPostRows<kDeviceRows, LogNoDeviceName>(table);
  AddPostRows<kOtherRows, LogNotCorrelated>(table);
  AddSharedRows<kPluginRows, LogNotCorrelated>(table);
  AddSharedRows<kLatencyRows, LogNotCorrelated>(table);
}

}  // namespace

std::span<const PostRow> PsaStorPostRows() {
  return kAllRows;
}

std::span<const EventMessage> PsaStorMessages() {
  return kMessages;
}

HandlerTable PsaStorHandlers() {
  HandlerTable table;
  AddRows(&table);
  table["ryn.psastor.psastorpath.pathstate.dead"] = OnPathDown<PsaPaths>;
  table["ryn.psastor.psastorpath.pathstate.off"] = OnPathDown<PsaPaths>;
  table["ryn.psastor.psastorpath.pathstate.on"] = OnPathRestored<PsaPaths>;
  table["ryn.psastor.psastorpath.pathstate.standby"] = OnPathRestored<PsaPaths>;
  table[kAddRemove.add] = OnPathAddRemove<PsaPaths, kAddRemove>;
  table[kAddRemove.remove] = OnPathAddRemove<PsaPaths, kAddRemove>;
  table["ryn.psastor.device.state.permanentloss.noopens"] = OnDeviceWithDatastores<kLossWithoutOpens, LogNoDeviceName>;
  table["ryn.psastor.device.state.permanentloss"] = OnDeviceWithDatastores<kLoss, LogNoDeviceName>;
  table["ryn.psastor.device.state.permanentloss.withreservationheld"] =
      OnDeviceWithDatastores<kLossWithReservation, LogNoDeviceName>;
  table["ryn.psastor.device.too.many.io.error"] = OnTooManyErrors<kTooManyErrors, kTooManyErrorsId>;
  return table;
}

void RyndPsaStorCorrelator() {
  RunCorrelator("psastor", "psastor", LogNoCorrelator, PsaStorHandlers());
}

}  // namespace rynd
