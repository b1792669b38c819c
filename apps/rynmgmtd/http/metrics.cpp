// What the agent and the daemon have counted, in Prometheus' text format. For the lane's thread.
#include <cstdio>
#include <string>

#include "mgmtd/http/api.h"

namespace mgmtd {
namespace {

using nlohmann::json;

/// A page of metrics; each begins with what it is.
class MetricsPage {
 public:
  void Begin(const char *name, const char *type, const char *help) {
    name_ = name;
    text_.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
    text_.append(name).append(" ").append(type).append("\n");
  }
  void Add(const std::string &value) { text_.append(name_).append(" ").append(value).append("\n"); }
  void Add(const char *label, std::string_view labelValue, const std::string &value) {
    text_.append(name_).append("{").append(label).append("=\"");
    for (const char c : labelValue) {
      if (c == '\\' || c == '"') text_ += '\\';
      if (c == '\n') {
        text_ += "\\n";
      } else {
        text_ += c;
      }
    }
    text_.append("\"} ").append(value).append("\n");
  }
  /// One metric with one value.
  void Single(const char *name, const char *type, const char *help, const std::string &value) {
    Begin(name, type, help);
    Add(value);
  }
  const std::string &Text() const { return text_; }

 private:
  std::string text_;
  const char *name_ = "";
};

std::string Seconds(int64_t microseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", static_cast<double>(microseconds) / 1e6);
  return text;
}

/// The number at `member`, or 0: the daemon may be of another version.
std::string Number(const json &object, const char *member) {
  const auto entry = object.is_object() ? object.find(member) : object.end();
  return object.is_object() && entry != object.end() && entry->is_number_unsigned() ? entry->dump() : "0";
}

const json &Member(const json &object, const char *member) {
  static const json none;
  const auto entry = object.find(member);
  return entry == object.end() ? none : *entry;
}

std::string Name(const json &object) {
  const json &name = Member(object, "name");
  return name.is_string() ? name.get<std::string>() : "";
}

void AddEvents(const Feed &feed, MetricsPage *page) {
  const EventCounts counts = feed.Counts();
  page->Begin("rynmgmtd_events_total", "counter", "Events received since the start, by name.");
  for (const auto &[name, count] : counts.byName) page->Add("name", name, std::to_string(count));
  page->Single("rynmgmtd_last_event_timestamp_seconds", "gauge", "Time of the last event; 0 when there was none.",
               Seconds(counts.lastEventUs));
  page->Begin("rynmgmtd_open_problems", "gauge", "Problems that are open now, by severity.");
  const auto open = feed.OpenCounts();
  for (size_t i = 0; i < open.size(); ++i) {
    page->Add("severity", catalog::SeverityName(static_cast<catalog::Severity>(i)), std::to_string(open[i]));
  }
}

void AddStore(const StoreHealth &store, MetricsPage *page) {
  const auto counter = [page](const char *name, const char *help, uint64_t value) {
    page->Single(name, "counter", help, std::to_string(value));
  };
  page->Single("rynmgmtd_store_up", "gauge", "1 when the last commit to the store succeeded.", store.works ? "1" : "0");
  page->Single("rynmgmtd_store_bytes", "gauge", "Size of what the store's file holds.",
               std::to_string(store.fileBytes));
  page->Single("rynmgmtd_store_waiting_events", "gauge", "Events in memory that are not committed yet.",
               std::to_string(store.waiting));
  page->Single("rynmgmtd_store_last_commit_timestamp_seconds", "gauge",
               "Time of the last commit; 0 when there was none.", Seconds(store.lastCommitUs));
  counter("rynmgmtd_records_received_total", "Records received over the socket.", store.received);
  counter("rynmgmtd_records_damaged_total", "Records kept as far as they can be read.", store.damaged);
  counter("rynmgmtd_records_doubled_total", "Records that were there already.", store.doubles);
  counter("rynmgmtd_records_dropped_total", "Records dropped because the queue to the store was full.",
          store.queueFull);
  counter("rynmgmtd_events_stored_total", "Events committed to the store.", store.stored);
  counter("rynmgmtd_events_not_stored_total", "Events passed on that never reached the store.", store.memoryFull);
  counter("rynmgmtd_events_expired_total", "Events removed because of their age or the file's size.", store.expired);
}

void AddSinks(const std::vector<SinkStatus> &sinks, MetricsPage *page) {
  const auto each = [&](const char *name, const char *type, const char *help, auto value) {
    if (sinks.empty()) return;
    page->Begin(name, type, help);
    for (const SinkStatus &sink : sinks) page->Add("sink", sink.name, std::to_string(value(sink)));
  };
  each("rynmgmtd_sink_up", "gauge", "1 when the last attempt to pass something on succeeded.",
       [](const SinkStatus &sink) { return sink.error.empty() ? 1 : 0; });
  each("rynmgmtd_sink_lag", "gauge", "Events or changes of problems that are not passed on yet.",
       [](const SinkStatus &sink) { return sink.lag; });
  each("rynmgmtd_sink_passed_total", "counter", "Events or changes of problems that were passed on.",
       [](const SinkStatus &sink) { return sink.passed; });
  each("rynmgmtd_sink_refused_total", "counter", "Events or changes that the other side refuses for good.",
       [](const SinkStatus &sink) { return sink.refused; });
  each("rynmgmtd_sink_failures_total", "counter", "Attempts to pass something on that failed.",
       [](const SinkStatus &sink) { return sink.failures; });
}

void AddAgents(const json &agents, MetricsPage *page) {
  const auto each = [&](const char *name, const char *type, const char *help, const char *member) {
    page->Begin(name, type, help);
    for (const json &agent : agents) page->Add("agent", Name(agent), Number(agent, member));
  };
  each("rynd_agent_received_total", "counter", "Observations that an agent was given.", "received");
  each("rynd_agent_unhandled_total", "counter", "Observations that an agent has no handler for.", "unhandled");
  each("rynd_agent_events_posted_total", "counter", "Events that an agent posted.", "posted");
  each("rynd_agent_waiting_bytes", "gauge", "Bytes that wait for an agent.", "waitingBytes");
  page->Begin("rynd_agent_up", "gauge", "1 while the agent's thread runs.");
  for (const json &agent : agents) {
    const json &alive = Member(agent, "alive");
    page->Add("agent", Name(agent), alive.is_boolean() && alive.get<bool>() ? "1" : "0");
  }
}

void AddDaemon(const json &daemon, MetricsPage *page) {
  page->Single("rynd_up", "gauge", "1 when the daemon answered.", daemon.is_object() ? "1" : "0");
  if (!daemon.is_object()) return;
  const json &started = Member(daemon, "startedUs");
  page->Single("rynd_start_timestamp_seconds", "gauge", "Time of the daemon's start.",
               Seconds(started.is_number() ? started.get<int64_t>() : 0));
  page->Begin("rynd_context_records_total", "counter", "Records read from a context.");
  for (const json &context : Member(daemon, "contexts"))
    page->Add("context", Name(context), Number(context, "records"));
  const json &records = Member(daemon, "records");
  page->Single("rynd_records_matched_total", "counter", "Observations that an agent wanted.",
               Number(records, "matched"));
  page->Single("rynd_records_unmatched_total", "counter", "Observations that no agent wanted.",
               Number(records, "unmatched"));
  const json &events = Member(daemon, "events");
  page->Single("rynd_events_posted_total", "counter", "Events posted by all agents.", Number(events, "posted"));
  page->Single("rynd_events_sent_total", "counter", "Events that the management agent took.", Number(events, "sent"));
  page->Single("rynd_events_waiting", "gauge", "Events that wait for the management agent.", Number(events, "waiting"));
  page->Begin("rynd_events_dropped_total", "counter", "Events dropped, by reason.");
  const json &dropped = Member(events, "dropped");
  for (const auto &[reason, count] : dropped.items()) page->Add("reason", reason, Number(dropped, reason.c_str()));
  AddAgents(Member(daemon, "agents"), page);
  page->Single("rynd_log_dropped_total", "counter", "Lines of the daemon's log that were dropped.",
               Number(Member(daemon, "log"), "dropped"));
}

}  // namespace

std::string MetricsText(const Sources &sources, const json &daemon) {
  MetricsPage page;
  page.Begin("rynmgmtd_info", "gauge", "The agent's version.");
  page.Add("version", RYND_VERSION, "1");
  AddEvents(*sources.feed, &page);
  AddStore(sources.writer->Health(), &page);
  AddSinks(sources.sinks(), &page);
  AddDaemon(daemon, &page);
  return page.Text();
}

void AddMetricsRoute(const Sources &sources, DaemonStatistics *daemon, Answerer *answerer) {
  answerer->Serve("/metrics", false, [sources, daemon](const httplib::Request &, httplib::Response &response) {
    response.set_content(MetricsText(sources, daemon->Get()), "text/plain; version=0.0.4; charset=utf-8");
  });
}

}  // namespace mgmtd
