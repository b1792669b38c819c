#include "core/agents/messageFormatArgs.h"

#include <gtest/gtest.h>

#include "hosted/records/rawRecord.h"
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
      {"%zu%jd%-8td %'d", "%zu%jd%td%d"},
      {"%2$-8lu of %1$s, %12$", "%2$lu%1$s%12$"},
      {"%*lu %.*s %5$*d %Lf", "%*lu%*s%5$*d%Lf"},
  };
  for (const auto &[messageTemplate, format] : cases) EXPECT_EQ(ExtractionFormat(messageTemplate), format);
}

TEST(MessageFormatArgs, ReadsEveryWidthOrSaysThatItDoesNot) {
  const auto texts = MakeObservation(MakeRecord("ryn.a.b", {"one", "two"}));
  const char *first = nullptr, *second = nullptr;
  EXPECT_EQ(GetArgsByMessageFormat(texts.get(), "[%s] then '%-10s' (%%)", &first, &second), 0);
  EXPECT_STREQ(first, "one");
  EXPECT_STREQ(second, "two");
  EXPECT_EQ(GetArgsByMessageFormat(texts.get(), "%2$s", &first), 0);
  EXPECT_STREQ(first, "two");
  EXPECT_EQ(GetArgsByMessageFormat(texts.get(), "%s %s %s", &first, &second, &first), kRynNoArgument);
  // A success without a read would leave its caller with what stood there before. The arguments are texts.
  uint64_t wide = 7;
  for (const char *unread : {"%Lf", "%f", "%*lu", "%.*s", "%n", "%lc", "%", "%0$s", "%qd", "%lu", "%hhx"}) {
    EXPECT_EQ(GetArgsByMessageFormat(texts.get(), unread, &wide, &wide), kRynWrongKind) << unread;
  }
  EXPECT_EQ(wide, 7U);
  for (const char *integer : {"%zu", "%jd", "%td", "%lu", "%llx", "%1$lu", "%2$zu"}) {
    uint64_t read = 7;
    const hosted::RawArgument argument = hosted::Unsigned(8, UINT64_MAX - 1);
    const auto numbers = MakeObservation(hosted::RecordOf("ryn.a.b", {argument, argument}));
    EXPECT_EQ(GetArgsByMessageFormat(numbers.get(), integer, &read), 0) << integer;
    EXPECT_EQ(read, UINT64_MAX - 1) << integer;
  }
}

}  // namespace
}  // namespace rynd
