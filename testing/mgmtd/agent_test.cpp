// The agent as its clients, its disk and its own past treat it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "hosted/paths.h"
#include "mgmtd/store/database.h"
#include "mgmtd/store/reader.h"
#include "rynctl/showing/testEvent.h"
#include "testing/daemon.h"
#include "testing/mgmtd/agentProcess.h"
#include "testing/smallDisk.h"

namespace testing_support {
namespace {

using rynctl::EventBytes;
using rynctl::kApdStart;
constexpr char kApdExit[] = "amb.clear.storage.apd.exit";

bool SendNumbered(const TestRoot &root, uint64_t number) {
  return SendEvent(root, EventBytes(kApdStart, {"naa." + std::to_string(number)}, number, rynctl::kTestTime + number));
}

std::vector<mgmtd::StoredEvent> AllEvents(const TestRoot &root) {
  return mgmtd::Reader(StoreOf(root)).Events({.limit = 100'000});
}

/// That the records 1 to `count` are stored whole, in their order, and none else is.
void ExpectNumbered(const TestRoot &root, uint64_t count) {
  std::vector<mgmtd::StoredEvent> events = AllEvents(root);
  std::erase_if(events, [](const auto &event) { return !event.damage.empty(); });
  ASSERT_EQ(events.size(), count);
  for (uint64_t i = 1; i <= count; ++i) ASSERT_EQ(events[i - 1].sequence, i);
}

nlohmann::json Status(const TestRoot &root) {
  return Ask(root, {{"do", "status"}});
}

bool AwaitStored(const TestRoot &root, uint64_t count) {
  return WaitUntil([&] { return Status(root).value("stored", uint64_t{0}) >= count; });
}

bool LogHas(const TestRoot &root, const std::string &text) {
  return ReadFile(root / "/mgmtd.log").find(text) != std::string::npos;
}

TEST(Agent, StallsGarbageAndThousandsOfClientsCostTheOthersNothing) {
  const TestRoot root;
  AgentProcess agent(root);
  std::mt19937 random(1);
  std::vector<base::UniqueFd> hanging;
  for (int i = 0; i < 1000; ++i) {
    std::vector<std::byte> bytes = EventBytes(kApdStart, {"hangs"});
    bytes.resize(random() % bytes.size());
    if (i % 3 == 0) {
      for (std::byte &byte : bytes) byte = static_cast<std::byte>(random());
    }
    hanging.push_back(HangingSender(root, bytes));
    base::UniqueFd asks;  // at the other socket, too
    if (i % 10 == 0) hanging.push_back(HangingSender(root, {}));
  }
  // More than are served at once stay open, while these come through, in their order.
  std::thread flood([&] {
    for (int i = 0; i < 600; ++i) hanging.push_back(HangingSender(root, std::vector<std::byte>(random() % 500)));
  });
  for (uint64_t i = 1; i <= 300; ++i) ASSERT_TRUE(SendNumbered(root, i));
  flood.join();
  ASSERT_TRUE(WaitUntil([&] {
    const std::vector<mgmtd::StoredEvent> events = AllEvents(root);
    return std::ranges::count(events, "", &mgmtd::StoredEvent::damage) == 300;
  }));
  EXPECT_EQ(agent.End(SIGTERM), 0);
  ExpectNumbered(root, 300);
}

TEST(Agent, KeepsWhatIsDamagedMarkedAndWhatIsDoubledOnce) {
  const TestRoot root;
  AgentProcess agent(root);
  const std::vector<std::byte> whole = EventBytes(kApdStart, {"naa.1"});
  std::vector<std::byte> cut = whole;
  cut.resize(cut.size() - 9);
  ASSERT_TRUE(SendEvent(root, cut));
  ASSERT_TRUE(SendEvent(root, whole));
  ASSERT_TRUE(SendEvent(root, whole));
  ASSERT_TRUE(SendEvent(root, EventBytes("amb.problem.of.another.version", {"x"}, 9)));
  SendEvent(root, std::vector<std::byte>(2'000'000, std::byte{1}));  // is cut off in the middle
  ASSERT_TRUE(AwaitStored(root, 4));
  EXPECT_EQ(Ask(root, {{"do", "problems"}}).at("problems").size(), 1U) << "only what is whole opens a problem";
  EXPECT_EQ(agent.End(SIGTERM), 0);
  const std::vector<mgmtd::StoredEvent> events = AllEvents(root);
  ASSERT_EQ(events.size(), 4U);
  EXPECT_NE(events[0].damage.find("truncated"), std::string::npos);
  EXPECT_EQ(events[0].name, kApdStart);
  EXPECT_EQ(events[1].damage, "");
  EXPECT_EQ(events[2].damage, "name is not in the catalogue");
  EXPECT_NE(events[3].damage.find("longer than 1 MiB"), std::string::npos);
  EXPECT_TRUE(LogHas(root, "5 records received, 4 events stored, 1 doubles, 3 damaged"));
}

/// An agent that stores the events 1 to `count` and ends.
void StoreFirst(const TestRoot &root, uint64_t count) {
  AgentProcess agent(root);
  for (uint64_t i = 1; i <= count; ++i) ASSERT_TRUE(SendNumbered(root, i));
  ASSERT_TRUE(AwaitStored(root, count));
  EXPECT_EQ(agent.End(SIGTERM), 0);
}

std::string StoreFolder(const TestRoot &root) {
  return std::filesystem::path(StoreOf(root)).parent_path();
}

TEST(Agent, AFullDiskHoldsNothingUp) {
  const TestRoot root;
  const SmallDisk disk(StoreFolder(root), "400k");
  if (!disk.IsMounted()) GTEST_SKIP() << "only root can make a small disk";
  AgentProcess agent(root);
  constexpr uint64_t kEvents = 3000;
  for (uint64_t i = 1; i <= kEvents; ++i) ASSERT_TRUE(SendNumbered(root, i));
  ASSERT_TRUE(WaitUntil([&] { return Status(root).value("received", uint64_t{0}) == kEvents; }));
  ASSERT_TRUE(WaitUntil([&] { return !Status(root).value("works", true); }));
  EXPECT_TRUE(LogHas(root, "The store can't be written: " + StoreOf(root))) << ReadFile(root / "/mgmtd.log");
  EXPECT_TRUE(WaitUntil([&] {
    return Ask(root, {{"do", "problems"}}).at("problems").size() == kEvents;
  })) << "it goes on in memory";
  ASSERT_TRUE(disk.Change(0, "size=64m"));
  ASSERT_TRUE(AwaitStored(root, kEvents));
  EXPECT_TRUE(LogHas(root, "The store works again"));
  EXPECT_EQ(agent.End(SIGTERM), 0);
  ExpectNumbered(root, kEvents);
}

TEST(Agent, AReadOnlyDiskHoldsNothingUpAndItsProblemsAreFoundAgain) {
  const TestRoot root;
  const SmallDisk disk(StoreFolder(root), "400k");
  if (!disk.IsMounted()) GTEST_SKIP() << "only root can make a small disk";
  StoreFirst(root, 2);
  ASSERT_TRUE(disk.Change(MS_RDONLY, "size=64m"));
  AgentProcess agent(root);
  // While nothing of the file is known, a clear comes for a problem that is in it.
  ASSERT_TRUE(SendEvent(root, EventBytes(kApdExit, {"naa.1"}, 3, rynctl::kTestTime + 3)));
  ASSERT_TRUE(SendNumbered(root, 4));
  ASSERT_TRUE(WaitUntil([&] { return Ask(root, {{"do", "problems"}}).at("problems").size() == 1; }));
  EXPECT_FALSE(Status(root).value("works", true));
  ASSERT_TRUE(disk.Change(0, "size=64m"));
  ASSERT_TRUE(AwaitStored(root, 2));
  std::vector<std::string> open;
  const nlohmann::json answer = Ask(root, {{"do", "problems"}});
  for (const auto &problem : answer.at("problems")) open.push_back(problem.at("subject"));
  EXPECT_EQ(open, (std::vector<std::string>{"naa.4", "naa.2"}));
  EXPECT_EQ(agent.End(SIGTERM), 0);
  ExpectNumbered(root, 4);
}

TEST(Agent, MovesADamagedFileAside) {
  const TestRoot root;
  const std::string path = StoreOf(root);
  const auto asides = [&] {
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(StoreFolder(root))) {
      const std::string name = entry.path().filename();
      count +=
          name.find(".damaged-") != std::string::npos && !name.ends_with("-wal") && !name.ends_with("-shm") ? 1 : 0;
    }
    return count;
  };
  std::filesystem::create_directories(StoreFolder(root));
  WriteFile(path, std::string(100'000, 'x'));  // no database at all
  StoreFirst(root, 500);
  EXPECT_EQ(asides(), 1U);
  {
    mgmtd::Database database(path, mgmtd::Database::Mode::kWrite);
    database.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  const std::string noise(8192, '\x5a');
  for (off_t at = 4096; at < 100'000; at += 16'384) ASSERT_EQ(pwrite(fd, noise.data(), noise.size(), at), 8192);
  close(fd);
  AgentProcess agent(root);
  ASSERT_TRUE(SendNumbered(root, 501));
  ASSERT_TRUE(AwaitStored(root, 1));
  EXPECT_EQ(asides(), 2U) << ReadFile(root / "/mgmtd.log");
  EXPECT_TRUE(LogHas(root, "The damaged store was moved to " + path + ".damaged-"));
  // Somebody takes the file away: what is open is in the next one.
  std::filesystem::remove(path);
  ASSERT_TRUE(SendNumbered(root, 502));
  ASSERT_TRUE(WaitUntil([&] { return LogHas(root, "was removed or replaced"); }));
  ASSERT_TRUE(SendNumbered(root, 503));
  ASSERT_TRUE(AwaitStored(root, 3));
  EXPECT_EQ(agent.End(SIGTERM), 0);
  EXPECT_EQ(mgmtd::Reader(path).Problems({}).size(), 3U);
}

TEST(Agent, TakesAnOlderStoreAndLeavesANewerOne) {
  const TestRoot root;
  StoreFirst(root, 1);
  const auto change = [&](const char *sql) {
    mgmtd::Database database(StoreOf(root), mgmtd::Database::Mode::kWrite);
    database.Execute(sql);
    database.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
  };
  change(
      "DROP INDEX problems_change; ALTER TABLE problems DROP COLUMN change; ALTER TABLE sinks DROP COLUMN change;"
      "PRAGMA user_version = 1");
  EXPECT_THROW(mgmtd::Reader(StoreOf(root)).LastEventId(), mgmtd::StoreError);
  {
    AgentProcess agent(root);
    ASSERT_TRUE(SendEvent(root, EventBytes(kApdExit, {"naa.1"}, 2)));
    ASSERT_TRUE(AwaitStored(root, 1));
    EXPECT_EQ(agent.End(SIGTERM), 0);
    const std::vector<mgmtd::Problem> problems = mgmtd::Reader(StoreOf(root)).Problems({true, 10});
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_EQ(problems[0].endedBy, kApdExit);
  }
  change("PRAGMA user_version = 99");
  const std::string before = ReadFile(StoreOf(root));
  AgentProcess agent(root);
  EXPECT_EQ(agent.WaitForExit(), 2);
  EXPECT_TRUE(LogHas(root, "is of version 99, written by a newer rynmgmtd"));
  EXPECT_EQ(ReadFile(StoreOf(root)), before);
  EXPECT_NE(access(EventSocketOf(root).c_str(), F_OK), 0) << "its socket must not hold the daemon up";
}

TEST(Agent, SaysWhyItDoesNotStart) {
  const TestRoot root;
  AgentProcess first(root);
  AgentProcess second(root);
  EXPECT_EQ(second.WaitForExit(), 1);
  EXPECT_TRUE(LogHas(root, "a live management agent serves"));
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"--retention-size", "12"}, {"--retention-days", "0"}, {"--nonsense"}}) {
    AgentProcess wrong(root, words);
    EXPECT_EQ(wrong.WaitForExit(), 2);
    EXPECT_TRUE(LogHas(root, words[0]) || LogHas(root, words.back())) << words[0];
  }
}

}  // namespace
}  // namespace testing_support
