#include "core/agents/agents.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "core/agents/agentContext.h"
#include "core/agents/stream.h"
#include "core/basics/cancel.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

std::atomic<int> started = 0;
std::atomic<bool> released = false;

void WaitForever() {
  ++started;
  AgentReady();
  CancellablePoll(nullptr, 0);
}
void Busy() {
  AgentReady();
  while (!released) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

class AgentsTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(StreamListInit(), 0);
    started = 0;
  }
};

TEST_F(AgentsTest, AnExceptionEndsItsAgentOnly) {
  CapturedLog log;
  const AgentFunction table[] = {[] { throw std::runtime_error("no such luck"); }, [] { throw 7; }, WaitForever};
  EXPECT_EQ(StartAgents(table), 0);
  EXPECT_EQ(started, 1);
  StopAgents();
  EXPECT_EQ(log.CountOf("Exception (no such luck) in agent function(0x"), 1u);
  EXPECT_EQ(log.CountOf("Unknown exception in agent function(0x"), 1u);
  EXPECT_EQ(log.CountOf("Failed"), 0u);
}

TEST_F(AgentsTest, ThirtyTwoAgentsAtMost) {
  CapturedLog log;
  std::vector<AgentFunction> table(32, WaitForever);
  StartAgents(table);
  StartAgent(WaitForever);
  EXPECT_EQ(log.CountOf("Failed to start agent. Already reached max limit of 32 agents."), 1u);
  EXPECT_EQ(started, 32);
  StopAgents();
  StopAgents();  // nothing left to stop
  EXPECT_EQ(log.Messages().size(), 1u);
}

TEST_F(AgentsTest, AThreadThatCannotBeCreatedIsSkipped) {
  CapturedLog log;
  pthread_attr_t before;
  pthread_attr_t huge;
  pthread_getattr_default_np(&before);
  pthread_getattr_default_np(&huge);
  pthread_attr_setstacksize(&huge, size_t{1} << 50);
  pthread_setattr_default_np(&huge);
  const AgentFunction table[] = {WaitForever};
  EXPECT_EQ(StartAgents(table), 0);
  pthread_setattr_default_np(&before);
  EXPECT_EQ(log.CountOf("Failed to create thread 0x"), 1u);
  EXPECT_EQ(log.CountOf("(id:0 err:11 "), 1u);
  EXPECT_EQ(started, 0);
  StopAgents();
  EXPECT_EQ(log.Messages().size(), 1u);
}

TEST_F(AgentsTest, AnAgentThatDoesNotEndIsLeftBehind) {
  CapturedLog log;
  const AgentFunction table[] = {WaitForever, Busy, WaitForever};
  StartAgents(table);
  StopAgents();
  EXPECT_EQ(log.CountOf("Failed to join thread id:1, err:110 "), 1u);
  EXPECT_EQ(log.Messages().size(), 1u);
  released = true;
}

TEST_F(AgentsTest, InitFailuresNameTheirCodeAndLeaveNoStream) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  CapturedLog log;
  AgentContext *context = nullptr;
  const std::vector<const char *> eleven(11, "a");
  EXPECT_EQ(AgentInit("Eleven", eleven, {}, &context), 1);
  EXPECT_EQ(context, nullptr);
  EXPECT_EQ(AgentInit("ElevenIds", {}, eleven, &context), 1);
  for (const size_t size : {sizeof(AgentContext), sizeof(Stream)}) {
    EXPECT_EQ(WithoutMemoryFor(size, [&] { return AgentInit("NoMemory", {"a"}, {}, &context); }), 1);
  }
  EXPECT_EQ(log.CountOf("Failed to initialize agent Eleven (error code: 1) "), 1u);
  EXPECT_EQ(log.CountOf("Failed to initialize agent "), 4u);
  EXPECT_EQ(log.CountOf("Done cleaning up agent."), 3u);
  streamLock.Acquire();
  EXPECT_TRUE(ListIsEmpty(*StreamList()));
  streamLock.Release();
}

}  // namespace
}  // namespace rynd
