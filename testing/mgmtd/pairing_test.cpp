// Problems and what ends them on the whole road: the catalogue's examples, sent to the daemon, end what they must end
// in the agent's store.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "catalog/catalog.h"
#include "hosted/records/rawRecord.h"
#include "mgmtd/store/reader.h"
#include "rynctl/sending/argument.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/mgmtd/agentProcess.h"

namespace testing_support {
namespace {

using catalog::Observation;
using catalog::Try;
using mgmtd::Problem;
using Words = std::vector<std::string>;

struct Example {
  const Observation *observation;
  const Try *one;
};

/// The shortest example that has the daemon post `event`.
Example ExampleOf(const std::string &event) {
  Example best{};
  for (const Observation &observation : catalog::Observations()) {
    for (const Try &one : observation.tries) {
      if (std::ranges::count(one.posts, event) == 0) continue;
      if (best.one == nullptr || one.before.size() < best.one->before.size()) best = {&observation, &one};
    }
  }
  return best;
}

/// Where the argument `name` stands in an observation's words; nothing when it does not.
std::optional<size_t> PlaceOf(const Example &example, const std::string &name) {
  const auto &arguments = example.observation->arguments;
  const auto found = std::ranges::find(arguments, name, &catalog::Argument::name);
  const auto place = static_cast<size_t>(found - arguments.begin());
  return place < example.one->words.size() ? std::optional(place) : std::nullopt;
}

/// The daemon, its agent, and a sender.
struct Road {
  Road() : agent(root), daemon(root) {
    EXPECT_TRUE(WaitUntil([&] { return IsWhole(root); }));
    kernel = ConnectKernel(root);
    for (const Observation &observation : catalog::Observations()) {
      for (const Try &one : observation.tries) {
        for (const auto &[path, text] : one.tree) WriteFile(root / ("/var/lib/corvane/host/" + path), text + "\n");
      }
    }
  }
  void Send(const std::string &id, const Words &words) {
    hosted::RawRecord record{1, 2, id, "m", {}};
    std::string error;
    for (const std::string &word : words) record.arguments.push_back(rynctl::ParseArgument(word, &error).value());
    ASSERT_TRUE(SendRecord(kernel, hosted::EncodeRecord(record))) << id;
  }
  /// The problems called `name`, open or `ended`.
  std::vector<Problem> Problems(const std::string &name, bool ended) {
    std::vector<Problem> found = reader.Problems({true, 10'000});
    std::erase_if(found, [&](const Problem &problem) { return problem.name != name || problem.IsOpen() == ended; });
    return found;
  }

  const TestRoot root;
  AgentProcess agent;
  Daemon daemon;
  base::UniqueFd kernel;
  mgmtd::Reader reader{StoreOf(root)};
};

/// Have the problem of `clearing` posted by its example, about the subject of `clear` and about another one. False
/// where the observations do not name the subject alike.
bool Lead(Road *road, const Example &clear, const catalog::Clearing &clearing) {
  const Example problem = ExampleOf(clearing.problem);
  if (problem.one == nullptr) return false;
  Words same = problem.one->words;
  Words other = same;
  for (const auto &[mine, theirs] : clearing.where) {
    const auto from = PlaceOf(clear, mine), to = PlaceOf(problem, theirs);
    if (!from || !to) return false;
    same[*to] = clear.one->words[*from];
    other[*to] = same[*to].find_first_not_of("0123456789") == std::string::npos ? "77" : same[*to] + "-other";
  }
  for (const Words &before : problem.one->before) road->Send(before.front(), {before.begin() + 1, before.end()});
  road->Send(problem.observation->id, same);
  if (!clearing.where.empty()) road->Send(problem.observation->id, other);
  const size_t wanted = clearing.where.empty() ? 1 : 2;
  EXPECT_TRUE(WaitUntil([&] { return road->Problems(clearing.problem, false).size() >= wanted; }, 20));
  return true;
}

/// Whether what was observed before decides: of those the table's own test says who ends whom.
bool FollowsFromState(const Example &clear) {
  const std::string &id = clear.observation->id;
  return !clear.one->before.empty() || !clear.one->tree.empty() || id.starts_with("ryn.net.pg.") ||
         id.starts_with("ryn.net.dvport.");
}

TEST(Pairing, TheDaemonsClearsEndItsProblems) {
  Road road;
  size_t ended = 0;
  for (const catalog::Event &event : catalog::Events()) {
    const Example clear = ExampleOf(event.name);
    if (event.clears.empty() || clear.one == nullptr || FollowsFromState(clear)) continue;
    for (const catalog::Clearing &clearing : event.clears) {
      SCOPED_TRACE(event.name + " ends " + clearing.problem);
      if (!Lead(&road, clear, clearing)) continue;
      const auto endedNow = [&] {
        // The observation may be told as several events, each of which would do.
        return std::ranges::count_if(road.Problems(clearing.problem, true), [&](const Problem &problem) {
          return std::ranges::count(clear.one->posts, problem.endedBy) > 0;
        });
      };
      const auto before = endedNow();
      road.Send(clear.observation->id, clear.one->words);
      EXPECT_TRUE(WaitUntil([&] { return endedNow() > before; }, 20));
      // All of a kind where nothing is compared; else only those of its subject.
      EXPECT_EQ(road.Problems(clearing.problem, false).empty(), clearing.where.empty());
      ++ended;
    }
  }
  EXPECT_GE(ended, 35U);
  EXPECT_EQ(road.daemon.Stop() + road.agent.End(SIGTERM), 0);
}

}  // namespace
}  // namespace testing_support
