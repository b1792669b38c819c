// Alerts. The sink's thread, but for Stop.
#include "mgmtd/sinks/alertmanagerSink.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "base/wallClock.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;
using std::chrono::milliseconds;

constexpr size_t kMostAlerts = 200;
constexpr size_t kMostChanges = 1000;
constexpr int64_t kGoneAfterUs = int64_t{3600} * 1'000'000;

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// What makes two problems one alert.
auto KeyOf(const Problem &problem) {
  return std::pair(problem.name, problem.subject);
}

/// Further alerts in pieces may pass where these did not together.
bool MayBeSplit(int status) {
  return status == 400 || status == 413 || status == 422;
}

}  // namespace

std::string AlertmanagerUrl::Parse(const std::string &text, AlertmanagerUrl *out) {
  std::string wanted = "\"" + text + "\" is no URL of an Alertmanager: such as http://alertmanager:9093";
  const size_t scheme = text.starts_with("http://") ? 7 : text.starts_with("https://") ? 8 : 0;
  if (scheme == 0 || text.find_first_of(" \t\r\n?#@") != std::string::npos) return wanted;
  const size_t slash = text.find('/', scheme);
  out->server = text.substr(0, slash);
  out->prefix = slash == std::string::npos ? "" : text.substr(slash);
  while (out->prefix.ends_with('/')) out->prefix.pop_back();
  if (out->server.size() <= scheme || out->server[scheme] == ':') return wanted;
  return httplib::Client(out->server).is_valid() ? "" : wanted;
}

Json AlertOf(const Problem &problem, const std::string &host, int64_t nowUs) {
  Json labels = {{"alertname", problem.name}, {"severity", catalog::SeverityName(problem.severity)}, {"host", host}};
  if (!problem.subject.empty()) labels["subject"] = problem.subject;
  Json annotations = {{"summary", problem.text}, {"times", std::to_string(problem.times)}};
  if (!problem.hostUuid.empty()) annotations["host_uuid"] = problem.hostUuid;
  annotations["acknowledge"] = "rynctl ack " + std::to_string(problem.eventId);
  if (const catalog::Event *event = catalog::FindEvent(problem.name)) {
    annotations["description"] = event->means + " " + event->impact;
    std::string action;
    for (size_t i = 0; i < event->action.size(); ++i) {
      if (event->action.size() > 1) action += (i == 0 ? "" : "\n") + std::to_string(i + 1) + ". ";
      action += event->action[i];
    }
    if (!action.empty()) annotations["action"] = action;
  }
  // An alert must not end before it starts, nor start in the future, whatever clocks said.
  const int64_t end = problem.IsOpen() ? nowUs + kGoneAfterUs : std::min(problem.endedUs, nowUs);
  const int64_t start = std::min({problem.firstUs, nowUs, end});
  return {{"labels", labels}, {"annotations", annotations}, {"startsAt", IsoTime(start)}, {"endsAt", IsoTime(end)}};
}

AlertmanagerSink::AlertmanagerSink(const std::string &text, const AlertmanagerUrl &url, milliseconds resend,
                                   const std::string &storePath, Feed *feed, Writer *writer)
    : Sink("alertmanager " + text, storePath, feed, writer),
      path_(url.prefix + "/api/v2/alerts"),
      resend_(resend),
      host_(HostName()),
      client_(url.server) {
  client_.set_connection_timeout(3);
  client_.set_read_timeout(10);
  client_.set_write_timeout(5);
}

void AlertmanagerSink::Stop() {
  Sink::Stop();
  client_.stop();
}

void AlertmanagerSink::Run() {
  Clock::time_point due = Clock::now();
  for (;;) {
    const auto left = std::chrono::duration_cast<milliseconds>(due - Clock::now());
    if (!AwaitNews(std::max(left, milliseconds(0)))) return;
    bool gaveUp = false;
    // First, so that nothing old is said of a problem behind something new.
    if (!PassChanges(&gaveUp)) return;
    // One that was away may have forgotten everything.
    if (std::exchange(failed_, false)) due = Clock::now();
    if (gaveUp || Clock::now() < due) continue;
    if (!SendOpen()) return;
    due = Clock::now() + (failed_ ? milliseconds(0) : resend_);
  }
}

/// Pass on what changed since the position. False when a stop came; `gaveUp`: for now.
bool AlertmanagerSink::PassChanges(bool *gaveUp) {
  for (;;) {
    const Marks at = Position();
    const Marks newest = feed_->Newest();
    if (newest.change < at.change) SetPosition(newest);  // the store began anew
    if (newest.change <= at.change) {
      if (newest.event != at.event) SetPosition(newest);
      return !Stopped();
    }
    std::vector<Problem> changed;
    try {
      changed = feed_->ProblemsAfter(at.change, kMostChanges, &reader_);
    } catch (const StoreError &error) {
      *gaveUp = true;
      return Pause(Note(Outcome::kRetry, error.what()));
    }
    const int64_t last = changed.empty() ? newest.change : changed.back().change;
    // What ended and is open again is open: its end would come behind.
    std::set<std::pair<std::string, std::string>> open;
    for (const Problem &problem : feed_->OpenProblems()) open.insert(KeyOf(problem));
    std::erase_if(changed,
                  [&open](const Problem &problem) { return !problem.IsOpen() && open.contains(KeyOf(problem)); });
    if (!SendAll(changed, true)) return false;
    SetPosition({newest.event, last});
  }
}

bool AlertmanagerSink::SendOpen() {
  return SendAll(feed_->OpenProblems(), false);
}

/// Send until it is taken. False when a stop came.
bool AlertmanagerSink::SendAll(std::span<const Problem> problems, bool isNews) {
  size_t size = kMostAlerts;
  while (!problems.empty()) {
    const std::span<const Problem> batch = problems.first(std::min(size, problems.size()));
    std::string error;
    Outcome outcome = Send(batch, &error);
    if (Stopped()) return false;
    if (outcome == Outcome::kRefused && batch.size() > 1) {
      size = batch.size() / 2;
      continue;
    }
    if (outcome == Outcome::kRetry) {
      failed_ = true;
      if (!Pause(Note(outcome, error))) return false;
      // Repeats wait for their next turn: what is open may have changed by then.
      if (!isNews) return true;
      continue;
    }
    Note(outcome, error, isNews || outcome == Outcome::kRefused ? batch.size() : 0);
    problems = problems.subspan(batch.size());
    size = outcome == Outcome::kPassed ? std::min(kMostAlerts, size * 2) : size;
  }
  return true;
}

Outcome AlertmanagerSink::Send(std::span<const Problem> problems, std::string *error) {
  Json alerts = Json::array();
  const int64_t now = base::WallClockUs();
  for (const Problem &problem : problems) alerts.push_back(AlertOf(problem, host_, now));
  const httplib::Result result = client_.Post(path_, Dump(alerts), "application/json");
  if (!result) {
    *error = "cannot be reached: " + httplib::to_string(result.error());
    return Outcome::kRetry;
  }
  if (result->status / 100 == 2) return Outcome::kPassed;
  *error = "answered " + std::to_string(result->status) + ": " + result->body.substr(0, 200);
  return MayBeSplit(result->status) ? Outcome::kRefused : Outcome::kRetry;
}

}  // namespace mgmtd
