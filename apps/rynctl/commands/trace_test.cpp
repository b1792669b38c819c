// The daemon's trace feed is played by the tests.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/toolRun.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

constexpr char kText[] =
    "1700000000000001 IN ryn.storage.apd.start a message (\"naa.1\", null)\n"
    "1700000000000002 OUT amb.problem.storage.apd.start Device [naa.1] \x1b[2J (\"naa.1\")\n"
    "1700000000000003 LOST 12\n"
    "1700000000000004 IN ryn.net.link.down  (5)\n";

constexpr char kFeed[] = R"(1700000000000000 IN text.that.came.first x ()
{"format":"json","version":1}
{"us":1700000000000001,"dir":"in","context":"kernel-00","id":"ryn.storage.apd.start","text":"a message","args":[{"s":"naa.1"},{"null":null}],"agents":["APD"]}
{"us":1700000000000002,"dir":"out","seq":7,"agent":"APD","id":"amb.problem.storage.apd.start","text":"Device [naa.1] \u001b[2J","args":[{"s":"naa.1"}],"because":{"id":"ryn.storage.apd.start","us":1}}
{"us":1700000000000003,"dir":"delivery","seq":7,"result":"queued"}
{"us":1700000000000004,"dir":"lost","count":12}
{"us":1700000000000005,"dir":"in","context":"kernel-00","id":"ryn.net.link.down","text":"","args":[{"i32":5}],"agents":[]}
{"us":1700000000000006,"dir":"out","seq":8,"agent":"net","id":"amb.clear.net.x","text":"up","args":[],"because":{"timer":"uplink hynic0: link up"}}
{"us":1700000000000007,"dir":"delivery","seq":8,"result":"sent"}
{"us":1700000000000008,"dir":"drop","agent":"net","id":"amb.clear.net.y","reason":"rate"}
)";

/// The lines of `text`, each without its time.
std::vector<std::string> Timeless(const std::string &text) {
  std::vector<std::string> lines;
  for (const std::string &line : testing_support::Lines(text))
    lines.push_back(line.substr(std::min<size_t>(line.size(), 14)));
  return lines;
}
using Lines = std::vector<std::string>;

class Trace : public testing::Test {
 protected:
  void SetUp() override {
    CleanRoot();
    ASSERT_EQ(hosted::MakeFolders(testing_support::ProcessRoot() / "/var/run/corvane", 0755), 0);
    ASSERT_EQ(hosted::ServeUnixSocket(hosted::RootPath(hosted::kTraceSocket), SOCK_STREAM, 0660, &listen_), 0);
  }

  base::UniqueFd Accept() const { return base::UniqueFd(accept(listen_.Get(), nullptr, nullptr)); }

  /// Run the tool over the feed `text`, which then ends.
  ToolResult Run(std::vector<std::string> words, const std::string &text) const {
    words.insert(words.begin(), "trace");
    BackgroundTool tool(words);
    const base::UniqueFd client = Accept();
    // In two parts, cut anywhere: a line's end need not be a read's.
    const size_t half = text.size() / 2;
    send(client.Get(), text.data(), half, MSG_NOSIGNAL);
    send(client.Get(), text.data() + half, text.size() - half, MSG_NOSIGNAL);
    shutdown(client.Get(), SHUT_RDWR);
    return tool.Result();
  }

  base::UniqueFd listen_;
};

TEST_F(Trace, ShowsTheFeedUntilItsEnd) {
  const ToolResult result = Run({}, kFeed);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.rfind("rynctl: the daemon ended the trace", 0), 0U) << result.err;
  EXPECT_EQ(
      Timeless(result.out),
      (Lines{"IN    ryn.storage.apd.start  a message (\"naa.1\", null)  -> APD",
             "OUT   amb.problem.storage.apd.start  Device [naa.1] \\x1b[2J (\"naa.1\")  <- APD, ryn.storage.apd.start",
             "WAIT  amb.problem.storage.apd.start #7: the management agent does not take it yet",
             "LOST  12 lines: this client was too slow", "IN    ryn.net.link.down   (5)  -> nobody",
             "OUT   amb.clear.net.x  up ()  <- net, uplink hynic0: link up", "SENT  amb.clear.net.x #8",
             "DROP  amb.clear.net.y: dropped, reason rate  <- net"}));
}

TEST_F(Trace, FiltersAndCounts) {
  const auto shown = [this](std::vector<std::string> words) {
    words.push_back("--color=never");
    return Timeless(Run(words, kFeed).out);
  };
  const std::string lost = "LOST  12 lines: this client was too slow";
  EXPECT_EQ(shown({"--id", "ryn.net", "--id", "amb.clear.net.x"}),
            (Lines{lost, "IN    ryn.net.link.down   (5)  -> nobody",
                   "OUT   amb.clear.net.x  up ()  <- net, uplink hynic0: link up", "SENT  amb.clear.net.x #8"}));
  EXPECT_EQ(shown({"--subsystem", "network"}).size(), 4U);
  EXPECT_EQ(shown({"--agent", "APD", "--in"}).size(), 2U);
  EXPECT_EQ(shown({"--agent", "net", "--subsystem", "storage"}).size(), 7U);
  EXPECT_EQ(
      Run({"--json", "--in", "--id", "ryn.net"}, kFeed).out,
      "{\"us\":1700000000000004,\"dir\":\"lost\",\"count\":12}\n"
      "{\"us\":1700000000000005,\"dir\":\"in\",\"context\":\"kernel-00\",\"id\":\"ryn.net.link.down\",\"text\":\"\","
      "\"args\":[{\"i32\":5}],\"agents\":[]}\n");
  EXPECT_EQ(Run({"--raw", "--out"}, kText).out,
            "1700000000000002 OUT amb.problem.storage.apd.start Device [naa.1] \\x1b[2J (\"naa.1\")\n"
            "1700000000000003 LOST 12\n");
  const ToolResult counted = Run({"--raw", "--count", "1"}, kText);
  EXPECT_EQ(counted.status, 0);
  EXPECT_EQ(counted.out, "1700000000000001 IN ryn.storage.apd.start a message (\"naa.1\", null)\n");
  const std::string other = "what is this\n\n1\n1 IN\n17 IN \n1x IN id m\n-1 IN id m\n1 BY id m\n1 LOST x\n1 LOST";
  EXPECT_EQ(Run({"--raw", "--id", "none"}, "18 IN x\n1 OUT id\n" + other).out, other + "\n") << "as they are";
  EXPECT_EQ(Run({"--raw", "--count", "1"}, "1 LOST x\n2 IN y\n").out, "1 LOST x\n");
  EXPECT_EQ(Run({}, "{\"dir\":7}\n{\"dir\":\"in\",\"id\":5,\"args\":{},\"agents\":[1]}\n[]\n{").out.size(), 0U)
      << "hostile";
  EXPECT_EQ(RunTool({"trace", "--agent", "nobody"}).status, 2);
}

TEST_F(Trace, EndsCleanlyByASignalAndSaysThatNoDaemonIsThere) {
  BackgroundTool tool({"trace"});
  const base::UniqueFd client = Accept();
  tool.Signal(SIGINT);
  EXPECT_EQ(tool.Result().status, 0);
  EXPECT_EQ(tool.Result().err, "");
  listen_.Reset();
  const ToolResult result = RunTool({"trace"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "rynctl: no daemon serves " + hosted::RootPath(hosted::kTraceSocket) +
                            " (start rynd, or give its root with --root)\n");
}

}  // namespace
}  // namespace rynctl
