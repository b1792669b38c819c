// "rynctl stats" and "rynctl check" against a daemon that is well, and against everything that may be wrong with it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>
#include <set>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/showing/traceRecord.h"
#include "testing/daemon.h"
#include "testing/flight/recordedDaemon.h"
#include "testing/ledger.h"

namespace testing_support {
namespace {

using nlohmann::json;

/// Run "rynctl WORDS" below `root`.
Output Rynctl(const TestRoot &root, const std::string &words) {
  return RunShell("CORVANE_ROOT=" + (root / "") + " " RYND_BUILD "/bin/rynctl " + words + " 2>/dev/null");
}

/// The subjects of "rynctl check" that are not ok, as "SUBJECT STATE"; the exit status must suit them.
std::vector<std::string> Complaints(const TestRoot &root) {
  const Output output = Rynctl(root, "check --json");
  const json report = json::parse(output.text);
  std::vector<std::string> complaints;
  for (const json &check : report.at("checks")) {
    if (check.at("state") == "ok") continue;
    complaints.push_back(check.at("subject").get<std::string>() + " " + check.at("state").get<std::string>());
    EXPECT_NE(check.at("action"), "") << check;
  }
  const std::string worst = report.at("state");
  EXPECT_EQ(output.status, worst == "ok" ? 0 : worst == "warn" ? 1 : 2) << output.text;
  return complaints;
}
using Strings = std::vector<std::string>;

TEST(RynctlHealth, EveryFaultIsNamedWithWhatToDo) {
  RunningDaemon running;
  EXPECT_EQ(Complaints(running.root), Strings{});
  const auto kernel = ConnectKernel(running.root);

  const std::string tree = running.root / "/var/lib/corvane/host";
  WriteFile(tree + "/storage/devices/naa.1/redundancy", "7\n");
  WriteFile(tree + "/sysinfo/config/intOpts/Net/LinkFlappingThreshold", "often\n");
  EXPECT_EQ(Complaints(running.root), Strings{"settings warn"});
  const Output text = Rynctl(running.root, "check");
  EXPECT_NE(text.text.find("naa.1/redundancy: 7 is not from 0 to 3"), std::string::npos) << text.text;
  EXPECT_NE(text.text.find("'often' is no integer"), std::string::npos) << text.text;
  std::filesystem::remove_all(tree);
  // Wanted only now: it begins with the next start.
  EXPECT_NE(Rynctl(running.root, "check").text.find("off; it begins when "), std::string::npos) << text.text;
  TurnOnRecorder(running.root);
  EXPECT_EQ(Complaints(running.root), Strings{"flight recorder warn"});
  {
    const RunningDaemon recorded([](const TestRoot &root) { TurnOnRecorder(root, 8); });
    EXPECT_TRUE(WaitUntil([&] {
      const std::string told = Rynctl(recorded.root, "check").text;
      return told.find("on, a ring of 8 MiB, 2 MiB held, the oldest entry of ") != std::string::npos;
    }));
  }
  std::filesystem::remove_all(tree);

  for (int i = 0; i < 1001; ++i) ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  ExpectLedgerCloses(running.root);
  EXPECT_EQ(Complaints(running.root), Strings{"rate limit warn"});

  std::filesystem::remove(running.root / "/var/run/corvane/ryn/kernel-07");
  EXPECT_EQ(Complaints(running.root), (Strings{"contexts FAIL", "rate limit warn"}));
  running.daemon.Signal(SIGKILL);
  running.daemon.WaitForExit();
  EXPECT_EQ(Complaints(running.root), Strings{"daemon FAIL"});
}

TEST(RynctlHealth, AnAgentThatIsGoneOrDoesNotAcceptIsToldApart) {
  const TestRoot root;
  const LogListener log(root / "/dev/log");
  const std::string path = root / hosted::kEventSocket;
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor("Start polling loop."));
  EXPECT_EQ(Complaints(root), Strings{"management agent warn"});
  base::UniqueFd deaf;
  base::UniqueFd filler;
  ASSERT_EQ(hosted::ServeUnixSocket(path, SOCK_STREAM, 0660, &deaf), 0);
  EXPECT_EQ(Complaints(root), Strings{});
  EXPECT_NE(Rynctl(root, "check").text.find(" (process " + std::to_string(getpid()) + ") serves"), std::string::npos);
  listen(deaf.Get(), 0);
  ASSERT_EQ(hosted::ConnectUnixSocket(path, SOCK_STREAM, &filler), 0);
  ASSERT_TRUE(SendRecord(ConnectKernel(root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  EXPECT_TRUE(WaitUntil([&] { return Complaints(root) == Strings{"management agent FAIL"}; }, 60));
  deaf.Reset();  // it dies
  EXPECT_TRUE(WaitUntil(
      [&] {
        return Complaints(root) == (Strings{"management agent warn", "event queue warn"});
      },
      60));
}

TEST(RynctlHealth, EveryAgentBelongsToOneSubsystem) {
  RunningDaemon running;
  std::multiset<std::string> known;
  for (const auto &[subsystem, agents] : rynctl::SubsystemAgents()) known.insert(agents.begin(), agents.end());
  std::multiset<std::string> alive;
  const json statistics = ReadStatistics(running.root);
  for (const json &agent : statistics.at("agents")) alive.insert(agent.at("name"));
  EXPECT_EQ(known, alive);
}

TEST(RynctlHealth, StatisticsShowTheAgentsAndTwoLinesThatAddUp) {
  RunningDaemon running;
  const auto kernel = ConnectKernel(running.root);
  ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.nothing")));
  ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.nobody.wants")));
  ASSERT_TRUE(SendRecord(kernel, std::vector<std::byte>(7)));
  ASSERT_TRUE(running.events.Records().WaitFor("apd.start"));
  ExpectLedgerCloses(running.root);
  const Output output = Rynctl(running.root, "stats");
  EXPECT_EQ(output.status, 0);
  EXPECT_NE(output.text.find("\nAPD                   2         1         1       1       0      0 B"),
            std::string::npos)
      << output.text;
  EXPECT_NE(output.text.find("observations: 3 received = 2 matched + 1 that no agent wants\n"), std::string::npos);
  EXPECT_NE(output.text.find("events:       1 posted = 0 dropped + 1 sent + 0 waiting\n"), std::string::npos);
  EXPECT_NE(output.text.find("bad records:  1 ("), std::string::npos) << output.text;
  EXPECT_EQ(json::parse(Rynctl(running.root, "stats --json").text).at("records").at("matched"), 2);
  EXPECT_EQ(Rynctl(running.root, "stats --watch --interval 0.01 | head -n 100 | grep -c AGENT").text, "3\n");
  EXPECT_EQ(running.daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
