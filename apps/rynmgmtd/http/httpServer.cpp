// Start and stop of the HTTP server, and which lane a request takes.
#include "mgmtd/http/httpServer.h"

#include <pthread.h>
#include <unistd.h>

#include <utility>

#include "hosted/paths.h"
#include "mgmtd/http/lane.h"

namespace mgmtd {
namespace {

constexpr size_t kMostQueries = 32;
constexpr size_t kMostQuick = 128;

/// The path and the parameters of a request's first line, as they stand there.
std::string_view TargetOf(const std::string &head) {
  const size_t begin = head.find(' ') + 1;
  const size_t end = head.find_first_of(" \r", begin);
  return std::string_view(head).substr(begin, end == std::string::npos ? end : end - begin);
}

bool IsQuery(std::string_view target) {
  return target.starts_with("/api/events") || target.starts_with("/api/timeline") ||
         (target.starts_with("/api/problems?") && target.find("ended=") != std::string_view::npos);
}

}  // namespace

/// One lane with what answers in it.
struct AnsweringLane {
  AnsweringLane(const char *name, size_t most, const Sources &sources, const AccessToken *token, bool localNamesOnly)
      : reader(sources.storePath), answerer(token, localNamesOnly), lane(name, most) {}

  Reader reader;
  Answerer answerer;
  Lane lane;
};

class HttpServer::Threads {
 public:
  Threads(const Sources &sources, const AccessToken *token, base::UniqueFd listener, bool localNamesOnly)
      : feed_(sources.feed),
        daemon_(hosted::RootPath(hosted::kTraceSocket)),
        quick_("http-quick", kMostQuick, sources, token, localNamesOnly),
        query_("http-query", kMostQueries, sources, token, localNamesOnly),
        metrics_("http-metrics", kMostQueries, sources, token, localNamesOnly),
        loop_(std::move(listener),
              {[this](uint64_t connection, std::string head) { return Take(connection, std::move(head)); },
               [this](const Marks &from) { return TakeStream(from); }},
              LoopLimits{}) {
    AddQuickRoutes(sources, &quick_.answerer);
    AddQueryRoutes(sources, &query_.reader, &query_.answerer);
    AddMetricsRoute(sources, &daemon_, &metrics_.answerer);
    // The library makes its constants at the first request; made by one thread alone, the sanitizer knows them too.
    quick_.answerer.Reply("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    for (AnsweringLane *lane : {&quick_, &query_, &metrics_}) lane->lane.Start();
    loopThread_ = std::thread([this] {
      pthread_setname_np(pthread_self(), "http");
      loop_.Run();
    });
    newsThread_ = std::thread([this] {
      pthread_setname_np(pthread_self(), "http-news");
      TellNews();
    });
  }

  ~Threads() {
    newsThread_.join();
    loop_.Stop();
    loopThread_.join();
    for (AnsweringLane *lane : {&quick_, &query_, &metrics_}) lane->lane.Stop();
  }

 private:
  /// The loop's thread.
  bool Take(uint64_t connection, std::string head) {
    const std::string_view target = TargetOf(head);
    AnsweringLane *lane = target.starts_with("/metrics") ? &metrics_ : IsQuery(target) ? &query_ : &quick_;
    return lane->lane.Add(
        [this, lane, connection, head = std::move(head)] { loop_.Finish(connection, lane->answerer.Reply(head)); });
  }

  /// The loop's thread. Mostly from memory; what a client missed for long comes from the file.
  bool TakeStream(const Marks &from) {
    return quick_.lane.Add([this, from] { loop_.Publish(StreamAfter(feed_, from, &quick_.reader)); });
  }

  void TellNews() {
    // Now and then also without news: a store that began anew counts from below.
    constexpr auto kLimit = std::chrono::seconds(1);
    Marks seen = feed_->Newest();
    loop_.Wake(seen);
    while (feed_->Wait(seen, kLimit)) {
      const Marks newest = feed_->Newest();
      if (!SameMarks(newest, seen)) loop_.Wake(newest);
      seen = newest;
    }
  }

  Feed *const feed_;
  DaemonStatistics daemon_;
  AnsweringLane quick_, query_, metrics_;
  ConnectionLoop loop_;
  std::thread loopThread_, newsThread_;
};

HttpServer::HttpServer(HttpOptions options, Sources sources)
    : options_(std::move(options)), sources_(std::move(sources)) {}

HttpServer::~HttpServer() {
  Stop();
}

std::string HttpServer::Start() {
  if (std::string error = ListenAddress::Parse(options_.address, &address_); !error.empty()) return "--http: " + error;
  if (!options_.tokenFile.empty()) {
    if (std::string error = AccessToken::Read(options_.tokenFile, &token_); !error.empty()) {
      return "--http-token-file: " + error;
    }
  } else if (!address_.loopback) {
    return "--http " + options_.address +
           ": whoever reaches that address could read everything; give --http-token-file FILE too, or a loopback "
           "address";
  }
  base::UniqueFd listener;
  if (std::string error = Listen(address_, &listener, &address_.port); !error.empty()) return "--http: " + error;
  const bool localNamesOnly = address_.path.empty() && address_.loopback;
  threads_ = std::make_unique<Threads>(sources_, &token_, std::move(listener), localNamesOnly);
  return "";
}

void HttpServer::Stop() {
  if (threads_ == nullptr) return;
  threads_.reset();
  if (!address_.path.empty()) unlink(address_.path.c_str());
}

std::string HttpServer::Url() const {
  if (!address_.path.empty()) return address_.path;
  const bool v6 = address_.host.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + address_.host + "]" : address_.host) + ":" + std::to_string(address_.port) + "/";
}

}  // namespace mgmtd
