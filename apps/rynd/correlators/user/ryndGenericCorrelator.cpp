// The external-components correlator: passes on what software that is no part of the system reports about itself, from
// the kernel or from user programs. It keeps no state; its handlers run on its agent's thread.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/user/userCorrelators.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

enum Message : size_t { kWarning, kError, kInformation, kMessageCount };

constexpr auto kMessages = std::to_array<EventMessage>({
    {kProblem,
     "@&!*@*@(amb.problem.3rdParty.warning)A 3rd party component, %s, running on Ambi has reported a warning related "
     "to "
     "a problem. Please follow the knowledge base link (%s) to see the steps to remedy the problem as reported by %s. "
     "The message reported is: %s."},
    {kProblem,
     "@&!*@*@(amb.problem.3rdParty.error)A 3rd party component, %s, running on Ambi has reported an error. Please "
     "follow the knowledge base link (%s) to see the steps to remedy the problem as reported by %s. The message "
     "reported is: %s."},
    {kProblem,
     "@&!*@*@(amb.problem.3rdParty.information)A 3rd party component, %s, running on Ambi has reported an "
     "informational "
     "event. If needed, please follow the knowledge base link (%s) to see the steps to remedythe problem as reported "
     "by "
     "%s. The message reported is: %s."},
});
static_assert(kMessages.size() == kMessageCount);

/// What a component says of itself.
struct Report {
  const char *component = nullptr;
  const char *link = nullptr;
  const char *message = nullptr;
};

/// 0, the status of the argument that can't be read, or all bits set when one is a null string.
int ReadReport(const Observation *observation, Report *report) {
  const int status = Ryn_GetArgs(observation, "%p %p %p", &report->component, &report->link, &report->message);
  if (status != 0) return status;
  return report->component == nullptr || report->link == nullptr || report->message == nullptr ? ~0 : 0;
}

template <size_t kMessage>
void OnReport(Observation *observation) {
  Report report;
  if (ReadReport(observation, &report) != 0) return;
  PostMessage<kMessages, kMessage>(report.component, report.link, report.component, report.message);
}

}  // namespace

std::span<const EventMessage> GenericMessages() {
  return kMessages;
}

HandlerTable GenericHandlers() {
  HandlerTable table;
  table["ryn.external.warning"] = OnReport<kWarning>;
  table["ryn.external.error"] = OnReport<kError>;
  table["ryn.external.info"] = OnReport<kInformation>;
  table["ryn.user.external.warning"] = OnReport<kWarning>;
  table["ryn.user.external.error"] = OnReport<kError>;
  table["ryn.user.external.info"] = OnReport<kInformation>;
  return table;
}

void RyndGenericCorrelator() {
  RunCorrelatorFiltered("Generic", {"user", "external"}, {}, PrintObservation, GenericHandlers());
}

}  // namespace rynd
