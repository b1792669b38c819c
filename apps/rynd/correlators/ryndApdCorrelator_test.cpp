#include <gtest/gtest.h>

#include "correlators/catalog.h"
#include "correlators/correlators.h"
#include "correlators/defaultHandlers.h"
#include "platform/ryn.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

constexpr Fields kThree = {{ArgType::kStr, ArgType::kInt, ArgType::kLong}, "%p %d %ld"};
constexpr auto kTestRows = std::to_array<PostRow>({
    {"ryn.t.by.format", kAudit, kThree, "@&!*@*@(amb.audit.t)%d, %s", {1, 0}},
    {"ryn.t.by.index", kProblem, {{ArgType::kStr}}, "@&!*@*@(amb.problem.t)100%% of %s"},
});

template <const auto &kRows, size_t kRow>
size_t EventsOf(const std::string &id, const std::vector<std::string> &texts, const std::string &event) {
  CapturedLog log;
  Observation *observation = MakeObservation(id, texts);
  PostRowHandler<kRows, kRow>(observation);
  Ryn_Free(observation);
  return log.CountOf("us: [" + event);
}

TEST(PostRow, AFailingReadPostsNothing) {
  EXPECT_EQ((EventsOf<kTestRows, 1>("ryn.t.by.index", {"x"}, "amb.problem.t] 100% of x")), 1u);
  EXPECT_EQ((EventsOf<kTestRows, 1>("ryn.t.by.index", {""}, "amb.problem.t] 100% of ")), 1u);
  EXPECT_EQ((EventsOf<kTestRows, 1>("ryn.t.by.index", {}, "amb.")), 0u);
  EXPECT_EQ((EventsOf<kTestRows, 0>("ryn.t.by.format", {"x", "not a number"}, "amb.")), 0u);
}

TEST(Catalog, HoldsEveryRowOnceUnderItsName) {
  size_t rows = 0;
  for (const PostRow &row : ApdPostRows()) {
    ++rows;
    const std::string_view format(row.format);
    const CatalogMessage *message = FindCatalogMessage(format.substr(8, format.find(')') - 8));
    ASSERT_NE(message, nullptr) << row.id;
    EXPECT_EQ(message->category, row.category);
    EXPECT_TRUE(format.ends_with(message->message));
  }
  EXPECT_EQ(Catalog().size(), rows);
  EXPECT_EQ(FindCatalogMessage("amb.problem.storage"), nullptr);
}

TEST(DefaultHandlers, NameTheIdOrItsAbsence) {
  CapturedLog log;
  Observation *observation = MakeObservation("ryn.storage.apd.other");
  LogNoCorrelator(observation);
  Ryn_Free(observation);
  EXPECT_EQ(log.Messages(), std::vector<std::string>{"No correlator for ryn.storage.apd.other "});
}

}  // namespace
}  // namespace rynd
