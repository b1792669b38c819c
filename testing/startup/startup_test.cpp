// Every way in which the start-up and the poll loop can fail, made by replacing what they call.
#include "core/startup.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <numeric>

#include "core/basics/cancel.h"
#include "core/pollLoop.h"
#include "hosted/host/sysinfo.h"
#include "hosted/paths.h"
#include "startup/fakes.h"
#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

using startup_test::world;

int agentsSeen = 0;

void CountAgent() {
  ++agentsSeen;
  AgentReady();
  CancellablePoll(nullptr, 0);
}

class StartupTest : public testing::Test {
 protected:
  void SetUp() override {
    world = {};
    world.onPoll = [](pollfd *, nfds_t) {
      world.stopped = true;
      errno = EINTR;
      return -1;
    };
    agentsSeen = 0;
    testing_support::ClearHost();
    ASSERT_EQ(hosted::MakeFolders(hosted::RootPath("/var/run/corvane"), 0755), 0);
  }
  static int RunDaemon(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), "rynd");
    std::vector<char *> argv;
    for (std::string &word : arguments) argv.push_back(word.data());
    optind = 0;
    const AgentFunction table[] = {CountAgent};
    return rynd::Run(static_cast<int>(arguments.size()), argv.data(), table);
  }
  /// The log's last two lines of a failure with `rc`.
  void ExpectFailure(int rc) {
    const std::vector<std::string> &lines = log_.Messages();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "rynd setup completed. Start polling loop.");
    EXPECT_EQ(lines.back(), "Exiting. rc:" + std::to_string(rc));
    EXPECT_EQ(world.opened, world.closed);
  }
  /// Make the next wait of the poll loop find `slot` readable, and the one after that a stop.
  static void MakeReadable(size_t slot) {
    world.onPoll = [slot, stop = world.onPoll](pollfd *set, nfds_t count) {
      if (world.reads > 0) return stop(set, count);
      set[slot].revents = POLLIN;
      return 1;
    };
  }
  CapturedLog log_;
};

TEST_F(StartupTest, ASignalEndsItCleanly) {
  EXPECT_EQ(RunDaemon(), 0);
  EXPECT_EQ(log_.Messages(),
            (std::vector<std::string>{"0 of 1 agents run.", "rynd setup completed. Start polling loop.",
                                      "Exiting due to signal.", "Exiting. rc:0"}));
  std::vector<uint32_t> all(30);
  std::iota(all.begin(), all.end(), 0u);
  EXPECT_EQ(world.opened, all);
  EXPECT_EQ(world.closed, all);
  EXPECT_EQ(agentsSeen, 1);
  EXPECT_EQ(testing_support::TakeActions(), "");
}

TEST_F(StartupTest, EachStepThatFailsEndsItWithItsStatus) {
  const struct {
    std::function<void()> fail;
    int status;
    size_t opened;
  } steps[] = {{[] { world.signalStatus = EINVAL; }, EINVAL, 0}, {[] { world.failingContext = 0; }, 93, 0},
               {[] { world.failingContext = 13; }, 93, 13},      {[] { world.failingContext = 28; }, 93, 28},
               {[] { world.failingContext = 29; }, 93, 29},      {[] { world.lockStatus = EAGAIN; }, EAGAIN, 30}};
  for (const auto &step : steps) {
    SetUp();
    step.fail();
    EXPECT_EQ(RunDaemon(), step.status);
    ExpectFailure(step.status);
    EXPECT_EQ(world.opened.size(), step.opened);
    EXPECT_EQ(agentsSeen, 0);
  }
  SetUp();
  EXPECT_EQ(RunDaemon({"-h"}), 0);
  EXPECT_TRUE(world.opened.empty());
}

TEST_F(StartupTest, SignatureMismatchIsFatal) {
  testing_support::PutHost("sysinfo/system/buildSignature", "Jan  1 2030 00:00:00\n");
  EXPECT_DEATH(RunDaemon(),
               "Rynd - Panic: md5 signature mismatch with running hykernel built on Jan  1 2030 00:00:00 "
               "\\(my build date: [A-Z]");
}

TEST_F(StartupTest, EnablingIsWrittenOnceAndItsFailureEndsTheStart) {
  EXPECT_EQ(RunDaemon({"-e"}), 0);
  EXPECT_EQ(testing_support::TakeActions(), "config/intOpts\tMisc\tRynAsyncEnable\t1;");
  testing_support::ClearHost();
  testing_support::PutHost("sysinfo/config/intOpts/Misc", "no folder");
  EXPECT_EQ(RunDaemon({"--enableryns"}), ENOTDIR);
  ExpectFailure(ENOTDIR);
}

TEST_F(StartupTest, WithoutMemory) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  const auto run = [] { return RunDaemon(); };
  EXPECT_EQ(WithoutMemoryFor(kFixedSlots * sizeof(pollfd), run), 1);
  ExpectFailure(1);
  EXPECT_TRUE(world.opened.empty());
  EXPECT_EQ(WithoutMemoryFor(8192, run), 12);  // the buffer for observations
  ExpectFailure(12);
  EXPECT_EQ(log_.CountOf("Error allocating space for ryn buffer. Out of memory"), 1u);
  EXPECT_EQ(agentsSeen, 1);
  EXPECT_EQ(WithoutMemoryFor(sizeof(HSI_ParamList), [] { return RunDaemon({"-e"}); }), ENOMEM);
  ExpectFailure(ENOMEM);
  nfds_t slots = 0;
  world.onPoll = [&slots, stop = world.onPoll](pollfd *set, nfds_t count) {
    slots = count;
    return stop(set, count);
  };
  EXPECT_EQ(WithoutMemoryFor(kAllSlots * sizeof(pollfd), run), 0);
  EXPECT_EQ(slots, kFixedSlots);
}

TEST_F(StartupTest, AKernelContextThatFailsStopsTheDaemon) {
  world.readStatus = EIO;
  MakeReadable(7);
  EXPECT_EQ(RunDaemon(), EIO);
  EXPECT_EQ(log_.Messages().back(), "Exiting. rc:" + std::to_string(EIO));
  EXPECT_EQ(world.resets, 0);
}

TEST_F(StartupTest, ARecordThatIsTooLargeResetsItsContext) {
  world.readStatus = 27;
  world.resetStatus = EIO;  // even then it goes on
  MakeReadable(28);
  EXPECT_EQ(RunDaemon(), 0);
  EXPECT_EQ(world.resets, 1);
  EXPECT_EQ(world.buffer, 131072u);
  EXPECT_EQ(world.reads, 8);  // 8192, then half as much again each time
}

TEST_F(StartupTest, AHandleThatDoesNotCloseIsLogged) {
  world.failingClose = 3;
  EXPECT_EQ(RunDaemon(), 0);
  EXPECT_EQ(log_.CountOf("Error closing handle 0x"), 1u);
  EXPECT_EQ(log_.CountOf(": 5"), 1u);
  EXPECT_EQ(world.closed.size(), 30u);
}

}  // namespace
}  // namespace rynd
