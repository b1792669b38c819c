// The HTTP server from outside: what it shows to whom, its stream, and clients that mean no good.
#include "mgmtd/http/httpServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "apps/rynmgmtd/testSupport.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

base::UniqueFd Connect(const std::string &url) {
  base::UniqueFd fd;
  if (url.starts_with('/')) {
    EXPECT_EQ(hosted::ConnectUnixSocket(url, SOCK_STREAM, &fd), 0) << url;
    return fd;
  }
  fd.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(fd.Get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  return fd;
}

/// What comes until the other side closes, `until` stands in it, or 10 s have passed.
std::string ReadUntil(int fd, const std::string &until) {
  std::string text;
  const auto end = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < end && (until.empty() || text.find(until) == std::string::npos)) {
    pollfd readable{fd, POLLIN, 0};
    if (poll(&readable, 1, 100) != 1) continue;
    char part[16 * 1024];
    const ssize_t count = recv(fd, part, sizeof part, 0);
    if (count <= 0) break;
    text.append(part, static_cast<size_t>(count));
  }
  return text;
}

struct Server {
  Feed feed;
  Writer writer{{testing_support::ProcessRoot() / "/events.db"}, &feed};
  std::unique_ptr<HttpServer> http;
  std::vector<SinkStatus> sinks;
  std::string refusal;  ///< why it does not serve, or ""

  explicit Server(const std::string &address = "127.0.0.1:0", const std::string &tokenFile = "") {
    http = std::make_unique<HttpServer>(
        HttpOptions{address, tokenFile},
        Sources{testing_support::ProcessRoot() / "/events.db", &feed, &writer, [this] { return sinks; }});
    refusal = http->Start();
  }
  ~Server() { feed.Stop(); }

