// The daemon's life as its users see it: start, refusals, signals, exit status.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <filesystem>
#include <set>

#include "testing/daemon.h"

namespace testing_support {
namespace {

const char kReady[] = "rynd setup completed. Start polling loop.";

TEST(Life, StopsByEitherSignalAndSurvivesABrokenPipe) {
  for (const int number : {SIGTERM, SIGINT}) {
    RunningDaemon running;
    running.daemon.Signal(SIGPIPE);
    ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
    EXPECT_TRUE(running.events.Records().WaitFor("amb.problem.storage.apd.start"));
    EXPECT_TRUE(running.log.Lines().WaitFor("was sent immediately to mgmtd;"));
    running.daemon.Signal(number);
    EXPECT_EQ(running.daemon.WaitForExit(), 0);
    ASSERT_TRUE(running.log.Lines().WaitFor("Exiting. rc:0"));
    EXPECT_EQ(running.log.Lines().IndexOf("Exiting due to signal."), running.log.Lines().IndexOf("Exiting. rc:0") - 1);
    EXPECT_EQ(ReadFile(running.root / "/stderr"), "");
  }
}

TEST(Life, ASecondDaemonOnTheSameRootIsRefusedAndHarmless) {
  RunningDaemon running;
  Daemon second(running.root);
  const int status = second.WaitForExit();
  EXPECT_EQ(status, EADDRINUSE);
  EXPECT_NE(ReadFile(running.root / "/stderr").find("kernel-00"), std::string::npos);
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root, 28), MakeRecord("ryn.storage.apd.exit", {"naa.1"})));
  EXPECT_TRUE(running.events.Records().WaitFor("amb.clear.storage.apd.exit"));
  ConnectTrace(running.root);
  EXPECT_EQ(running.daemon.Stop(), 0);
}

TEST(Life, StartsAgainOverTheSocketsOfOneThatWasKilled) {
  const TestRoot root;
  const LogListener log(root / "/dev/log");
  for (size_t i = 1; i <= 3; ++i) {
    Daemon daemon(root);
    ASSERT_TRUE(log.Lines().WaitFor(kReady, i));
    daemon.Signal(SIGKILL);
    EXPECT_EQ(daemon.WaitForExit(), 128 + SIGKILL);
  }
}

TEST(Life, AStopLeavesNoSocketBehindButOthersOwn) {
  for (const bool isReplaced : {false, true}) {
    RunningDaemon running;
    const std::string folder = running.root / "/var/run/corvane/";
    if (isReplaced) {
      for (const char *name : {"rynd-trace.sock", "ryn-user.sock", "ryn/kernel-05"}) {
        std::filesystem::remove(folder + name);
        WriteFile(folder + name, "another's\n");
      }
    }
    running.daemon.Signal(SIGTERM);
    EXPECT_EQ(running.daemon.WaitForExit(), 0);
    std::set<std::string> left;
    for (const auto &file : std::filesystem::recursive_directory_iterator(folder)) {
      if (!file.is_directory() && file.path().filename() != ".lock") left.insert(file.path().filename());
    }
    std::set<std::string> expected{"mgmtd-kprob.sock"};
    if (isReplaced) expected.insert({"rynd-trace.sock", "ryn-user.sock", "kernel-05"});
    EXPECT_EQ(left, expected);
  }
}

TEST(Life, APathThatIsTooLongIsNamed) {
  const TestRoot root;
  const std::string deep = "/" + std::string(80, 'd');
  std::filesystem::create_directories(root / deep);
  Daemon daemon(root, {}, deep);
  EXPECT_EQ(daemon.WaitForExit(), ENAMETOOLONG);
  EXPECT_NE(ReadFile(root / "/stderr").find(deep + "/var/run/corvane/ryn/kernel-00"), std::string::npos);
}

TEST(Life, APollThatFailsEndsItWithStatus255) {
  RunningDaemon running;
  const rlimit few{10, 10};  // below the number of slots: poll refuses its next call
  ASSERT_EQ(prlimit(running.daemon.Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.storage.apd.start", {"naa.1"})));
  EXPECT_EQ(running.daemon.WaitForExit(), 255);
  EXPECT_TRUE(running.log.Lines().WaitFor("Exiting. rc:-1"));
}

}  // namespace
}  // namespace testing_support
