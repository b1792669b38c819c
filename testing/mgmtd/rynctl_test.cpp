// What rynctl shows of the agent: beside it, without it, and while its store fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "rynctl/showing/testEvent.h"
#include "rynctl/toolRun.h"
#include "testing/daemon.h"
#include "testing/mgmtd/agentProcess.h"

namespace testing_support {
namespace {

using nlohmann::json;
using rynctl::EventBytes;
using rynctl::kApdStart;
using rynctl::kTestTime;
using rynctl::RunTool;
using rynctl::ToolResult;

class RynctlAgent : public testing::Test {
 protected:
  void SetUp() override { rynctl::CleanRoot(); }
  void Send(const std::string &name, const std::vector<std::string> &texts) {
    ++sent_;
    ASSERT_TRUE(SendEvent(ProcessRoot(), EventBytes(name, texts, sent_, kTestTime + sent_)));
    ASSERT_TRUE(WaitUntil([&] {
      return Ask(ProcessRoot(), {{"do", "status"}}).value("stored", uint64_t{0}) == sent_;
    }));
  }
  uint64_t sent_ = 0;
};

void ExpectScreen(const std::string &text) {
  for (const std::string &line : Lines(text)) EXPECT_LE(line.size(), 80U) << line;
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << "nothing of an event may steer a terminal";
}

TEST_F(RynctlAgent, ProblemsAreAMonitoringCheck) {
  EXPECT_EQ(RunTool({"problems"}).status, 2) << "neither agent nor store";
  auto agent = std::make_unique<AgentProcess>(ProcessRoot());
  EXPECT_EQ(RunTool({"problems"}).status, 0);
  Send("amb.problem.velfs.ramdisk.full", {"tmp", "/tmp/x"});
  Send(kApdStart, {"naa.\x1b[31m1"});
  Send("amb.problem.bootdevice.pdl.v2", {"naa.2"});
  Send(kApdStart, {"naa.\x1b[31m1"});
  ToolResult result = RunTool({"problems"});
  EXPECT_EQ(result.status, 1);
  ExpectScreen(result.out);
  const size_t critical = result.out.find("critical");
  EXPECT_LT(critical, result.out.find("error"));
  EXPECT_NE(result.out.find("2  naa.\\x1b[31m1"), std::string::npos) << result.out;
  EXPECT_EQ(RunTool({"ack", "2"}).out, "Ended 1 problem of event 2.\n");
  EXPECT_EQ(RunTool({"ack", "2"}).status, 1);
  EXPECT_EQ(RunTool({"ack", "1", "--subject", "another"}).status, 1);
  EXPECT_EQ(json::parse(RunTool({"problems", "--json"}).out)["problems"].size(), 2U);
  EXPECT_EQ(json::parse(RunTool({"problems", "--json", "--all"}).out)["problems"].size(), 3U);
  result = RunTool({"show", "4"});
  ExpectScreen(result.out.substr(0, result.out.find("Try it")));
  EXPECT_NE(result.out.find("told 2 times"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("by hand: "), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("What to do"), std::string::npos);
  EXPECT_EQ(json::parse(RunTool({"show", "4", "--json"}).out)["problems"][0]["times"], 2);
  EXPECT_EQ(RunTool({"show", "99"}).status, 1);
  EXPECT_EQ(RunTool({"show", "x"}).status, 2);

  EXPECT_EQ(agent->End(SIGTERM), 0);
  result = RunTool({"problems"});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("start rynmgmtd"), std::string::npos);
  EXPECT_NE(result.out.find("2 open: "), std::string::npos) << "its store still tells";
  EXPECT_EQ(RunTool({"ack", "1"}).status, 1);
}

TEST_F(RynctlAgent, HistoryWorksWithoutTheAgent) {
  {
    AgentProcess agent(ProcessRoot());
    Send(kApdStart, {"naa.1"});
    Send("amb.clear.storage.apd.exit", {"naa.1"});
    Send("amb.problem.velfs.ramdisk.full", {"tmp", "\x1b[2J"});
    EXPECT_EQ(agent.End(SIGKILL), 128 + SIGKILL);
  }
  const auto history = [](std::vector<std::string> words) {
    words.insert(words.begin(), "history");
    return RunTool(words);
  };
  const auto lines = [&](const std::vector<std::string> &options) {
    const ToolResult result = history(options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
    return std::ranges::count(result.out, '\n');
  };
  EXPECT_EQ(lines({}), 3);
  EXPECT_EQ(lines({"--name", "storage", "--name", "velfs"}), 3);
  EXPECT_EQ(lines({"--subject", "naa.1"}), 2);
  EXPECT_EQ(lines({"--category", "clear"}), 1);
  EXPECT_EQ(lines({"--severity", "warning"}), 2);
  EXPECT_EQ(lines({"--count", "2"}), 2);
  EXPECT_EQ(lines({"--since", "today"}), 0);
  EXPECT_EQ(lines({"--until", "@1700000001", "--since", "2023-11-14T00:00Z", "--json"}), 3);
  for (const std::vector<std::string> &wrong :
       {std::vector<std::string>{"--since", "soon"}, {"--category", "trouble"}, {"--count", "0"}, {"--nmae", "x"}}) {
    EXPECT_EQ(history(wrong).status, 2) << wrong[0];
  }
  EXPECT_NE(history({"--nmae", "x"}).err.find("did you mean --name"), std::string::npos);
}

}  // namespace
}  // namespace testing_support
