// The catalogue's examples, sent to the running daemon as its user would: each observation leads to the events that are
// said of it, and to no other.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "catalog/catalog.h"
#include "hosted/records/rawRecord.h"
#include "rynctl/sending/argument.h"
#include "rynctl/sending/observationCheck.h"
#include "testing/daemon.h"

namespace testing_support {
namespace {

using Names = std::set<std::string>;
using Words = std::vector<std::string>;

/// The observation that `rynctl submit ID WORDS...` sends, which must take it.
std::vector<std::byte> RecordOf(const std::string &id, const Words &words) {
  hosted::RawRecord record{1, 2, id, "m", {}};
  for (const std::string &word : words) {
    std::string error;
    const auto argument = rynctl::ParseArgument(word, &error);
    EXPECT_TRUE(argument) << id << ": " << error;
    if (argument) record.arguments.push_back(*argument);
  }
  EXPECT_EQ(rynctl::CheckAgainstCatalog(record), "");
  return hosted::EncodeRecord(record);
}

struct Host : RunningDaemon {
  base::UniqueFd kernel = ConnectKernel(root);
  size_t seen = 0;  ///< events that were looked at

  void Send(const std::string &id, const Words &words) { ASSERT_TRUE(SendRecord(kernel, RecordOf(id, words))) << id; }

  void Prepare(const catalog::Try &one) {
    for (const auto &[path, text] : one.tree) WriteFile(root / ("/var/lib/corvane/host/" + path), text + "\n");
    if (one.link) {
      ASSERT_EQ(symlink(one.link->second.c_str(), (root / one.link->first).c_str()), 0);
    }
  }
  void Do(const catalog::Observation &observation, const catalog::Try &one) {
    for (const Words &before : one.before) Send(before.front(), {before.begin() + 1, before.end()});
    for (int i = 0; i < one.times; ++i) {
      Send(observation.id, one.words);
      std::this_thread::sleep_for(std::chrono::milliseconds(one.everyMs));
    }
  }
  /// The events that came since the last call, once all of `awaited` have, or 30 seconds are over.
  Names Received(const Names &awaited) {
    Names received;
    WaitUntil([&] {
      const std::vector<std::string> all = events.Names();
      received = Names(all.begin() + static_cast<std::ptrdiff_t>(seen), all.end());
      return std::ranges::includes(received, awaited);
    });
    seen = events.Names().size();
    return received;
  }
};

TEST(CatalogExamples, LeadToWhatIsSaidOfThem) {
  Host host;
  for (const catalog::Observation &observation : catalog::Observations()) {
    Names posted, allowed(observation.posts.begin(), observation.posts.end());
    // All files first: none is written while the daemon reads it.
    for (const catalog::Try &one : observation.tries) host.Prepare(one);
    for (const catalog::Try &one : observation.tries) {
      posted.insert(one.posts.begin(), one.posts.end());
      for (const Words &before : one.before) {
        const auto &others = catalog::FindObservation(before.front())->posts;
        allowed.insert(others.begin(), others.end());
      }
      host.Do(observation, one);
    }
    // Pages are given to the kernel: its event is the one that no example can bring about.
    if (observation.id.starts_with("ryn.cpu.m")) posted.insert(observation.posts.begin(), observation.posts.end());
    EXPECT_EQ(posted, Names(observation.posts.begin(), observation.posts.end())) << observation.id;
    posted.erase("amb.problem.cpu.page.correctederrors.high");
    const Names received = host.Received(posted);
    for (const std::string &name : posted)
      EXPECT_TRUE(received.contains(name)) << observation.id << " posts no " << name;
    for (const std::string &name : received) EXPECT_TRUE(allowed.contains(name)) << observation.id << " posts " << name;
  }
  // What comes late would have been said of nothing.
  ASSERT_TRUE(SendRecord(host.kernel, RecordOf("ryn.storage.apd.start", {"last"})));
  EXPECT_EQ(host.Received({"amb.problem.storage.apd.start"}), Names{"amb.problem.storage.apd.start"});
  EXPECT_EQ(host.daemon.Stop(), 0);
}

}  // namespace
}  // namespace testing_support
