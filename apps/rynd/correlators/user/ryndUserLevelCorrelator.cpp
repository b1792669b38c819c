// The user-level correlator: announces that the host reboots or powers off, and records why. Its handlers run on its
// agent's thread.
#include <array>
#include <cctype>
#include <cstring>
#include <utility>

#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/reason.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/user/rebootReason.h"
#include "correlators/user/userCorrelators.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

constexpr const char *kReboot = "REBOOT";
constexpr const char *kPowerOff = "POWEROFF";
constexpr const char *kUnknownUser = "UNKNOWN_USER";
constexpr const char *kDontReplicate = "DONT_REPLICATE";

/// An announcement with its reason in argument 0 and its user in argument 1.
struct AnnouncedRow {
  const char *id;
  EventMessage message;   ///< shows the reason, the user and, when it is read, the subsystem
  const char *type;       ///< recorded
  const char *subsystem;  ///< recorded; null: argument 2
};

constexpr auto kAnnounced = std::to_array<AnnouncedRow>({
    {"ryn.user.subsystem.host.reboot.reason",
     {kAudit,
      "@&!*@*@(amb.audit.subsystem.host.reboot.reason)The host is being rebooted. Reason for reboot: %s. User: %s. "
      "Subsystem: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for "
      "more information."},
     kReboot,
     nullptr},
    {"ryn.user.subsystem.host.poweroff.reason",
     {kAudit,
      "@&!*@*@(amb.audit.subsystem.host.poweroff.reason)The host is being powered off. Reason for power off: %s. User: "
      "%s. Subsystem: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link "
      "for more information."},
     kPowerOff,
     nullptr},
    {"ryn.user.ambcli.host.reboot.reason",
     {kAudit,
      "@&!*@*@(amb.audit.ambcli.host.reboot.reason)The host is being rebooted through ambcli. Reason for reboot: %s. "
      "User: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for more "
      "information."},
     kReboot,
     "ambcli"},
    {"ryn.user.ambcli.host.poweroff.reason",
     {kAudit,
      "@&!*@*@(amb.audit.ambcli.host.poweroff.reason)The host is being powered off through ambcli. Reason for power "
      "off: %s. User: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link "
      "for more information."},
     kPowerOff,
     "ambcli"},
    {"ryn.user.mgmtd.host.reboot.reason",
     {kAudit,
      "@&!*@*@(amb.audit.mgmtd.host.reboot.reason)The host is being rebooted through mgmtd. Reason for reboot: %s. "
      "User: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for more "
      "information."},
     kReboot,
     kDontReplicate},
    {"ryn.user.mgmtd.host.poweroff.reason",
     {kAudit,
      "@&!*@*@(amb.audit.mgmtd.host.poweroff.reason)The host is being powered off through mgmtd. Reason for power off: "
      "%s. User: %s. Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for "
      "more information."},
     kPowerOff,
     kDontReplicate},
});
static_assert(kAnnounced.size() == 6);

/// An announcement from a console, which brings no arguments.
struct ConsoleRow {
  const char *id;
  EventMessage message;
  const char *type;
  const char *reason;  ///< recorded
  bool overEarlier;    ///< record it also when there is a reason already
};

constexpr auto kConsole = std::to_array<ConsoleRow>({
    {"ryn.user.dcui.reboot.host",
     {kAudit,
      "@&!*@*@(amb.audit.dcui.host.reboot)The host is being rebooted through Direct Console User Interface (DCUI). "
      "Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for more "
      "information."},
     kReboot,
     "The host is being rebooted through Direct Console User Interface (DCUI).",
     true},
    {"ryn.user.dcui.shutdown.host",
     {kAudit,
      "@&!*@*@(amb.audit.dcui.host.shutdown)The host is being shutdown through Direct Console User Interface (DCUI). "
      "Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for more "
      "information."},
     kPowerOff,
     "The host is being shutdown through Direct Console User Interface (DCUI).",
     true},
    {"ryn.user.host.stop.reboot",
     {kAudit, "@&!*@*@(amb.audit.host.stop.reboot)Host is rebooting."},
     kReboot,
     "The host is being rebooted through Shell Console User Interface.",
     false},
    {"ryn.user.host.stop.shutdown",
     {kAudit, "@&!*@*@(amb.audit.host.stop.shutdown)Host is shutting down."},
     kPowerOff,
     "The host is being powered off through Shell Console User Interface.",
     false},
});
static_assert(kConsole.size() == 4);

