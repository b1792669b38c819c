// The catalogue against the daemon's own code, both ways: what is missing, what is too much, what does not fit.
#include "catalog/catalog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "catalog/find.h"
#include "catalog/json.h"
#include "catalog/texts.h"
#include "correlators/catalog.h"
#include "testing/testRoot.h"

// Reached only when an event's conversion is none that a row may have.
void rynd::post_row::ErrorConversionIsNotSupported() {
  ADD_FAILURE();
}

namespace catalog {
namespace {

using rynd::ArgType;
using Names = std::set<std::string>;

/// The types of the arguments that an event's text shows.
std::vector<ArgType> Shown(const Event &event) {
  const rynd::ArgTypes types = rynd::post_row::ConversionTypes(event.message);
  return {types.begin(), types.begin() + rynd::post_row::Count(types)};
}

size_t IndexOf(const Event &event, const std::string &argument) {
  return static_cast<size_t>(std::ranges::find(event.arguments, argument) - event.arguments.begin());
}

bool IsSubject(const Event &event, const std::string &argument, bool list) {
  return std::ranges::any_of(event.subject, [&](const Subject &s) { return s.argument == argument && s.list == list; });
}
bool IsList(const Event &event, const std::string &argument) {
  return IsSubject(event, argument, true);
}

TEST(Catalog, HoldsWhatTheDaemonPostsAndHandlesAndNothingElse) {
  Names posted, handled, events, observations;
  for (const rynd::CatalogMessage &message : rynd::Catalog()) posted.emplace(message.name);
  std::string daemon;
  for (const std::string_view piece : kTexts.front().pieces) daemon += piece;
  const auto json = nlohmann::json::parse(daemon);
  for (const auto &item : json["observations"].items()) handled.insert(item.key());
  for (const Event &event : Events()) {
    EXPECT_TRUE(events.insert(event.name).second) << event.name << " stands twice";
    EXPECT_EQ(event.message, rynd::FindCatalogMessage(event.name)->message);
    EXPECT_TRUE(event.name.starts_with("amb." + event.category + ".")) << event.name;
  }
  for (const Observation &one : Observations()) {
    EXPECT_TRUE(observations.insert(one.id).second) << one.id << " stands twice";
  }
  EXPECT_EQ(events, posted);
  EXPECT_EQ(observations, handled);
}

TEST(Catalog, IsWrittenForPeople) {
  for (const Event &event : Events()) {
    for (const std::string *text : {&event.means, &event.impact}) {
      EXPECT_GE(text->size(), 5u) << event.name;
      EXPECT_NE(std::string_view(".)").find(text->back()), std::string_view::npos) << event.name << ": " << *text;
    }
    EXPECT_FALSE(event.action.empty()) << event.name;
    EXPECT_NE(event.means, event.message) << event.name;
    EXPECT_TRUE(event.category == "problem" || event.severity == Severity::kInfo) << event.name;
    EXPECT_FALSE(event.postedBy.empty() && event.from.empty()) << "nothing posts " << event.name;
  }
}

TEST(Catalog, NamesEachArgumentThatAnEventShows) {
  for (const Event &event : Events()) {
    EXPECT_EQ(event.arguments.size(), Shown(event).size()) << event.name;
    EXPECT_EQ(Names(event.arguments.begin(), event.arguments.end()).size(), event.arguments.size()) << event.name;
    for (const Subject &subject : event.subject) {
      ASSERT_LT(IndexOf(event, subject.argument), event.arguments.size()) << event.name << " " << subject.argument;
      const bool text = Shown(event)[IndexOf(event, subject.argument)] == ArgType::kStr;
      EXPECT_TRUE(text || !subject.list) << event.name;
    }
  }
}

/// Both arguments of each pair exist and are of one kind, and the problem's says what it is about: so whoever keeps
/// problems by their subjects can tell which of them is meant.
void ExpectPairs(const Event &ending, const Event &problem, const Pairs &pairs) {
  for (const auto &[mine, theirs] : pairs) {
    const std::string where = ending.name + " " + mine + ", " + problem.name + " " + theirs;
    const size_t a = IndexOf(ending, mine), b = IndexOf(problem, theirs);
    ASSERT_TRUE(a < ending.arguments.size() && b < problem.arguments.size()) << where;
    EXPECT_EQ(Shown(ending)[a], Shown(problem)[b]) << where;
    EXPECT_EQ(IsList(ending, mine), IsList(problem, theirs)) << where;
    EXPECT_TRUE(IsSubject(problem, theirs, IsList(problem, theirs))) << where;
  }
}

TEST(Catalog, PairsEveryProblemWithItsEnd) {
  Names ended;
  for (const Event &ending : Events()) {
    EXPECT_EQ(ending.category == "clear" && ending.clears.empty(), false) << ending.name;
    EXPECT_FALSE(ending.category == "audit" && !ending.clears.empty()) << ending.name;
    for (const Clearing &clearing : ending.clears) {
      const Event *problem = FindEvent(clearing.problem);
      ASSERT_NE(problem, nullptr) << ending.name << " ends " << clearing.problem;
      EXPECT_EQ(problem->category, "problem") << ending.name << " ends " << clearing.problem;
      ended.insert(clearing.problem);
      ExpectPairs(ending, *problem, clearing.where);
      if (clearing.withoutNames) ExpectPairs(ending, *problem, *clearing.withoutNames);
      // What is about a list of names is ended by names, unless there are none.
      const bool byList = std::ranges::any_of(clearing.where, [&](const auto &p) { return IsList(ending, p.first); });
      EXPECT_EQ(byList, clearing.withoutNames.has_value()) << ending.name << " ends " << clearing.problem;
    }
  }
  for (const Event &event : Events()) {
    const bool byHand = event.category == "problem" && !ended.contains(event.name);
    EXPECT_EQ(event.clearedByHand, byHand) << event.name;
    EXPECT_EQ(event.clearedBy.empty(), !ended.contains(event.name)) << event.name;
  }
}

/// The bits of an integer type, 0 for text.
unsigned Bits(ArgType type) {
  const std::map<ArgType, unsigned> bits = {
      {ArgType::kStr, 0}, {ArgType::kByte, 8}, {ArgType::kShort, 16}, {ArgType::kInt, 32}, {ArgType::kLong, 64}};
  return bits.at(type);
}

TEST(Catalog, KnowsTheArgumentsOfEveryRow) {
  EXPECT_GT(rynd::AllPostRows().size(), 200u);
  for (const rynd::PostRow *row : rynd::AllPostRows()) {
    const Observation *entry = FindObservation(row->id);
    ASSERT_NE(entry, nullptr) << row->id;
    ASSERT_EQ(entry->arguments.size(), rynd::post_row::Count(row->fields.types)) << row->id;
    for (size_t i = 0; i < entry->arguments.size(); ++i) {
      const std::string &type = entry->arguments[i].type;
      EXPECT_EQ(type == "s" ? 0 : std::stoul(type.substr(1)), Bits(row->fields.types[i])) << row->id << " " << i;
      EXPECT_FALSE(entry->arguments[i].optional) << row->id;
    }
    const std::string_view format = row->message.format;
    const std::string name(format.substr(8, format.find(')') - 8));
    EXPECT_EQ(entry->posts, std::vector<std::string>{name}) << row->id;
    // What is shown has the name of what is read, but for the volume that is made of a path.
    const Event &event = *FindEvent(name);
    if (event.name == "amb.problem.vm.kill.unexpected.fault.failure.2") continue;
    for (size_t i = 0; i < event.arguments.size(); ++i) {
      EXPECT_EQ(event.arguments[i], entry->arguments[row->order[i]].name) << row->id;
    }
  }
}

TEST(Catalog, NamesSettingsThatTheHostTreeHas) {
  // The manual's paths, without fonts and blanks; capitals stand for a name.
  std::string manual = testing_support::ReadFile(RYND_SOURCE "/docs/rynd-host.5");
  manual = std::regex_replace(manual, std::regex("\n\\.IR? "), "\n");
  manual = std::regex_replace(manual, std::regex(" "), "");
  std::vector<std::regex> paths;
  const std::regex path("(?:^|\n)([a-z]+/[A-Za-z/]*[A-Za-z])");
  for (std::sregex_iterator it(manual.begin(), manual.end(), path), end; it != end; ++it) {
    paths.emplace_back(std::regex_replace((*it)[1].str(), std::regex("\\b[A-Z]+\\b"), "[^/]+"));
  }
  ASSERT_GT(paths.size(), 15u);
  std::set<std::string> settings;
  for (const Event &event : Events()) settings.insert(event.settings.begin(), event.settings.end());
  for (const Observation &one : Observations()) settings.insert(one.settings.begin(), one.settings.end());
  for (const std::string &setting : settings) {
    EXPECT_TRUE(std::ranges::any_of(paths, [&](const auto &p) { return std::regex_match(setting, p); })) << setting;
    // An option has its default in the manual.
    if (!setting.starts_with("sysinfo/config/intOpts/")) continue;
    EXPECT_NE(manual.find(setting.substr(setting.rfind('/') + 1)), std::string::npos) << setting;
  }
}

TEST(Catalog, FindsWhatPeopleCallThings) {
  const char kStart[] = "amb.problem.storage.apd.start";
  for (const char *name : {kStart, "problem.storage.apd.start", "storage.apd.start", "storage.apd.st"}) {
    ASSERT_NE(Find(name).event, nullptr) << name;
    EXPECT_EQ(Find(name).event->name, kStart);
  }
  ASSERT_NE(Find("ryn.storage.apd.start").observation, nullptr);
  ASSERT_NE(Find("pageretire.mce.injected").observation, nullptr) << "its event ends in .2";
  ASSERT_NE(Find("scsi.scsipath.por").observation, nullptr);
  for (const char *typo : {"amb.problem.storage.adp.start", "storage.adp.start"}) {
    ASSERT_FALSE(Find(typo).suggestions.empty()) << typo;
    EXPECT_EQ(Find(typo).suggestions.front(), kStart);
  }
  for (const char *name : {"", "%s", "amb", "\xff\x1b"}) {
    const Found none = Find(name);
    EXPECT_TRUE(none.event == nullptr && none.observation == nullptr && none.suggestions.empty()) << name;
  }
}

TEST(Catalog, ShowsAllOfItToPrograms) {
  const auto json = WholeCatalog();
  EXPECT_EQ(json["version"], 1);
  EXPECT_EQ(json["events"].size(), Events().size());
  EXPECT_EQ(json["observations"].size(), Observations().size());
  const auto clear = ToJson(*FindEvent("amb.clear.net.dvport.connectivity.restored"));
  EXPECT_EQ(clear["clears"][0]["where"]["dvports"], "dvports");
  EXPECT_EQ(clear["clears"][0]["without_names"]["nic"], "nic");
  EXPECT_EQ(clear["subject"][0]["list"], "dvports");
  // Identities must never change: journals hold them.
  EXPECT_EQ(MessageId("amb.problem.storage.apd.start"), "ffcd4703129050e7beb50ed44f9b2a72");
  EXPECT_EQ(MessageId("amb.problem.hardware.fpin.fc.linkintegrity.primitivesequenceprotocolerror"),
            "1f2bad52282d5cddaa9c569c67942224");
}

}  // namespace
}  // namespace catalog
