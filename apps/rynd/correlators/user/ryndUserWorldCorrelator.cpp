// The userworld correlator: crashes of user-level programs, counted by name, and what becomes of the host's execution
// policies. Its handlers run on its agent's thread.
#include <cstring>

#include "base/immortal.h"
#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/reason.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/user/crashCounter.h"
#include "correlators/user/execReports.h"
#include "correlators/user/userCorrelators.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

// Handlers may outlive main() on a thread that could not be joined: nothing here is ever destroyed.
base::Immortal<CrashCounter> coreDumpCrashesKept, dumpFailedCrashesKept;
base::Immortal<ExecReports> execReportsKept;
CrashCounter &coreDumpCrashes = *coreDumpCrashesKept;
CrashCounter &dumpFailedCrashes = *dumpFailedCrashesKept;
ExecReports &execReports = *execReportsKept;

constexpr Fields kLevelOfDomain = {{ArgType::kStr, ArgType::kInt, ArgType::kStr, ArgType::kInt}, "%p %d %p %u"};
constexpr Fields kLevel = {{ArgType::kStr, ArgType::kInt}, "%p %d"};

constexpr auto kUserWorldRows = std::to_array<PostRow>({
    {"ryn.uw.exec.installonly.disabled",
     kAudit,
     {},
     "@&!*@*@(amb.audit.uw.security.User.ExecInstalledOnly.disabled)ExecInstalledOnly has been disabled. This allows "
     "the execution of non-installed binaries on the host. Unknown content can cause malware attacks similar to "
     "Ransomware."},
    {"ryn.uw.exec.installonly.enabled",
     kAudit,
     {},
     "@&!*@*@(amb.audit.uw.security.User.ExecInstalledOnly.enabled)ExecInstalledOnly has been enabled. This prevents "
     "the execution of non-installed binaries on the host."},
    {"ryn.uw.secpolicy.domain.level.changed",
     kAudit,
     kLevelOfDomain,
     "@&!*@*@(amb.audit.uw.secpolicy.domain.level.changed)The enforcement level for security domain %s has been "
     "changed "
     "to %s. The enforcement level must always be set to enforcing.",
     {2, 0}},
    {"ryn.uw.secpolicy.alldomains.level.changed", kAudit, kLevel,
     "@&!*@*@(amb.audit.uw.secpolicy.alldomains.level.changed)The enforcement level for all security domains has been "
     "changed to %s. The enforcement level must always be set to enforcing."},
});
static_assert(kUserWorldRows.size() == 4);
static_assert(UniqueIds(kUserWorldRows));

/// Places in kMessages.
enum Message : size_t {
  kMgmtdDumped,
  kMgmtdDumpedEncrypted,
  kFleetdDumped,
  kFleetdDumpedEncrypted,
  kDumped,
  kDumpedEncrypted,
  kDumpFailed,
  kExecViolation,
  kExecWarning,
  kMessageCount
};

constexpr auto kMessages = std::to_array<EventMessage>({
    {kProblem,
     "@&!*@*@(amb.problem.mgmtd.core.dumped)%s crashed (%d time(s) so far) and a core file may have been created at "
     "%s. "
     "This may have caused connections to the host to be dropped."},
    {kProblem,
     "@&!*@*@(amb.problem.mgmtd.core.dumped.encrypted)%s crashed (%d time(s) so far) and an encrypted core file using "
     "keyId %s may have been created at %s. This may have caused connections to the host to be dropped."},
    {kProblem,
     "@&!*@*@(amb.problem.fleetd.core.dumped)%s crashed (%d time(s) so far) and a core file may have been created at "
     "%s. This may have caused connections to the host to be dropped."},
    {kProblem,
     "@&!*@*@(amb.problem.fleetd.core.dumped.encrypted)%s crashed (%d time(s) so far) and an encrypted core file using "
     "keyId %s may have been created at %s. This may have caused connections to the host to be dropped."},
    {kProblem,
     "@&!*@*@(amb.problem.application.core.dumped)An application (%s) running on Ambi host has crashed (%d time(s) so "
     "far). A core file may have been created at %s."},
    {kProblem,
     "@&!*@*@(amb.problem.application.core.dumped.encrypted)An application (%s) running on Ambi host has crashed (%d "
     "time(s) so far). An encrypted core file using keyId %s may have been created at %s."},
    {kProblem,
     "@&!*@*@(amb.problem.application.core.dumpFailed)An application (%s) running on Ambi host has crashed (%d time(s) "
     "so far), but core dump creation failed."},
    {kAudit, "@&!*@*@(amb.audit.uw.security.execInstalledOnly.violation)Execution of non-installed file prevented: %s"},
    {kAudit, "@&!*@*@(amb.audit.uw.security.execInstalledOnly.warning)Execution of non-installed file: %s"},
});
static_assert(kMessages.size() == kMessageCount);

