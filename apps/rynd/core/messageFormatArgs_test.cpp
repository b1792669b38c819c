#include "core/messageFormatArgs.h"

#include <gtest/gtest.h>

#include "platform/ryn.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

TEST(MessageFormatArgs, KeepsTheConversionsAlone) {
  const std::pair<const char *, const char *> cases[] = {
      {"", ""},
      {"no conversions, 100%%", ""},
      {"Page %#lx of %s: %d errors (%+u, %-8x)", "%lx%s%d%u%x"},
      {"%08llx%hhu%% %5.3s", "%llx%hhu%s"},
      {"cut off: %", "%"},
      {"cut off: %-0l", "%l"},
  };
  for (const auto &[messageTemplate, format] : cases) EXPECT_EQ(ExtractionFormat(messageTemplate), format);
}

TEST(MessageFormatArgs, ReadsTheArgumentsInOrder) {
  Observation *observation = MakeObservation("ryn.a.b", {"one", "two"});
  const char *first = nullptr;
  const char *second = nullptr;
  EXPECT_EQ(GetArgsByMessageFormat(observation, "[%s] then '%-10s' (%%)", &first, &second), 0);
  EXPECT_STREQ(first, "one");
  EXPECT_STREQ(second, "two");
  int number = 7;
  EXPECT_EQ(GetArgsByMessageFormat(observation, "[%s] then %d", &first, &number), kRynWrongKind);
  EXPECT_EQ(GetArgsByMessageFormat(observation, "%s %s %s", &first, &second, &first), kRynNoArgument);
  EXPECT_EQ(number, 7);
  Ryn_Free(observation);
}

}  // namespace
}  // namespace rynd
