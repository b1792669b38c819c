// Making, starting and stopping the sinks.
#include "mgmtd/sinks/sinks.h"

#include <set>
#include <utility>

#include "mgmtd/sinks/alertmanagerSink.h"
#include "mgmtd/sinks/execSink.h"
#include "mgmtd/sinks/journalSink.h"

namespace mgmtd {

Sinks::Sinks(SinkOptions options, std::string storePath, Feed *feed, Writer *writer)
    : options_(std::move(options)), storePath_(std::move(storePath)), feed_(feed), writer_(writer) {}

Sinks::~Sinks() {
  Stop();
}

std::string Sinks::Start() {
  std::vector<std::unique_ptr<Sink>> made;
  if (options_.journal) made.push_back(std::make_unique<JournalSink>(storePath_, feed_, writer_));
  std::set<std::string> known;
  for (const std::string &text : options_.alertmanagers) {
    AlertmanagerUrl url;
    if (std::string error = AlertmanagerUrl::Parse(text, &url); !error.empty()) return "--alertmanager: " + error;
    if (!known.insert(url.server + url.prefix).second) return "--alertmanager: " + text + " is given twice";
    made.push_back(std::make_unique<AlertmanagerSink>(text, url, options_.resend, storePath_, feed_, writer_));
  }
  if (!options_.exec.empty()) {
    if (std::string error = CheckProgram(options_.exec); !error.empty()) return "--exec: " + error;
    made.push_back(std::make_unique<ExecSink>(options_.exec, options_.execLimit, storePath_, feed_, writer_));
  }
  sinks_ = std::move(made);
  for (const std::unique_ptr<Sink> &sink : sinks_) sink->Start();
  return "";
}

void Sinks::Stop() {
  for (const std::unique_ptr<Sink> &sink : sinks_) sink->Stop();
  for (const std::unique_ptr<Sink> &sink : sinks_) sink->Join();
}

std::vector<SinkStatus> Sinks::Statuses() const {
  std::vector<SinkStatus> statuses;
  for (const std::unique_ptr<Sink> &sink : sinks_) statuses.push_back(sink->Status());
  return statuses;
}

}  // namespace mgmtd
