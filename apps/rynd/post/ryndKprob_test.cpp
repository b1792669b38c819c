#include "post/ryndKprob.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string_view>

#include "post/eventRecord.h"
#include "post/ryndKprobQueue.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

/// Every test begins with a management agent that serves its socket.
class PostTest : public testing::Test {
 protected:
  void SetUp() override { agent_.Open(); }
  static std::string Name(const std::string &record) { return record.c_str() + kEventNameOffset; }
  EventSocket agent_;
};

TEST_F(PostTest, TheRecordHoldsNameArgumentsAndFourZeroBytes) {
  EventPostInit();
  CapturedLog log;
  EventPost(kProblem, "@&!*@*@(amb.problem.a)Device [%s] after %d seconds, %lu.", "naa.1", -5, (1UL << 40));
  const std::string record = agent_.Next();
  const std::string_view behindTheUuid(
      "\0\0\x8c\0\0\0\x03\0\0\0\x0e\0\0\0amb.problem.a\0"
      "\x03\0\0\0\x06\0\0\0\x30\0\0\0\0\0\0\0"
      "\x01\0\0\0\x04\0\0\0\xfb\xff\xff\xff\xff\xff\xff\xff"
      "\x02\0\0\0\x08\0\0\0\0\0\0\0\0\x01\0\0naa.1\0"
      "\0\0\0\0",
      86);
  EXPECT_EQ(record.substr(kEventUuidOffset + kEventUuidSize), behindTheUuid);
  EXPECT_EQ(record[kEventUuidOffset + 8], '-');  // the UUID's text
  const std::string text = "[amb.problem.a] Device [naa.1] after -5 seconds, 1099511627776.";
  EXPECT_EQ(log.CountOf("The event (" + text + ") was sent immediately to mgmtd;"), 1u);
  EXPECT_EQ(log.CountOf("us: " + text), 1u);
}

TEST_F(PostTest, TheCategoryAloneCutsTheId) {
  EventPost(kClear, "@&!*@*@(amb.clear.a.exit)x");
  EventPost(kAudit, "@&!*@*@(amb.audit.a)x");
  EventPost(kAudit, "@&!*@*@(amb.problem.a)x");
  EventPost(kProblem, "short");
  EventPost(kProblem, "@&!*@*@(amb.problem.unclosed");
  for (const char *name :
       {"amb.clear.a.exit", "amb.audit.a", "amb.audit.m.a", "amb.problem.", "amb.problem.unclosed"}) {
    EXPECT_EQ(Name(agent_.Next()), name);
  }
}

TEST_F(PostTest, ANameIsAtMost128Characters) {
  const std::string fits(116, 'x');
  Rynd_PostProblem(fits.c_str(), "text");
  EXPECT_EQ(Name(agent_.Next()), "amb.problem." + fits);
  CapturedLog log;
  Rynd_PostProblem((fits + "x").c_str(), "text");
  EXPECT_EQ(agent_.Next(), "");
  EXPECT_EQ(log.Messages(),
            std::vector<std::string>{"Using discouraged \"Rynd_PostProblem\" interface for kprob: " + fits + "x"});
}

TEST_F(PostTest, LargeArgumentsGrowTheBufferFourTimesAndNoMore) {
  // 68 + 14 for the name's part, 16 for the descriptor, 4 behind: what a text and its NUL may take of a buffer.
  const size_t overhead = 68 + sizeof("amb.problem.a") + 16 + 4 + 1;
  for (const size_t buffer : {1171u, 2342u, 4684u, 9368u, 18736u}) {
    for (const size_t beyond : {0u, 1u}) {
      const std::string text(buffer - overhead + beyond, 't');
      EventPost(kProblem, "@&!*@*@(amb.problem.a)%s", text.c_str());
      const std::string record = agent_.Next();
      const bool fits = buffer + beyond <= 18736;
      ASSERT_EQ(record.size(), fits ? buffer + beyond : 0);
      EXPECT_TRUE(!fits || record.substr(record.size() - 4 - text.size() - 1, text.size()) == text);
    }
  }
}

TEST_F(PostTest, WithoutMemoryTheEventIsDroppedAndSaidSo) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  CapturedLog log;
  WithoutMemoryFor(2 * 1171, [] { EventPost(kProblem, "@&!*@*@(amb.problem.a)x"); });
  const std::string large(2000, 'x');
  WithoutMemoryFor(2 * 2342, [&] { EventPost(kProblem, "@&!*@*@(amb.problem.a)%s", large.c_str()); });
  EXPECT_EQ(agent_.Next(), "");
  EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Failed to allocate 1171 bytes for prob buffer.",
                                                      "Failed to allocate 2342 bytes for prob buffer."}));
}

TEST_F(PostTest, FatalCases) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  CapturedLog log;
  EXPECT_EXIT(EventPost(3, "@&!*@*@(amb.problem.a)x"), testing::KilledBySignal(SIGABRT),
              "Rynd - Panic: NOT_REACHED apps/rynd/ryndKprob:656");
  EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Rynd - Panic: ", "NOT_REACHED apps/rynd/ryndKprob:656 "}));
  EXPECT_DEATH(WithoutMemoryFor(6, [] { EventPost(kProblem, "@&!*@*@(amb.problem.short)x"); }),
               "Rynd - Panic: MEM_ALLOC apps/rynd/ryndKprob:667");
}

}  // namespace
}  // namespace rynd
