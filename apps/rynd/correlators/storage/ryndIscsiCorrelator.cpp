// The iSCSI correlator: reports failed connections, discoveries and logins of the software initiator. It keeps no
// state.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr Fields kConnectionAndDevice = {{ArgType::kInt, ArgType::kStr}, "%d %p"};
constexpr Fields kOneText = {{ArgType::kStr}, "%p"};
constexpr Fields kTwoTexts = {{ArgType::kStr, ArgType::kStr}, "%p %p"};
constexpr Fields kFourTexts = {{ArgType::kStr, ArgType::kStr, ArgType::kStr, ArgType::kStr}, "%p %p %p %p"};

// Kept: "iSns", and no blank behind "retries.".
constexpr auto kIscsiRows = std::to_array<PostRow>({
    {"ryn.iscsi.connection.error.cmd.sn.max", kProblem, kConnectionAndDevice,
     "@&!*@*@(amb.problem.storage.iscsi.connection.error.cmd.sn.max)iSCSI connection %d on device %s is being reset "
     "because command window is closed."},
    {"ryn.iscsi.isns.discovery.error",
     kProblem,
     kFourTexts,
     "@&!*@*@(amb.problem.storage.iscsi.isns.discovery.error)iSns discovery to %s on %s failed. (%s : %s).",
     {1, 0, 2, 3}},
    {"ryn.iscsi.discovery.connect.error",
     kProblem,
     kTwoTexts,
     "@&!*@*@(amb.problem.storage.iscsi.discovery.connect.error)iSCSI discovery to %s on %s failed. The iSCSI "
     "Initiator could not establish a network connection to the discovery address.",
     {1, 0}},
    {"ryn.iscsi.target.permanently.removed", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.storage.iscsi.target.permanently.removed)The target %s was permanently removed from %s."},
    {"ryn.iscsi.target.connect.error",
     kProblem,
     kTwoTexts,
     "@&!*@*@(amb.problem.storage.iscsi.target.connect.error)Login to iSCSI target %s on %s failed. The iSCSI "
     "initiator could not establish a network connection to the target.",
     {1, 0}},
    {"ryn.iscsi.session.recovery.timeout", kProblem, kOneText,
     "@&!*@*@(amb.problem.storage.iscsi.session.recovery.timeout)Unable to connect to iSCSI target after multiple "
     "retries.The iSCSI path %s is down."},
});
static_assert(kIscsiRows.size() == 6);
static_assert(UniqueIds(kIscsiRows));

constexpr EventMessage kDiscoveryLoginError = {
    kProblem,
    "@&!*@*@(amb.problem.storage.iscsi.discovery.login.error)iSCSI discovery to %s on %s failed. The Discovery target "
    "returned login error: %s"};
constexpr EventMessage kTargetLoginError = {
    kProblem,
    "@&!*@*@(amb.problem.storage.iscsi.target.login.error)Login to iSCSI target %s on %s failed. Target returned "
    "login error: %s"};
constexpr EventMessage kIscsiMessages[] = {kDiscoveryLoginError, kTargetLoginError};

/// A login response's status, by the class and detail of RFC 3720.
struct LoginStatus {
  uint8_t statusClass, detail;
  const char *text;
};
constexpr auto kLoginStatuses = std::to_array<LoginStatus>({
    {0x00, 0x00, "Login is proceeding okay."},
    {0x01, 0x01, "Requested ITN has moved temporarily to the address provided."},
    {0x01, 0x02, "Requested ITN has moved permanently to the address provided."},
    {0x02, 0x00, "Miscellaneous iSCSI initiator errors."},
    {0x02, 0x01, "Initiator could not be successfully authenticated."},
    {0x02, 0x02, "Initiator is not allowed access to the given target."},
    {0x02, 0x03, "Requested ITN does not exist at this address."},
    {0x02, 0x04, "Requested ITN has been removed and no forwarding address is provided."},
    {0x02, 0x05, "Requested iSCSI version range is not supported by the target."},
    {0x02, 0x06, "No more connections can be accepted on this Session ID (SSID)."},
    {0x02, 0x07, "Missing parameters (e.g., iSCSI initiator and/or target name)."},
    {0x02, 0x08, "Target does not support session spanning to this connection (address)."},
    {0x02, 0x09, "Target does not support this type of session or not from this initiator."},
    {0x02, 0x0a, "Attempt to add a connection to a nonexistent session."},
    {0x02, 0x0b, "Invalid request type during login."},
    {0x03, 0x00, "Target hardware or software error."},
    {0x03, 0x01, "iSCSI service or target is not currently operational."},
    {0x03, 0x02, "Target has insufficient session, connection or other resources."},
});
static_assert(kLoginStatuses.size() == 18);

/// The class is in bits 8 to 15 of `status`, the detail in bits 0 to 7.
const char *LoginStatusText(uint32_t status) {
  for (const LoginStatus &row : kLoginStatuses) {
    if (row.statusClass == ((status >> 8) & 0xff) && row.detail == (status & 0xff)) return row.text;
  }
  return "Unknown login response received.";
}

template <const EventMessage &kMessage>
void OnLoginError(Observation *observation) {
  const char *adapter = nullptr;
  const char *target = nullptr;
  uint32_t status = 0;
  if (Ryn_GetArgs(observation, "%p %p %u", &adapter, &target, &status) != 0) return;
  PostMessage<kMessage>(target, adapter, LoginStatusText(status));
}

}  // namespace

std::span<const PostRow> IscsiPostRows() {
  return kIscsiRows;
}

std::span<const EventMessage> IscsiMessages() {
  return kIscsiMessages;
}

HandlerTable IscsiHandlers() {
  HandlerTable table;
  AddPostRows<kIscsiRows>(&table);
  // Known, and of no interest to agents.
  table["ryn.iscsi.connection.started"] = IgnoreObservation;
  table["ryn.iscsi.connection.stopped"] = IgnoreObservation;
  table["ryn.iscsi.connection.error"] = IgnoreObservation;
  table["ryn.iscsi.target.async.event"] = IgnoreObservation;
  table["ryn.iscsi.discovery.login.error"] = OnLoginError<kDiscoveryLoginError>;
  table["ryn.iscsi.target.login.error"] = OnLoginError<kTargetLoginError>;
  return table;
}

void RyndIscsiCorrelator() {
  RunCorrelator("iscsi", "iscsi", IgnoreObservation, IscsiHandlers());
}

}  // namespace rynd
