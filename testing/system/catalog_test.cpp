// The catalogue's examples, sent to the running daemon as its user would: each observation leads to the events that are
// said of it, and to no other.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <thread>

#include "catalog/catalog.h"
#include "eventRecord/eventDecoder.h"
#include "hosted/records/rawRecord.h"
#include "rynctl/sending/argument.h"
#include "rynctl/sending/observationCheck.h"
#include "testing/flight/replayed.h"

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
  Host() : RunningDaemon([](const TestRoot &path) { TurnOnRecorder(path); }) {}
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
  /// The events that came since the last call, once all of `awaited` have, as often as they stand there, or 30 seconds
  /// are over.
  Names Received(const std::multiset<std::string> &awaited) {
    std::multiset<std::string> received;
    EXPECT_TRUE(WaitUntil([&] {
      const std::vector<std::string> all = events.Names();
      received = {all.begin() + static_cast<std::ptrdiff_t>(seen), all.end()};
      return std::ranges::includes(received, awaited);
    })) << testing::PrintToString(awaited)
        << " and not " << testing::PrintToString(received);
    seen += received.size();
    return {received.begin(), received.end()};
  }
};

/// The events that came, a line each, to the byte, with what the catalogue calls their arguments; each once, in
/// alphabetical order.
Names Texts(const Collector &records) {
  Names lines;
  for (const std::string &record : records.All()) {
    const auto event = eventrecord::DecodeEvent(reinterpret_cast<const std::byte *>(record.data()), record.size());
    EXPECT_EQ(event.problems, Words{}) << event.name;
    std::string names;
    for (const std::string &name : catalog::FindEvent(event.name)->arguments) names += name + ' ';
    lines.insert(event.name + "\t" + names + eventrecord::ArgumentList(event.arguments) + "\t" + event.text);
  }
  return lines;
}

/// The lines that the tree keeps of them. RYND_KEEP_TEXTS=1 has `now` kept in their place: read the difference.
Names KeptTexts(const Names &now) {
  const std::string path = RYND_SOURCE "/testing/system/eventTexts.txt";
  if (getenv("RYND_KEEP_TEXTS") != nullptr) {
    std::string text;
    for (const std::string &line : now) text += line + "\n";
    WriteFile(path, text);
  }
  const Words lines = Lines(ReadFile(path));
  return {lines.begin(), lines.end()};
}

TEST(CatalogExamples, LeadToWhatIsSaidOfThem) {
  Host host;
  for (const catalog::Observation &observation : catalog::Observations()) {
    Names allowed(observation.posts.begin(), observation.posts.end());
    std::multiset<std::string> posted;
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
    const std::string page = "amb.problem.cpu.page.correctederrors.high";
    if (observation.id.starts_with("ryn.cpu.m") && allowed.contains(page)) posted.insert(page);
    EXPECT_EQ(Names(posted.begin(), posted.end()), Names(observation.posts.begin(), observation.posts.end()))
        << observation.id;
    posted.erase(page);
    const Names received = host.Received(posted);
    for (const std::string &name : posted)
      EXPECT_TRUE(received.contains(name)) << observation.id << " posts no " << name;
    for (const std::string &name : received) EXPECT_TRUE(allowed.contains(name)) << observation.id << " posts " << name;
  }
  // What comes late would have been said of nothing.
  ASSERT_TRUE(SendRecord(host.kernel, RecordOf("ryn.storage.apd.start", {"last"})));
  EXPECT_EQ(host.Received({"amb.problem.storage.apd.start"}), Names{"amb.problem.storage.apd.start"});
  const Names texts = Texts(host.events.Records());
  const Names kept = KeptTexts(texts);
  for (const std::string &line : texts) EXPECT_TRUE(kept.contains(line)) << "new: " << line;
  for (const std::string &line : kept) EXPECT_TRUE(texts.contains(line)) << "gone: " << line;
  EXPECT_EQ(host.daemon.Stop(), 0);
  // What every agent did, of all that it can, is the same when it is run again.
  if (RYND_REPLAYS) ExpectReplaysEqual(host.root, RYND_BUILD "/bin/rynctl");
}

}  // namespace
}  // namespace testing_support
