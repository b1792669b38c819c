// What the daemon tells of itself: the JSON feed, the statistics, the service manager.
#include "testing/ledger.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

#include "hosted/paths.h"
#include "testing/daemon.h"

namespace testing_support {
namespace {

using nlohmann::json;

/// A client of the JSON feed.
class JsonClient {
 public:
  explicit JsonClient(const TestRoot &root) : fd_(ConnectTrace(root)) {
    EXPECT_EQ(send(fd_.Get(), "json\n", 5, MSG_NOSIGNAL), 5);
    EXPECT_EQ(Next(), json::parse(R"({"format":"json","version":1})"));
  }
  /// The next object; null at the end.
  json Next() {
    while (text_.find('\n') == std::string::npos) {
      char part[65536];
      const ssize_t count = recv(fd_.Get(), part, sizeof part, 0);
      if (count <= 0) return nullptr;
      text_.append(part, static_cast<size_t>(count));
    }
    const std::string line = text_.substr(0, text_.find('\n'));
    text_.erase(0, line.size() + 1);
    return json::parse(line);
  }

 private:
  base::UniqueFd fd_;
  std::string text_;
};

/// `object` without its time, which must be there.
json Timeless(json object) {
  EXPECT_GT(object.value("us", uint64_t{0}), 0u) << object;
  object.erase("us");
  return object;
}

TEST(JsonFeed, TellsTheWholeRoadOfAnObservation) {
  RunningDaemon running;
  JsonClient client(running.root);
  const auto user = ConnectUser(running.root);
  ASSERT_TRUE(
      SendRecord(ConnectKernel(running.root, 7), MakeRecord("ryn.storage.apd.timeout", {"a\"\x1b\xff"}, {140})));
  EXPECT_EQ(client.Next(), json::parse(R"({"us":1700000000000000,"dir":"in","context":"kernel-07",
    "id":"ryn.storage.apd.timeout","text":"a message","args":[{"s":"a\"\u001b\ufffd"},{"i32":140}],"agents":["APD"]})"));
  json event = client.Next();
  EXPECT_EQ(event.value("text", ""), event.value("text", "-"));
  event.erase("text");
  EXPECT_EQ(Timeless(event), json::parse(R"({"dir":"out","seq":1,"agent":"APD","id":"amb.problem.storage.apd.timeout",
    "args":[{"s":"a\"\u001b\ufffd"},{"i32":140}],
    "because":{"id":"ryn.storage.apd.timeout","us":1700000000000000}})"));
  EXPECT_EQ(Timeless(client.Next()), json::parse(R"({"dir":"delivery","seq":1,"result":"sent"})"));
  ASSERT_TRUE(SendRecord(user, MakeRecord("ryn.user.nobody.wants.this")));
  const json in = client.Next();
  EXPECT_EQ(in.value("context", ""), "user");
  EXPECT_EQ(in.value("pid", 0), getpid());
  EXPECT_EQ(in.value("uid", ~0u), getuid());
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(JsonFeed, SaysWhatIsQueuedWhatIsDroppedAndWhatATimerSettles) {
  RunningDaemon running;
  std::filesystem::remove(running.root / hosted::kEventSocket);  // the management agent goes
  JsonClient client(running.root);
  const auto kernel = ConnectKernel(running.root);
  ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.net.hynic.linkstate.down", {"hynic7"})));
  client.Next();
  EXPECT_EQ(client.Next().at("because"), json::parse(R"({"timer":"uplink hynic7: link down"})"));
  EXPECT_EQ(client.Next().at("result"), "queued");
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  json last;
  for (last = client.Next(); last.is_object() && last.at("dir") != "drop";) last = client.Next();
  last.erase("us");
  EXPECT_EQ(last, json::parse(R"({"dir":"drop","agent":"APD","id":"amb.problem.storage.apd.start","reason":"rate"})"));
  ExpectLedgerCloses(running.root);
  const json events = ReadStatistics(running.root).at("events");
  EXPECT_EQ(events.at("posted"), 1001);
  EXPECT_EQ(events.at("waiting"), 1000);
  EXPECT_EQ(events.at("dropped").at("rate"), 1);
  EXPECT_GT(events.at("oldestWaitingUs"), 0);
  EXPECT_EQ(running.daemon.Stop(), 0);
  EXPECT_TRUE(running.log.Lines().WaitFor("Left behind: 0 observations that no agent has read, 1000 events"));
}

TEST(Statistics, AnswerWhileThePollLoopWaitsForAnAgentThatHangs) {
  const TestRoot root;
  const LogListener log(root / "/dev/log");
  HangingAgent agent(root);
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor("rynd setup completed."));
  std::vector<base::UniqueFd> contexts;
  contexts.push_back(ConnectKernel(root));
  ASSERT_TRUE(SendRecord(contexts[0], MakeRecord("ryn.storage.apd.start", {"naa.1"})));  // what its agent hangs with
  const auto record = MakeRecord("ryn.storage.apd.start", {std::string(100'000, 'x')});
  for (unsigned id = 0; id < 29; ++id) {
    contexts.push_back(ConnectKernel(root, id));
    while (send(contexts.back().Get(), record.data(), record.size(), MSG_DONTWAIT) >= 0) continue;
  }
  EXPECT_TRUE(WaitUntil([&] { return ReadStatistics(root).at("events").at("notAcceptingUs") > 0; }));
  EXPECT_TRUE(log.Lines().WaitFor("The management agent has accepted no connection for 10 seconds.", 1, 40));
  for (int i = 0; i < 2; ++i) {  // it accepts again: the filler, then the event
    pollfd ready{agent.socket.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 20'000), 1);
    agent.filler.Reset(accept(agent.socket.Get(), nullptr, nullptr));
  }
  EXPECT_TRUE(log.Lines().WaitFor("The management agent accepts connections again, after "));
  daemon.Signal(SIGTERM);
  EXPECT_EQ(daemon.WaitForExit(), 0);
  EXPECT_EQ(log.Lines().CountOf("The management agent has accepted no connection"), 1u);
}

TEST(Service, IsToldOfAWholeStartAndOfTheStop) {
  const TestRoot root;
  const LogListener service(root / "/notify");
  Daemon daemon(root, [&] { setenv("NOTIFY_SOCKET", (root / "/notify").c_str(), 1); });
  EXPECT_TRUE(service.Lines().WaitFor("READY=1"));
  EXPECT_EQ(daemon.Stop(), 0);
  EXPECT_TRUE(service.Lines().WaitFor("STOPPING=1"));
}

}  // namespace
}  // namespace testing_support
