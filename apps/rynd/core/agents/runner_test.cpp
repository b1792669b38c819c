#include "core/agents/runner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>

#include "core/agents/agents.h"
#include "core/agents/stream.h"
#include "platform/ryn.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

std::atomic<int> handled = 0;
std::atomic<int> defaulted = 0;
std::atomic<int> ticks = 0;
int tickPipe[2];

void Handle(Observation *) {
  ++handled;
}
void Default(Observation *) {
  ++defaulted;
  throw std::runtime_error("ignored");
}

HandlerTable Table() {
  HandlerTable table;
  table["ryn.a.handled"] = Handle;
  table["ryn.a.throws"] = [](Observation *) { throw std::runtime_error("ignored"); };
  table["ryn.a.ends"] = [](Observation *) { throw 7; };
  return table;
}

bool WaitFor(const std::atomic<int> &count, int wanted) {
  return testing_support::WaitUntil([&] { return count >= wanted; }) && count == wanted;
}

class RunnerTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(StreamListInit(), 0);
    handled = defaulted = ticks = 0;
  }
  void TearDown() override { StopAgents(); }
  static void Start(AgentFunction agent) {
    const AgentFunction table[] = {agent};
    StartAgents(table);
  }
};

TEST_F(RunnerTest, LogsHandledObservationsFirstAndSurvivesStandardExceptions) {
  CapturedLog log;
  Start([] { RunCorrelator("A", "a", Default, Table()); });
  LockedFanOut(MakeRecord("ryn.a.throws", {}, "first message"));
  LockedFanOut(MakeRecord("ryn.a.unknown"));
  LockedFanOut(MakeRecord("ryn.a.handled"));
  EXPECT_TRUE(WaitFor(handled, 1));
  EXPECT_EQ(defaulted, 1);
  EXPECT_EQ(log.Messages(), (std::vector<std::string>{"0us: [ryn.a.throws] first message", "0us: [ryn.a.handled] m"}));
}

TEST_F(RunnerTest, AnAgentThatEndsLeavesTheFanOut) {
  CapturedLog log;
  Start([] { RunCorrelator("A", "a", Default, Table()); });
  LockedFanOut(MakeRecord("ryn.a.ends"));
  testing_support::WaitUntil([&] { return log.CountOf("Unknown exception in agent function(0x") > 0; });
  EXPECT_EQ(log.CountOf("Done cleaning up agent."), 1u);
  streamLock.Acquire();
  EXPECT_TRUE(ListIsEmpty(*StreamList()));
  streamLock.Release();
  Start([] {
    HandlerTable table;
    table["ryn.b.handled"] = Handle;
    RunCorrelator("B", "b", Default, table);
  });
  const auto forTheDead = MakeRecord("ryn.a.handled");
  const auto forTheOther = MakeRecord("ryn.b.handled");
  for (int i = 0; i < 1'000'000; ++i) {
    ASSERT_EQ(LockedFanOut(forTheDead), 0);
    if (i % 100'000 == 0) {
      ASSERT_EQ(LockedFanOut(forTheOther), 0);
    }
  }
  EXPECT_TRUE(WaitFor(handled, 10));
}

TEST_F(RunnerTest, FiltersByPrefixesAndExactIds) {
  Start([] {
    HandlerTable table;
    table["ryn.c.exact"] = Handle;
    RunCorrelatorFiltered("F", {"a", "b"}, {"ryn.c.exact"}, Default, table);
  });
  for (const char *id : {"ryn.a.x", "ryn.b.x", "ryn.c.other", "ryn.c.exact"}) LockedFanOut(MakeRecord(id));
  EXPECT_TRUE(WaitFor(handled, 1));
  EXPECT_EQ(defaulted, 2);
}

TEST_F(RunnerTest, TheTimerVariantServesItsStreamAndItsDescriptors) {
  ASSERT_EQ(pipe(tickPipe), 0);
  Start([] {
    RunCorrelatorWithTimer(
        "T", "a", Default, Table(), [] { ++ticks; }, tickPipe, 1);
  });
  ASSERT_EQ(write(tickPipe[1], "x", 1), 1);
  EXPECT_TRUE(WaitFor(ticks, 1));
  LockedFanOut(MakeRecord("ryn.a.handled"));
  EXPECT_TRUE(WaitFor(handled, 1));
  ASSERT_EQ(write(tickPipe[1], "0123456789ab", 12), 12);  // ten bytes a call
  EXPECT_TRUE(WaitFor(ticks, 3));
  StopAgents();
  close(tickPipe[0]);
  close(tickPipe[1]);
}

}  // namespace
}  // namespace rynd
