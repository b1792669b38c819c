// The daemon's trace feed is played by the tests.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/toolRun.h"
#include "rynctl/traceLine.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

constexpr char kFeed[] =
    "1700000000000001 IN ryn.storage.apd.start a message (\"naa.1\", null)\n"
    "1700000000000002 OUT amb.problem.storage.apd.start Device [naa.1] \x1b[2J (\"naa.1\")\n"
    "1700000000000003 LOST 12\n"
    "1700000000000004 IN ryn.net.link.down  (5)\n";

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
  for (const char *part : {".000  IN   ryn.storage.apd.start  a message (\"naa.1\", null)\n",
                           ".000  OUT  amb.problem.storage.apd.start  Device [naa.1] \\x1b[2J (\"naa.1\")\n",
                           "LOST 12 lines", "IN   ryn.net.link.down   (5)\n"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << result.out;
  }
}

TEST_F(Trace, FiltersAndCounts) {
  EXPECT_EQ(Run({"--json", "--in", "--id", "ryn.net"}, kFeed).out,
            "{\"time_us\":1700000000000003,\"direction\":\"lost\",\"lost\":12}\n"
            "{\"time_us\":1700000000000004,\"direction\":\"in\",\"id\":\"ryn.net.link.down\",\"text\":\" (5)\"}\n");
  EXPECT_EQ(Run({"--raw", "--out"}, kFeed).out,
            "1700000000000002 OUT amb.problem.storage.apd.start Device [naa.1] \\x1b[2J (\"naa.1\")\n"
            "1700000000000003 LOST 12\n");
  const ToolResult counted = Run({"--raw", "--count", "1"}, kFeed);
  EXPECT_EQ(counted.status, 0);
  EXPECT_EQ(counted.out, "1700000000000001 IN ryn.storage.apd.start a message (\"naa.1\", null)\n");
  EXPECT_EQ(Run({"--raw"}, "what is this\n\n17 IN \n18 IN x").out, "what is this\n\n17 IN \n18 IN x\n");
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

TEST(TraceLine, RefusesOtherForms) {
  for (const char *line : {"", "1", "1 IN", "1 IN ", "x IN id m", "-1 IN id m", "1 BY id m", "1 LOST", "1 LOST x",
                           "99999999999999999999 IN id m"}) {
    EXPECT_FALSE(ParseTraceLine(line)) << line;
  }
  const std::optional<TraceLine> line = ParseTraceLine("1 OUT id");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->text, "");
}

}  // namespace
}  // namespace rynctl
