#include "correlators/rows/postRow.h"

#include "testing/postedEvents.h"

namespace rynd {
namespace {

constexpr Fields kThree = {{ArgType::kStr, ArgType::kInt, ArgType::kLong}, "%p %d %ld"};
constexpr Fields kNarrow = {{ArgType::kShort, ArgType::kByte}, "%hu %hhu"};
constexpr Fields kTwo = {{ArgType::kStr, ArgType::kInt}};
constexpr auto kRows = std::to_array<PostRow>({
    {"ryn.t.by.format", kAudit, kThree, "@&!*@*@(amb.audit.t)%d, %s", {1, 0}},
    {"ryn.t.by.index", kProblem, {{ArgType::kStr}}, "@&!*@*@(amb.problem.t)100%% of %s"},
    {"ryn.t.narrow", kClear, kNarrow, "@&!*@*@(amb.clear.t)%hu %hhu"},
});
constexpr auto kShared = std::to_array<PostRow>({
    {"ryn.t.one", kProblem, kTwo, "@&!*@*@(amb.problem.one)%s %#x"},
    {"ryn.t.two", kAudit, kTwo, "@&!*@*@(amb.audit.two)%d %s", {1, 0}},
});
constexpr EventMessage kLoose = {kClear, "@&!*@*@(amb.clear.loose)%s %lu"};

void LogFailure(const char *id, uint32_t field, int status) {
  Log("%s: argument %u: %d\n", id, field, status);
}

HandlerTable Handlers() {
  HandlerTable table;
  AddPostRows<kRows>(&table);
  AddSharedRows<kShared, LogFailure>(&table);
  return table;
}

TEST(PostRow, PostsItsArgumentsOrNothing) {
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.index", {Str("x")}), Events{"amb.problem.t 100% of x"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.index", {Str("")}), Events{"amb.problem.t 100% of "});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.index", {NullStr()}), Events{"amb.problem.t 100% of (null)"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.index", {}), Events{});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.format", {Str("x"), Int(-3), Long(4)}), Events{"amb.audit.t -3, x"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.by.format", {Str("x"), Str("3"), Long(4)}), Events{});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.narrow", {Int(65535), Int(255)}), Events{"amb.clear.t 65535 255"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.narrow", {Int(65536), Int(255)}), Events{});
}

TEST(SharedRows, PickTheRowOfTheIdAndSayWhatFailed) {
  CapturedLog log;
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.one", {Str("x"), Int(17)}), Events{"amb.problem.one x 0x11"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.two", {Str("x"), Int(17)}), Events{"amb.audit.two 17 x"});
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.two", {Str("x")}), Events{});
  EXPECT_EQ(log.CountOf("ryn.t.two: argument 1: 75"), 1u);
  EXPECT_EQ(EventsOf(Handlers(), "ryn.t.two", {Int(1), Int(2)}), Events{});
  EXPECT_EQ(log.CountOf("ryn.t.two: argument 0: 22"), 1u);
}

TEST(PostMessage, PostsItsValues) {
  TakeEvents();
  PostMessage<kLoose>("x", uint64_t{1} << 63);
  EXPECT_EQ(TakeEvents(), Events{"amb.clear.loose x 9223372036854775808"});
}

}  // namespace
}  // namespace rynd
