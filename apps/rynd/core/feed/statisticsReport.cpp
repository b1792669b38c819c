#include "core/feed/statisticsReport.h"

#include <unistd.h>

#include <atomic>
#include <cstddef>

#include "core/basics/clock.h"
#include "core/basics/jsonText.h"
#include "core/basics/statistics.h"
#include "platform/hsi.h"
#include "platform/ryn.h"
#include "platform/statistics.h"

namespace rynd {
namespace {

std::atomic<uint64_t> startedUs = 0;
std::atomic<uint64_t> agentsWanted = 0;

/// Records, bytes, resets, and bad records by reason.
void AppendContext(JsonScope *list, uint32_t id) {
  RynContextStatistics context{};
  RynLib_GetContextStatistics(id, &context);
  JsonScope object(list->Next().Out(), '{');
  std::string name = "user";
  if (id != kRynUserContext) name = (id < 10 ? "kernel-0" : "kernel-") + std::to_string(id);
  object.Text("name", name);
  object.Number("records", context.records);
  object.Number("bytes", context.bytes);
  object.Number("resets", context.resets);
  object.Number("resetRecords", context.resetRecords);
  JsonScope reasons(object.Key("discarded").Out(), '{');
  for (size_t i = 0; i < context.discarded.size(); ++i) {
    const char *reason = RynLib_DiscardReason(i);
    if (context.discarded[i] == 0 || reason == nullptr) continue;
    AppendJsonText(reasons.Next().Out(), reason);
    *reasons.Out() += ':' + std::to_string(context.discarded[i]);
  }
  reasons.Close();
  object.Close();
}

void AppendContexts(JsonScope *report) {
  JsonScope list(report->Key("contexts").Out(), '[');
  for (uint32_t id = 0; id <= kRynUserContext; ++id) AppendContext(&list, id);
  list.Close();
  RynUserStatistics user{};
  RynLib_GetUserStatistics(&user);
  JsonScope connections(report->Key("connections").Out(), '{');
  connections.Number("now", user.now);
  connections.Number("accepted", user.accepted);
  connections.Number("refused", user.refused);
  connections.Close();
  JsonScope records(report->Key("records").Out(), '{');
  records.Number("matched", Stats().matched.Get());
  records.Number("unmatched", Stats().unmatched.Get());
  records.Number("unsound", Stats().unsound.Get());
  records.Close();
}

void AppendAgents(JsonScope *report) {
  report->Number("agentsWanted", agentsWanted);
  JsonScope list(report->Key("agents").Out(), '[');
  for (const AgentStatistics *agent : AllAgentStatistics()) {
    JsonScope object(list.Next().Out(), '{');
    object.Text("name", agent->name);
    object.Flag("alive", agent->isAlive);
    const uint64_t readBytes = agent->receivedBytes.Get();  // first: never more than is given
    object.Number("received", agent->received.Get());
    object.Number("handled", agent->handled.Get());
    object.Number("unhandled", agent->unhandled.Get());
    object.Number("exceptions", agent->exceptions.Get());
    object.Number("posted", agent->posted.Get());
    object.Number("dropped", agent->dropped.Get());
    object.Number("waitingBytes", agent->givenBytes.Get() - readBytes);
    object.Number("busyUs", agent->busyNs.Get() / 1000);
    object.Close();
  }
  list.Close();
}

void AppendEvents(JsonScope *report) {
  const EventStatistics &events = Stats().events;
  const uint64_t nowUs = WallClockUs();
  const auto age = [nowUs](uint64_t sinceUs) { return sinceUs == 0 || sinceUs > nowUs ? 0 : nowUs - sinceUs; };
  JsonScope object(report->Key("events").Out(), '{');
  object.Number("posted", events.posted.Get());
  JsonScope dropped(object.Key("dropped").Out(), '{');
  for (size_t i = 0; i < kDropReasons; ++i) {
    dropped.Number(DropReasonName(static_cast<DropReason>(i)), events.dropped[i].Get());
  }
  dropped.Close();
  object.Number("sent", events.sent.Get());
  object.Number("waiting", events.waiting);
  object.Number("oldestWaitingUs", age(events.oldestWaitingUs));
  object.Number("retries", events.retries.Get());
  object.Number("sendingUs", age(events.sendingSinceUs));
  object.Number("notAcceptingUs", age(events.notAcceptingSinceUs));
  object.Close();
}

void AppendOthers(JsonScope *report) {
  HykLogStatistics log{};
  Hyk_GetLogStatistics(&log);
  JsonScope lines(report->Key("log").Out(), '{');
  lines.Number("records", log.records);
  lines.Number("dropped", log.dropped);
  lines.Close();
  HykFlightStatistics flight{};
  Hyk_GetFlightStatistics(&flight);
  JsonScope recorder(report->Key("flight").Out(), '{');
  recorder.Flag("on", flight.isOn);
  recorder.Number("megabytes", flight.megabytes);
  recorder.Number("entries", flight.entries);
  recorder.Number("bytes", flight.bytes);
  recorder.Number("lost", flight.lost);
  recorder.Close();
  const TraceStatistics &trace = Stats().trace;
  JsonScope feed(report->Key("trace").Out(), '{');
  feed.Number("clients", trace.clients);
  feed.Number("refused", trace.refused.Get());
  feed.Number("lines", trace.lines.Get());
  feed.Number("lost", trace.lost.Get());
  feed.Close();
  JsonScope uplinks(report->Key("waitingUplinks").Out(), '[');
  for (const WaitingUplink &waiting : WaitingUplinks()) {
    JsonScope uplink(uplinks.Next().Out(), '{');
    uplink.Text("uplink", waiting.uplink);
    uplink.Number("sinceUs", waiting.sinceUs);
    uplink.Close();
  }
  uplinks.Close();
}

}  // namespace

void StatisticsStart(size_t agents) {
  startedUs = WallClockUs();
  agentsWanted = agents;
}

std::string StatisticsReport() {
  std::string text;
  JsonScope report(&text, '{');
  report.Text("version", RYND_VERSION);
  char kernelDate[kHsiBuildDateSize] = "";
  const char *build = "";
  HSI_CheckSig(kernelDate, sizeof kernelDate, &build);
  report.Text("build", build);
  report.Number("pid", static_cast<uint64_t>(getpid()));
  report.Number("startedUs", startedUs);
  report.Number("nowUs", WallClockUs());
  AppendContexts(&report);
  AppendAgents(&report);
  AppendEvents(&report);
  AppendOthers(&report);
  report.Close();
  return text;
}

}  // namespace rynd