constexpr std::array<EventMessage, kAnnounced.size() + kConsole.size()> kMessages =
    []<size_t... kA, size_t... kC>(std::index_sequence<kA...>, std::index_sequence<kC...>) {
  return std::array<EventMessage, sizeof...(kA) + sizeof...(kC)>{kAnnounced[kA].message..., kConsole[kC].message...};
}
(std::make_index_sequence<kAnnounced.size()>(), std::make_index_sequence<kConsole.size()>());

/// The text behind the first colon of argument 0 and the blanks that follow it, or null when there is no colon.
const char *ReasonText(const Observation *observation) {
  const char *text = nullptr;
  if (Ryn_GetStringArg(observation, 0, &text) != 0 || text == nullptr) return nullptr;
  const char *reason = std::strchr(text, ':');
  if (reason == nullptr) return nullptr;
  do {
    ++reason;
  } while (std::isspace(static_cast<unsigned char>(*reason)) != 0);
  return reason;
}

template <size_t kRow>
void OnAnnounced(Observation *observation) {
  static constexpr const AnnouncedRow &row = kAnnounced[kRow];
  const char *reason = ReasonText(observation);
  if (reason == nullptr) return Reason("argument 1 is no text with a colon in front of the reason");
  // Kept: only a negative status stops the handler; what was not read is an empty text.
  const char *user = "";
  if (Ryn_GetStringArg(observation, 1, &user) < 0) return;
  const char *subsystem = row.subsystem == nullptr ? "" : row.subsystem;
  if constexpr (row.subsystem == nullptr) {
    if (Ryn_GetStringArg(observation, 2, &subsystem) < 0) return;
    PostMessage<kMessages, kRow>(reason, user, subsystem);
  } else {
    PostMessage<kMessages, kRow>(reason, user);
  }
  const bool isKnown = user != nullptr && *user != '\0';
  RecordRebootReason(
      {row.type, isKnown ? user : kUnknownUser, subsystem, RebootTimestamp(WallClockS()).c_str(), reason});
}

template <size_t kRow>
void OnConsole(Observation * /*observation*/) {
  static constexpr const ConsoleRow &row = kConsole[kRow];
  PostMessage<kMessages, kAnnounced.size() + kRow>();
  if (!row.overEarlier && RebootReasonRecorded() != 0) return Reason("a reason has been recorded already");
  RecordRebootReason({row.type, kUnknownUser, kDontReplicate, RebootTimestamp(WallClockS()).c_str(), row.reason});
}

template <size_t... kA, size_t... kC>
void AddHandlers(HandlerTable *table, std::index_sequence<kA...>, std::index_sequence<kC...>) {
  (((*table)[kAnnounced[kA].id] = OnAnnounced<kA>), ...);
  (((*table)[kConsole[kC].id] = OnConsole<kC>), ...);
}

}  // namespace

std::span<const EventMessage> UserLevelMessages() {
  return kMessages;
}

HandlerTable UserLevelHandlers() {
  HandlerTable table;
  AddHandlers(&table, std::make_index_sequence<kAnnounced.size()>(), std::make_index_sequence<kConsole.size()>());
  return table;
}

void RyndUserLevelCorrelator() {
  RunCorrelator("UserLevel", "user", IgnoreObservation, UserLevelHandlers());
}

}  // namespace rynd