  std::string Url() const {
    EXPECT_EQ(refusal, "");
    std::string url = http->Url();
    if (url.ends_with('/')) url.pop_back();
    return url;
  }
  base::UniqueFd Send(const std::string &target, const std::string &more = "",
                      const std::string &method = "GET") const {
    base::UniqueFd fd = Connect(Url());
    const std::string host = more.find("Host:") == std::string::npos ? "Host: localhost\r\n" : "";
    const std::string text = method + " " + target + " HTTP/1.1\r\n" + host + more + "\r\n";
    EXPECT_EQ(send(fd.Get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    return fd;
  }
  std::string Ask(const std::string &target, const std::string &more = "", const std::string &method = "GET") const {
    return ReadUntil(Send(target, more, method).Get(), "");
  }
  json AskJson(const std::string &target) const {
    const std::string answer = Ask(target);
    return json::parse(answer.substr(answer.find("\r\n\r\n") + 4), nullptr, false);
  }
};

std::string Status(const std::string &answer) {
  return answer.substr(0, std::min<size_t>(12, answer.size()));
}

TEST(HttpServer, TellsEachOnlyWhatItMaySee) {
  const std::string tokenFile = testing_support::ProcessRoot() / "/token";
  testing_support::WriteFile(tokenFile, std::string(kToken) + "\n");
  chmod(tokenFile.c_str(), 0600);
  Server open, closed("127.0.0.1:0", tokenFile);
  const std::string token = "Authorization: Bearer " + std::string(kToken);
  const std::string bearer = token + "\r\n", longer = token + "0\r\n";
  const struct {
    Server *server;
    const char *status;
    std::string more;
    std::vector<const char *> targets;
  } cases[] = {
      {&open, "HTTP/1.1 200", "", {"/", "/page/app.js"}},
      {&open, "HTTP/1.1 200", "Host: 127.0.0.1:8470\r\n", {"/api/problems"}},
      {&open, "HTTP/1.1 200", "Host: [::1]:8470\r\n", {"/api/problems"}},
      {&open, "HTTP/1.1 421", "Host: evil.example\r\n", {"/api/problems"}},
      {&open, "HTTP/1.1 421", "Host: localhost.evil.example\r\n", {"/"}},
      {&open, "HTTP/1.1 421", "Host: \r\n", {"/"}},
      {&open, "HTTP/1.1 403", "Sec-Fetch-Site: cross-site\r\n", {"/api/problems", "/api/stream"}},
      {&open, "HTTP/1.1 200", "Sec-Fetch-Site: same-origin\r\n", {"/api/problems"}},
      {&open, "HTTP/1.1 200", "Range: bytes=0-0,0-0,0-0,0-0\r\n", {"/"}},
      {&open, "HTTP/1.1 404", "", {"/../../etc/passwd"}},
      {&open,
       "HTTP/1.1 400",
       "",
       {"/api/problems?limit=0", "/api/problems?limit=x", "/api/problems?colour=red", "/api/problems?severity=bad",
        "/api/events?since=whenever", "/api/timeline?seconds=1"}},
      {&open, "HTTP/1.1 400", "Last-Event-ID: 7\r\n", {"/api/stream"}},
      {&closed, "HTTP/1.1 200", "", {"/"}},
      {&closed, "HTTP/1.1 401", "", {"/api/problems", "/api/stream", "/api/%70roblems"}},
      {&closed, "HTTP/1.1 401", "Authorization: Bearer 0123456789abcdef\r\n", {"/metrics"}},
      {&closed, "HTTP/1.1 401", longer, {"/health"}},
      {&closed, "HTTP/1.1 401", "Authorization: Basic Og==\r\n", {"/api/events"}},
      {&closed, "HTTP/1.1 200", bearer, {"/health", "/metrics"}},
  };
  for (const auto &[server, status, more, targets] : cases) {
    for (const char *target : targets) {
      const std::string answer = server->Ask(target, more);
      EXPECT_EQ(Status(answer), status) << target << " " << more;
      EXPECT_NE(answer.find("frame-ancestors 'none'"), std::string::npos) << target;
      EXPECT_NE(answer.find("X-Content-Type-Options: nosniff"), std::string::npos) << target;
      EXPECT_EQ(answer.find("Access-Control"), std::string::npos) << target;
    }
  }
  for (const char *method : {"POST", "DELETE", "PUT", "OPTIONS"}) {
    EXPECT_EQ(Status(open.Ask("/api/problems", "Content-Length: 3\r\n\r\nabc", method)), "HTTP/1.1 405") << method;
  }
}

TEST(HttpServer, RefusesToServeUnsafely) {
  const std::string root = testing_support::ProcessRoot().Path();
  const auto put = [&root](const char *name, const std::string &text, mode_t mode) {
    testing_support::WriteFile(root + "/" + name, text);
    chmod((root + "/" + name).c_str(), mode);
    return root + "/" + name;
  };
  struct Case {
    std::string address, tokenFile, says;
  };
  const Case cases[] = {
      {"0.0.0.0:0", "", "--http-token-file"},
      {"[::]:0", "", "--http-token-file"},
      {"192.0.2.1:80", "", "--http-token-file"},
      {"127.0.0.1", "", "127.0.0.1"},
      {"127.0.0.1:70000", "", "70000"},
      {"::1:80", "", "no address"},
      {"some.name:80", "", "some.name"},
      {"/" + std::string(120, 'x'), "", "too long"},
      {"/nowhere/at/all", "", "/nowhere/at/all"},
      {"127.0.0.1:0", put("open", kToken, 0644), "chmod"},
      {"127.0.0.1:0", put("short", "abc\n", 0600), "no token"},
      {"127.0.0.1:0", put("blank", "0123456789 abcdef\n", 0600), "no token"},
      {"127.0.0.1:0", root + "/missing", "missing"},
      {"127.0.0.1:0", "/dev/zero", "no plain file"},
  };
  for (const Case &test : cases) {
    const Server server(test.address, test.tokenFile);
    EXPECT_NE(server.refusal.find(test.says), std::string::npos) << test.address << " " << test.tokenFile;
  }
  // A socket file: replaced when nobody serves it, left alone when somebody does, gone in the end.
  const std::string path = root + "/http.sock";
  {
    const Server first(path), second(path);
    EXPECT_NE(second.refusal.find("in use"), std::string::npos);
    EXPECT_EQ(Status(first.Ask("/health", "Host: proxy.example\r\n")), "HTTP/1.1 200");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660U);
  }
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(HttpServer, ShowsTheFirstOfManyProblemsAndCountsAll) {
  Server server;
  std::vector<Problem> problems;
  for (int i = 1; i <= 10'000; ++i) {
    problems.push_back(MakeProblem(i, i, "disk-" + std::to_string(i), false,
                                   i % 100 == 0 ? catalog::Severity::kCritical : catalog::Severity::kWarning));
  }
  server.feed.Publish({}, problems);
  const json all = server.AskJson("/api/problems?limit=200");
  EXPECT_EQ(all["open"], 10'000);
  EXPECT_EQ(all["counts"]["critical"], 100);
  EXPECT_EQ(all["matching"], 10'000);
  ASSERT_EQ(all["problems"].size(), 200U);
  EXPECT_EQ(all["problems"][99]["severity"], "critical");
  EXPECT_EQ(all["problems"][100]["severity"], "warning");
  const json found = server.AskJson("/api/problems?q=DISK-77%20about&severity=warning&limit=5");
  EXPECT_EQ(found["matching"], 110);  // 77, 770 to 779, 7700 to 7799 but for the critical one, ...
  EXPECT_EQ(found["problems"].size(), 5U);
}

TEST(HttpServer, StreamsWhatComesAndWhatWasMissed) {
  Server server;
  server.feed.Publish({MakeEvent(1, "before")}, {});
  const base::UniqueFd live = server.Send("/api/stream");
  std::string text = ReadUntil(live.Get(), "event: hello");
  EXPECT_NE(text.find("Content-Type: text/event-stream"), std::string::npos);
  EXPECT_EQ(text.find("before"), std::string::npos);
  server.feed.Publish({MakeEvent(2, "line\nend <b>&")}, {MakeProblem(1, 1, "naa.1")});
  text = ReadUntil(live.Get(), "event: problems");
  EXPECT_NE(text.find("id: 2-0\nevent: event\n"), std::string::npos) << text;
  EXPECT_NE(text.find(R"(line\nend <b>&)"), std::string::npos) << text;
  EXPECT_NE(text.find("id: 2-1\nevent: problems\n"), std::string::npos) << text;
  // Who comes back goes on where it was, in order, whatever others were told; more than one read at a time gives.
  std::vector<StoredEvent> many;
  for (int64_t id = 3; id <= 1500; ++id) many.push_back(MakeEvent(id, "n" + std::to_string(id)));
  server.feed.Publish(many, {});
  const base::UniqueFd back = server.Send("/api/stream", "Last-Event-ID: 2-1\r\n");
  text = ReadUntil(back.Get(), "\"n1500\"");
  size_t at = 0;
  for (int64_t id = 3; id <= 1500; ++id) {
    const size_t next = text.find("\"n" + std::to_string(id) + "\"", at);
    ASSERT_NE(next, std::string::npos) << id;
    at = next;
  }
  EXPECT_EQ(text.find("\"n1500\"", at + 1), std::string::npos) << "told twice";
  // A store that began anew.
  const base::UniqueFd lost = server.Send("/api/stream", "Last-Event-ID: 99999-1\r\n");
  EXPECT_NE(ReadUntil(lost.Get(), "event: reset").find("id: 1500-1\nevent: reset"), std::string::npos);
}

TEST(HttpServer, HealthSaysWhatIsWrong) {
  Server server;
  server.sinks = {{"journal", 0, 5, 0, 0, "", 0}, {"alertmanager http://am:9093", 7, 0, 0, 3, "cannot be reached", 1}};
  const std::string answer = server.Ask("/health");
  EXPECT_EQ(Status(answer), "HTTP/1.1 503");
  EXPECT_NE(answer.find("alertmanager http://am:9093: cannot be reached"), std::string::npos);
  const std::string metrics = server.Ask("/metrics");
  EXPECT_NE(metrics.find("rynmgmtd_sink_lag{sink=\"alertmanager http://am:9093\"} 7\n"), std::string::npos);
  EXPECT_NE(metrics.find("rynd_up 0\n"), std::string::npos);
}

/// A daemon that accepts and never answers: the scrape is answered all the same, and no other request waits for it.
TEST(HttpServer, HungDaemonHangsNobody) {
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  hosted::MakeFolders(path.substr(0, path.rfind('/')), 0755);
  base::UniqueFd daemon;
  ASSERT_EQ(hosted::ServeUnixSocket(path, SOCK_STREAM, 0600, &daemon), 0);
  Server server;
  std::vector<base::UniqueFd> scrapes;
  for (int i = 0; i < 20; ++i) scrapes.push_back(server.Send("/metrics"));
  EXPECT_EQ(Status(server.Ask("/health")), "HTTP/1.1 200");
  for (const base::UniqueFd &scrape : scrapes) {
    EXPECT_NE(ReadUntil(scrape.Get(), "").find("rynd_up 0\n"), std::string::npos);
  }
  unlink(path.c_str());
}

/// A thousand and more connections that say nothing, rubbish, or a request without an end; streams and answers that
/// nobody reads: whoever behaves is served, each time, and everything is closed in the end.
TEST(HttpServer, ClientsThatMeanNoGoodCostTheOthersNothing) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  Server server;
  std::vector<Problem> problems;
  for (int i = 1; i <= 5000; ++i) problems.push_back(MakeProblem(i, i, std::string(100, 'x') + std::to_string(i)));
  server.feed.Publish({}, problems);
  const base::UniqueFd stream = server.Send("/api/stream");
  ASSERT_NE(ReadUntil(stream.Get(), "event: hello"), "");
  std::vector<base::UniqueFd> held;
  const auto sendTo = [&held](const std::string &text) {
    send(held.back().Get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  };
  for (int i = 0; i < 1200; ++i) {
    held.push_back(Connect(server.Url()));
    if (i % 4 == 1) sendTo("\x16\x03\x01 rubbish");
    if (i % 4 == 2) sendTo("GET / HTTP/1.1\r\nHost: localhost\r\nX-Slow: ");
    if (i % 4 == 3 && i % 3 == 0) sendTo("GET /api/problems HTTP/1.1\r\nHost: localhost\r\n\r\n");  // never read
    if (i % 4 == 3 && i % 3 == 1) sendTo("GET /api/stream HTTP/1.1\r\nHost: localhost\r\n\r\n");
    if (i % 100 == 0) {
      ASSERT_EQ(Status(server.Ask("/health")), "HTTP/1.1 200") << i;
    }
  }
  EXPECT_EQ(Status(server.Ask("/api/problems?limit=10")), "HTTP/1.1 200");
  server.feed.Publish({MakeEvent(1, "still told")}, {});
  EXPECT_NE(ReadUntil(stream.Get(), "still told").find("still told"), std::string::npos);
  held.clear();
  EXPECT_EQ(Status(server.Ask("/")), "HTTP/1.1 200");
}

TEST(HttpServer, RequestsWithoutEndAreCutOff) {
  Server server;
  const base::UniqueFd endless = Connect(server.Url());
  std::string text = "GET / HTTP/1.1\r\nX: ";
  text.append(40'000, 'x');
  send(endless.Get(), text.data(), text.size(), MSG_NOSIGNAL);
  EXPECT_EQ(Status(ReadUntil(endless.Get(), "")), "HTTP/1.1 431");
  // A byte now and then keeps no connection open: the whole head has its time.
  const base::UniqueFd slow = Connect(server.Url());
  const auto end = Clock::now() + std::chrono::seconds(20);
  bool closed = false;
  for (const std::string head = "GET / HTTP/1.1\r\n"; !closed && Clock::now() < end;) {
    closed = send(slow.Get(), head.data(), 1, MSG_NOSIGNAL) < 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  EXPECT_TRUE(closed);
}

}  // namespace
}  // namespace mgmtd
