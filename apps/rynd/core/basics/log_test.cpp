#include "core/basics/log.h"

#include <gtest/gtest.h>

#include "platform/ryn.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

TEST(Log, LogsAnObservation) {
  CapturedLog log;
  Observation *observation = MakeObservation("ryn.a.b", {}, "what happened");
  LogObservation(observation);
  Ryn_Free(observation);
  EXPECT_EQ(log.Messages(), std::vector<std::string>{"0us: [ryn.a.b] what happened"});
}

TEST(Log, PanicWritesTwiceToBothAndAborts) {
  CapturedLog log;
  EXPECT_EXIT(Panic("NOT_REACHED %s:%d \n", "here", 12), testing::KilledBySignal(SIGABRT),
              "Rynd - Panic: NOT_REACHED here:12 \n");
  EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Rynd - Panic: ", "NOT_REACHED here:12 "}));
}

}  // namespace
}  // namespace rynd
