// What memory answers at once. For the lane's thread.
#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/wallClock.h"
#include "catalog/find.h"
#include "catalog/json.h"
#include "mgmtd/http/api.h"
#include "mgmtd/http/queryParameters.h"
#include "mgmtd/json/json.h"
#include "mgmtd/page/page.h"

namespace mgmtd {
namespace {

using Json = nlohmann::ordered_json;
using httplib::Request;
using httplib::Response;

/// For how long a sink may try in vain before the agent counts as unwell.
constexpr int64_t kSinkPatienceUs = 300'000'000;

void SetJson(Response &response, const Json &content) {
  response.set_content(Dump(content) + "\n", "application/json");
}

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// True when each word of `words`, in lower case, stands in the problem's name, subject or text.
bool HasWords(const Problem &problem, const std::vector<std::string> &words) {
  if (words.empty()) return true;
  std::string all = problem.name + "\n" + problem.subject + "\n" + problem.text;
  std::transform(all.begin(), all.end(), all.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return std::all_of(words.begin(), words.end(),
                     [&all](const std::string &word) { return all.find(word) != std::string::npos; });
}

std::vector<std::string> WordsOf(const std::string &text) {
  std::vector<std::string> words(1);
  for (const char c : text) {
    if (c == ' ') {
      words.emplace_back();
    } else {
      words.back() += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
  }
  std::erase(words, "");
  return words;
}

/// The open problems, the worst first: how many there are, and as many of those that match as are wanted.
Json OpenProblems(Feed *feed, const Request &request) {
  const QueryParameters parameters(request, {"limit", "q", "severity"});
  const auto limit = static_cast<size_t>(parameters.Number("limit", 1000, 1, 10'000));
  const std::vector<std::string> words = WordsOf(parameters.Text("q"));
  const std::string severity = parameters.Choice("severity", {"info", "warning", "error", "critical"});
  const Marks at = feed->Newest();  // before the problems: what changes in between is told again
  const std::vector<Problem> open = feed->OpenProblems();
  Json counts = Json::object(), problems = Json::array();
  for (const char *name : {"critical", "error", "warning", "info"}) counts[name] = 0;
  size_t matching = 0;
  for (const Problem &problem : open) {
    const std::string_view itsSeverity = catalog::SeverityName(problem.severity);
    counts[std::string(itsSeverity)] = counts[std::string(itsSeverity)].get<size_t>() + 1;
    if ((!severity.empty() && severity != itsSeverity) || !HasWords(problem, words)) continue;
    if (++matching <= limit) problems.push_back(ToJson(problem));
  }
  return {{"host", HostName()},  {"now", IsoTime(base::WallClockUs())},
          {"at", MarksText(at)}, {"open", open.size()},
          {"counts", counts},    {"matching", matching},
          {"problems", problems}};
}

void Explain(const Request &request, Response &response) {
  const QueryParameters parameters(request, {"name"});
  const catalog::Event *event = catalog::FindEvent(parameters.Text("name"));
  if (event == nullptr) return SetError(response, 404, "no event is called \"" + parameters.Text("name") + "\"");
  SetJson(response, catalog::ToJson(*event));
}

/// {"status":"ok"|"failing","wrong":[...],"store":{...},"sinks":[...]}, with 503 when something is wrong.
void Health(const Sources &sources, Response &response) {
  const StoreHealth store = sources.writer->Health();
  Json wrong = Json::array(), sinks = Json::array();
  if (!store.works) wrong.push_back("the store does not work: " + store.problem);
  for (const SinkStatus &sink : sources.sinks()) {
    Json entry = {{"name", sink.name}, {"lag", sink.lag}, {"passed", sink.passed}, {"refused", sink.refused}};
    if (!sink.error.empty()) {
      entry["error"] = sink.error;
      entry["failingSince"] = IsoTime(sink.failingSinceUs);
      if (base::WallClockUs() - sink.failingSinceUs > kSinkPatienceUs) wrong.push_back(sink.name + ": " + sink.error);
    }
    sinks.push_back(std::move(entry));
  }
  Json kept = {{"works", store.works},
               {"stored", store.stored},
               {"waiting", store.waiting},
               {"dropped", store.queueFull},
               {"notInTheFile", store.memoryFull},
               {"damaged", store.damaged},
               {"bytes", store.fileBytes},
               {"lastCommit", store.lastCommitUs == 0 ? Json() : Json(IsoTime(store.lastCommitUs))}};
  if (!store.works) kept["since"] = IsoTime(store.sinceUs);
  response.status = wrong.empty() ? 200 : 503;
  SetJson(response, {{"status", wrong.empty() ? "ok" : "failing"},
                     {"wrong", wrong},
                     {"version", RYND_VERSION},
                     {"store", kept},
                     {"sinks", sinks}});
}

}  // namespace

void AddQuickRoutes(const Sources &sources, Answerer *answerer) {
  for (const PageFile &file : PageFiles()) {
    answerer->Serve(std::string(file.path), true, [&file](const Request &, Response &response) {
      response.set_content(file.text.data(), file.text.size(), std::string(file.type));
      response.headers.erase("Cache-Control");
      response.set_header("Cache-Control", "no-cache");
    });
  }
  answerer->Serve("/api/problems", false, [sources](const Request &request, Response &response) {
    SetJson(response, OpenProblems(sources.feed, request));
  });
  answerer->Serve("/api/explain", false, Explain);
  answerer->Serve("/health", false, [sources](const Request &, Response &response) { Health(sources, response); });
  answerer->Serve("/api/stream", false, [sources, answerer](const Request &request, Response &response) {
    const QueryParameters parameters(request, {});
    Marks from = sources.feed->Newest();
    const std::string last = request.get_header_value("Last-Event-ID");
    if (!last.empty() && !ParseMarks(last, &from)) throw BadParameter("Last-Event-ID: " + last + " is none of ours");
    response.set_content("retry: 2000\nid: " + MarksText(from) + "\nevent: hello\ndata: {}\n\n", "text/event-stream");
    answerer->Stream(from);
  });
}

}  // namespace mgmtd
