// Which event ends which problem: a loop over the catalogue, and what it does not say.
#include "mgmtd/problems/problemTable.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mgmtd {
namespace {

int64_t nextEvent = 1;

bool IsList(const catalog::Event &entry, const std::string &argument) {
  return std::ranges::any_of(
      entry.subject, [&](const catalog::Subject &subject) { return subject.list && subject.argument == argument; });
}

/// An event whose arguments are what `pairs` says by name, others their own name; lists hold a further name.
Happening Make(const catalog::Event &entry, const std::map<std::string, std::string> &values) {
  Happening event{&entry, nextEvent++, nextEvent * 1000, {}, "text", "host"};
  for (const std::string &argument : entry.arguments) {
    const auto value = values.find(argument);
    std::string text = value == values.end() ? "any " + argument : value->second;
    if (IsList(entry, argument) && !text.empty()) text = "\"" + text + "\", \"further\"";
    event.arguments.emplace_back(argument, text);
  }
  return event;
}

std::vector<Problem> Of(const ProblemTable &table, const std::string &name, const std::string &part) {
  std::vector<Problem> found = table.Open();
  std::erase_if(found, [&](const Problem &problem) {
    return problem.name != name || (!part.empty() && std::ranges::none_of(problem.about, [&](const auto &argument) {
             return argument.second == part;
           }));
  });
  return found;
}

/// Values of both events' arguments such that `pairs` hold, each value of its own.
void Agree(const catalog::Pairs &pairs, const std::string &salt, std::map<std::string, std::string> *mine,
           std::map<std::string, std::string> *theirs) {
  for (size_t i = 0; i < pairs.size(); ++i) {
    const std::string value = salt + std::to_string(i);
    (*mine)[pairs[i].first] = value;
    (*theirs)[pairs[i].second] = value;
  }
}

void ExpectPairing(const catalog::Event &clear, const catalog::Clearing &clearing) {
  const catalog::Event &problem = *catalog::FindEvent(clearing.problem);
  SCOPED_TRACE(clear.name + " and " + problem.name);
  std::map<std::string, std::string> mine, theirs, others, foreign;
  Agree(clearing.where, "same", &mine, &theirs);
  Agree(clearing.where, "other", &others, &foreign);
  ProblemTable table;
  const Happening first = Make(problem, theirs);
  table.Apply(first);
  table.Apply(Make(problem, foreign));
  const size_t of = Of(table, problem.name, clearing.where.empty() ? "" : "same0").size();
  ASSERT_GT(of, 0U);

  // Whatever else there is of the same subject leaves it open, each part of it too.
  for (const catalog::Event &event : catalog::Events()) {
    const bool ends = std::ranges::any_of(event.clears, [&](const auto &one) { return one.problem == problem.name; });
    if (ends) continue;
    std::map<std::string, std::string> values = mine;
    values.merge(std::map(theirs));
    table.Apply(Make(event, values));
  }
  ASSERT_EQ(Of(table, problem.name, clearing.where.empty() ? "" : "same0").size(), of);
  for (const auto &[argument, theirName] : clearing.where) {
    std::map<std::string, std::string> wrong = mine;
    wrong[argument] = "wrong";
    table.Apply(Make(clear, wrong));
    ASSERT_FALSE(Of(table, problem.name, mine.at(argument)).empty()) << "although " << argument << " is another";
  }

  const Happening end = Make(clear, mine);
  std::vector<Problem> changed = table.Apply(end);
  std::erase_if(changed, [&](const Problem &one) { return one.name != problem.name; });
  ASSERT_FALSE(changed.empty());
  EXPECT_EQ(changed[0].endedBy, clear.name);
  EXPECT_EQ(changed[0].endedByEvent, end.eventId);
  EXPECT_EQ(changed[0].eventId, first.eventId);
  if (clearing.where.empty()) {
    EXPECT_TRUE(Of(table, problem.name, "").empty());
  } else {
    EXPECT_TRUE(Of(table, problem.name, "same0").empty());
    EXPECT_FALSE(Of(table, problem.name, "other0").empty());
  }
}

TEST(Problems, EachIsEndedByItsClearAndNothingElse) {
  size_t pairs = 0;
  for (const catalog::Event &event : catalog::Events()) {
    for (const catalog::Clearing &clearing : event.clears) {
      ExpectPairing(event, clearing);
      ++pairs;
    }
  }
  EXPECT_GT(pairs, 40U);
}

TEST(Problems, AClearWithoutNamesEndsAllOfItsOtherSubject) {
  size_t pairs = 0;
  for (const catalog::Event &event : catalog::Events()) {
    for (const catalog::Clearing &clearing : event.clears) {
      if (!clearing.withoutNames) continue;
      ++pairs;
      std::map<std::string, std::string> mine, theirs, others, foreign;
      Agree(*clearing.withoutNames, "same", &mine, &theirs);
      Agree(*clearing.withoutNames, "other", &others, &foreign);
      for (const auto &[argument, theirName] : clearing.where) {
        if (IsList(event, argument)) mine[argument] = "";
      }
      ProblemTable table;
      const catalog::Event &problem = *catalog::FindEvent(clearing.problem);
      table.Apply(Make(problem, theirs));
      table.Apply(Make(problem, foreign));
      ASSERT_EQ(Of(table, problem.name, "same0").size(), 2U) << problem.name << ": one for each name";
      table.Apply(Make(event, mine));
      EXPECT_TRUE(Of(table, problem.name, "same0").empty()) << event.name;
      EXPECT_EQ(Of(table, problem.name, "other0").size(), 2U) << event.name;
    }
  }
  EXPECT_GT(pairs, 5U);
}

TEST(Problems, RepeatsAreCountedAcrossARestartAndHandsEndThem) {
  const catalog::Event &entry = *catalog::FindEvent("amb.problem.net.connectivity.lost");
  ProblemTable table;
  table.Apply(Make(entry, {{"port_groups", "A"}}));
  ProblemTable second;
  second.Load(table.Open(), table.LastId(), table.LastChange());
  const Happening again = Make(entry, {{"port_groups", "A"}});
  const std::vector<Problem> changed = second.Apply(again);
  ASSERT_EQ(changed.size(), 2U);
  EXPECT_EQ(changed[0].times, 2);
  EXPECT_EQ(changed[0].lastEventId, again.eventId);
  EXPECT_GT(changed[0].change, table.LastChange());
  EXPECT_EQ(second.EndByHand(again.eventId, "further, any nic", "eve", 5).size(), 1U);
  const std::vector<Problem> ended = second.EndByHand(changed[0].eventId, "", "adam", 5);
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].endedBy, "by hand: adam");
  EXPECT_EQ(second.OpenCount(), 0U);
}

