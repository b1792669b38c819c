// What the server answers: routes of the page's data, and of monitoring.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "mgmtd/http/answerer.h"
#include "mgmtd/http/daemonStatistics.h"
#include "mgmtd/sinks/sinkStatus.h"
#include "mgmtd/store/reader.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {

/// Where answers come from; all borrowed, each callable by any thread.
struct Sources {
  std::string storePath;
  Feed *feed = nullptr;
  const Writer *writer = nullptr;
  std::function<std::vector<SinkStatus>()> sinks;
};

/// What memory answers at once: "/" and the page's files, "/api/problems" (the open ones), "/api/explain",
/// "/api/stream", "/health".
void AddQuickRoutes(const Sources &sources, Answerer *answerer);
/// What the file answers: "/api/events", "/api/timeline", "/api/problems?ended=1". `reader` is of the lane's thread.
void AddQueryRoutes(const Sources &sources, Reader *reader, Answerer *answerer);
/// "/metrics", for which the daemon is asked.
void AddMetricsRoute(const Sources &sources, DaemonStatistics *daemon, Answerer *answerer);

/// The events and changes that follow `from`, as messages of a stream. `reader` may be asked for what memory lost.
StreamPart StreamAfter(Feed *feed, const Marks &from, Reader *reader);
/// "12-7", as ids on a stream have it.
std::string MarksText(const Marks &marks);
/// The other way round; false for anything else.
bool ParseMarks(std::string_view text, Marks *out);

/// The text of "/metrics"; `daemon` is null when it does not answer.
std::string MetricsText(const Sources &sources, const nlohmann::json &daemon);

}  // namespace mgmtd
