// What the store's file answers. For the lane's thread.
#include "base/wallClock.h"
#include "mgmtd/http/api.h"
#include "mgmtd/http/queryParameters.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

using Json = nlohmann::ordered_json;
using httplib::Request;
using httplib::Response;

constexpr int64_t kMostEvents = 1000;
constexpr size_t kMostTextBytes = size_t{4} << 20;  // of an answer's texts
constexpr int64_t kDayUs = int64_t{86'400} * 1'000'000;
constexpr int64_t kMostIds = int64_t{1} << 62;

EventFilter FilterOf(const QueryParameters &parameters) {
  EventFilter filter;
  filter.sinceUs = parameters.Time("since");
  filter.untilUs = parameters.Time("until");
  filter.names = parameters.Texts("name");
  filter.subject = parameters.Text("subject");
  filter.text = parameters.Text("q");
  filter.category = parameters.Choice("category", {"problem", "audit", "clear", "unknown"});
  filter.severity = parameters.Choice("severity", {"info", "warning", "error", "critical"});
  filter.beforeId = parameters.Number("before", 0, 1, kMostIds);
  filter.afterId = parameters.Number("after", 0, 0, kMostIds);
  filter.newestFirst = parameters.Choice("order", {"newest", "oldest"}) != "oldest";
  filter.limit = static_cast<size_t>(parameters.Number("limit", 100, 1, kMostEvents));
  return filter;
}

/// {"events":[...],"more":whether there are further ones, to be asked for with before= or after= the last one's id}.
Json Events(const Request &request, Reader *reader) {
  const QueryParameters parameters(
      request, {"since", "until", "name", "subject", "q", "category", "severity", "before", "after", "order", "limit"});
  EventFilter filter = FilterOf(parameters);
  const size_t wanted = filter.limit++;
  const std::vector<StoredEvent> found = reader->Events(filter);
  Json events = Json::array();
  size_t bytes = 0;
  for (const StoredEvent &event : found) {
    bytes += event.text.size() + event.argumentsJson.size();
    if (events.size() == wanted || (bytes > kMostTextBytes && !events.empty())) break;
    events.push_back(ToJson(event));
  }
  const bool more = events.size() < found.size();
  return {{"events", std::move(events)}, {"more", more}};
}

/// {"since","seconds" (of a bucket),"buckets":[[critical,error,warning,other],...]}.
Json Timeline(const Request &request, Reader *reader) {
  const QueryParameters parameters(request, {"since", "until", "seconds"});
  const int64_t until = parameters.Time("until").value_or(base::WallClockUs());
  const int64_t since = parameters.Time("since").value_or(until - kDayUs);
  const int64_t bucketUs = parameters.Number("seconds", 1800, 1, 31'622'400) * 1'000'000;
  if (since >= until) throw BadParameter("since= is not before until=");
  if ((until - since) / bucketUs >= 1000) throw BadParameter("more than 1000 stretches: make seconds= larger");
  Json buckets = Json::array();
  for (const TimelineBucket &bucket : reader->Timeline(since, until, bucketUs)) {
    buckets.push_back({bucket.critical, bucket.error, bucket.warning, bucket.other});
  }
  return {{"since", IsoTime(since)}, {"seconds", bucketUs / 1'000'000}, {"buckets", std::move(buckets)}};
}

Json AllProblems(const Request &request, Reader *reader) {
  const QueryParameters parameters(request, {"limit", "ended"});
  ProblemFilter filter;
  filter.ended = parameters.Number("ended", 0, 0, 1) == 1;
  filter.limit = static_cast<size_t>(parameters.Number("limit", 1000, 1, 10'000));
  Json problems = Json::array();
  for (const Problem &problem : reader->Problems(filter)) problems.push_back(ToJson(problem));
  return {{"problems", std::move(problems)}};
}

}  // namespace

void AddQueryRoutes(const Sources &, Reader *reader, Answerer *answerer) {
  const auto add = [&](const char *path, Json (*make)(const Request &, Reader *)) {
    answerer->Serve(path, false, [make, reader](const Request &request, Response &response) {
      response.set_content(Dump(make(request, reader)) + "\n", "application/json");
    });
  };
  add("/api/events", Events);
  add("/api/timeline", Timeline);
  add("/api/problems", AllProblems);
}

}  // namespace mgmtd