TEST(Problems, TooManyForgetTheLeastSevereThatIsOldest) {
  ProblemTable table;
  const catalog::Event &critical = *catalog::FindEvent("amb.problem.storage.apd.timeout");
  const catalog::Event &error = *catalog::FindEvent("amb.problem.storage.apd.start");
  table.Apply(Make(critical, {{"device", "worst"}}));
  std::vector<Problem> changed;
  for (size_t i = 0; i <= ProblemTable::kMostOpen; ++i) {
    changed = table.Apply(Make(error, {{"device", "naa." + std::to_string(i)}}));
  }
  EXPECT_EQ(table.OpenCount(), ProblemTable::kMostOpen);
  EXPECT_EQ(table.Forgotten(), 2U);
  ASSERT_EQ(changed.size(), 2U);
  EXPECT_EQ(changed[1].subject, "naa.1");
  EXPECT_TRUE(changed[1].endedBy.starts_with("forgotten: "));
  EXPECT_EQ(Of(table, critical.name, "worst").size(), 1U);
}

TEST(Problems, ListsAreTakenApart) {
  const std::pair<const char *, std::vector<std::string>> lists[] = {
      {"", {}}, {"plain, text", {"plain, text"}}, {"\"a\"", {"a"}}, {"\"a\", \"b, c\"", {"a", "b, c"}}, {"\"", {"\""}}};
  for (const auto &[text, names] : lists) EXPECT_EQ(NamesOfList(text), names) << text;
}

}  // namespace
}  // namespace mgmtd