/// One crash as the kernel reports it.
struct Crash {
  const char *name = nullptr;
  int32_t reportedCount = 0;  ///< not used: the count that is told is the daemon's own
  const char *third = nullptr;
};

bool ReadCrash(const Observation *observation, Crash *crash) {
  return Ryn_GetArgs(observation, "%p %d %p", &crash->name, &crash->reportedCount, &crash->third) == 0;
}

int32_t CountCrash(const Crash &crash, CrashCounter *counter) {
  return counter->Count(crash.name == nullptr ? "" : crash.name, WallClockS());
}

template <size_t kPlain, size_t kEncrypted>
void PostCoreDump(const Crash &crash, int32_t count, bool encrypted, const char *keyId) {
  if (encrypted) {
    PostMessage<kMessages, kEncrypted>(crash.name, count, keyId, crash.third);
  } else {
    PostMessage<kMessages, kPlain>(crash.name, count, crash.third);
  }
}

void OnCoreDumped(Observation *observation) {
  Crash crash;
  if (!ReadCrash(observation, &crash)) return;
  // The key id alone says whether the core is encrypted, whichever of the two ids came.
  const char *keyId = nullptr;
  const int status = Ryn_GetStringArg(observation, 3, &keyId);
  if (status != 0 && status != kRynNoArgument) return;
  const bool encrypted = status == 0;
  const int32_t count = CountCrash(crash, &coreDumpCrashes);
  const auto nameHas = [&](const char *part) {
    return crash.name != nullptr && std::strstr(crash.name, part) != nullptr;
  };
  if (nameHas("mgmtd")) return PostCoreDump<kMgmtdDumped, kMgmtdDumpedEncrypted>(crash, count, encrypted, keyId);
  if (nameHas("fleetd")) return PostCoreDump<kFleetdDumped, kFleetdDumpedEncrypted>(crash, count, encrypted, keyId);
  PostCoreDump<kDumped, kDumpedEncrypted>(crash, count, encrypted, keyId);
}

void OnCoreDumpFailed(Observation *observation) {
  Crash crash;
  if (!ReadCrash(observation, &crash)) return;
  PostMessage<kMessages, kDumpFailed>(crash.name, CountCrash(crash, &dumpFailedCrashes));
}

template <size_t kMessage>
void OnExecInstalledOnlyReport(Observation *observation) {
  const char *path = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) return;
  const char *report = execReports.Report(path);
  if (report == nullptr) return Reason("this file was reported already, or as many as are reported were");
  PostMessage<kMessages, kMessage>(report);
}

}  // namespace

std::span<const PostRow> UserWorldPostRows() {
  return kUserWorldRows;
}

std::span<const EventMessage> UserWorldMessages() {
  return kMessages;
}

HandlerTable UserWorldHandlers() {
  HandlerTable table;
  table["ryn.uw.core.dumped"] = OnCoreDumped;
  table["ryn.uw.core.dumped.encrypted"] = OnCoreDumped;
  table["ryn.uw.core.dumpFailed"] = OnCoreDumpFailed;
  table["ryn.uw.exec.installonly.violation"] = OnExecInstalledOnlyReport<kExecViolation>;
  table["ryn.uw.exec.installonly.warning"] = OnExecInstalledOnlyReport<kExecWarning>;
  AddPostRows<kUserWorldRows>(&table);
  return table;
}

void RyndUserWorldCorrelator() {
  RunCorrelator("UserWorld", "uw", LogNoCorrelator, UserWorldHandlers());
}

}  // namespace rynd
