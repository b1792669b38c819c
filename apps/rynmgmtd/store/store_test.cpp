// Writer, reader and feed over one file, without the process round them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/wallClock.h"
#include "mgmtd/store/database.h"
#include "mgmtd/store/writer.h"
#include "rynctl/showing/testEvent.h"
#include "testing/testRoot.h"

namespace mgmtd {
namespace {

using namespace std::chrono_literals;
using rynctl::EventBytes;
using rynctl::kApdStart;
using rynctl::kTestTime;
using testing_support::WaitUntil;

constexpr int64_t kNow = kTestTime;
constexpr int64_t kDayUs = int64_t{86'400} * 1'000'000;

class Store : public testing::Test {
 protected:
  void Start(WriterOptions options = {}) {
    options.path = path_;
    feed_ = std::make_unique<Feed>();
    writer_ = std::make_unique<Writer>(options, feed_.get());
    ASSERT_EQ(writer_->Start(), "");
  }
  void Add(const std::string &name, const std::vector<std::string> &texts, int64_t atUs = kNow) {
    ++sequence_;
    ASSERT_TRUE(
        writer_->Add({EventBytes(name, texts, sequence_, static_cast<uint64_t>(atUs)), "", base::WallClockUs()}));
  }
  std::vector<int64_t> Ids(const EventFilter &filter) {
    std::vector<int64_t> ids;
    for (const StoredEvent &event : Reader(path_).Events(filter)) ids.push_back(event.id);
    return ids;
  }

  testing_support::TestRoot root_;
  const std::string path_ = root_ / "/store/events.db";
  std::unique_ptr<Feed> feed_;
  std::unique_ptr<Writer> writer_;
  uint64_t sequence_ = 0;
};

TEST_F(Store, GivesWhatIsAskedFor) {
  Start();
  Add(kApdStart, {"naa.1"}, kNow);                                                               // 1
  Add("amb.problem.storage.apd.timeout", {"naa.2"}, kNow + 10);                                  // 2: an argument lacks
  Add("amb.problem.net.connectivity.lost", {"vs0", "nic0", "\"Blue\", \"Gr'een\""}, kNow + 20);  // 3
  Add("amb.clear.storage.apd.exit", {"naa.1"}, kNow + 30);                                       // 4
  Add("amb.clear.storage.apd.exit", {"naa.9"}, kNow - kDayUs);                                   // 5: the clock was set
  Add("amb.unknown \xff", {"naa.1"}, kNow + 40);                                                 // 6
  writer_->Stop(5s);
  using Ids64 = std::vector<int64_t>;
  EXPECT_EQ(Ids({}), (Ids64{1, 2, 3, 4, 5, 6})) << "in the order of reception";
  const std::pair<EventFilter, Ids64> cases[] = {
      {{.sinceUs = kNow + 10}, {2, 3, 4, 6}},
      {{.untilUs = kNow + 10}, {1, 2, 5}},
      {{.names = {"storage.apd"}}, {1, 2, 4, 5}},
      {{.names = {"amb.clear", "net"}}, {3, 4, 5}},
      {{.names = {"nothing"}}, {}},
      {{.subject = "naa.1"}, {1, 4}},
      {{.subject = "Gr'een"}, {3}},
      {{.subject = "naa*"}, {1, 2, 4, 5}},
      {{.subject = "naa"}, {}},
      {{.category = "unknown"}, {6}},
      {{.severity = "critical"}, {2, 3}},
      {{.text = "ALL PATHS"}, {1, 2, 4, 5}},
      {{.text = "%' OR 1=1"}, {}},
      {{.afterId = 1, .beforeId = 5, .newestFirst = true, .limit = 2}, {4, 3}},
      {{.sinceUs = kNow, .subject = "naa.1", .newestFirst = true, .limit = 1}, {4}},
  };
  for (const auto &[filter, ids] : cases) {
    EXPECT_EQ(Ids(filter), ids) << filter.subject << filter.category << filter.severity << filter.text;
  }
  Reader reader(path_);
  const StoredEvent event = *reader.Event(3);
  EXPECT_EQ(event.subjects, (std::vector<std::string>{"Blue", "nic0", "Gr'een"}));
  EXPECT_EQ(nlohmann::json::parse(event.argumentsJson)[2]["name"], "port_groups");
  EXPECT_NE(reader.Event(2)->damage, "");
  EXPECT_EQ(reader.Event(6)->name, "amb.unknown \\xff");
  EXPECT_EQ(reader.Event(7), std::nullopt);
  EXPECT_EQ(reader.ProblemsOf(event).size(), 2U);
  EXPECT_EQ(reader.ProblemsOf(*reader.Event(4)).size(), 1U);
  const std::vector<TimelineBucket> line = reader.Timeline(kNow, kNow + 50, 20);
  ASSERT_EQ(line.size(), 3U);
  EXPECT_EQ(line[0].error + line[0].critical, 2);
  EXPECT_EQ(line[2].other, 1);
  EXPECT_THROW(Reader(path_ + "x").Events({}), StoreError);
}

TEST_F(Store, FollowersAndAcknowledgementsOutliveRestarts) {
  Start();
  const Marks beginning = feed_->Newest();
  for (int i = 0; i < 6000; ++i) Add(kApdStart, {"naa." + std::to_string(i % 3)});
  ASSERT_TRUE(WaitUntil([&] { return feed_->Newest().event == 6000; }));
  Reader reader(path_);
  int64_t seen = 0;
  for (std::vector<StoredEvent> events; !(events = feed_->EventsAfter(seen, 700, &reader)).empty();) {
    for (const StoredEvent &event : events) ASSERT_EQ(event.id, ++seen) << "memory and file together miss none";
  }
  EXPECT_EQ(seen, 6000);
  ASSERT_EQ(feed_->OpenProblems().size(), 3U);
  EXPECT_EQ(feed_->OpenProblems()[0].times, 2000);
  EXPECT_EQ(writer_->Acknowledge(3, "", "eve"), 1U);
  EXPECT_EQ(writer_->Acknowledge(3, "", "eve"), 0U);
  EXPECT_EQ(feed_->ProblemsAfter(beginning.change, 10, &reader).size(), 3U);
  writer_->SetSinkPosition("journal", {4711, 12});
  writer_->Stop(5s);
  EXPECT_EQ(writer_->Health().stored, 6000U);

  Start();
  EXPECT_EQ(feed_->OpenProblems().size(), 2U);
  EXPECT_EQ(feed_->Newest().event, 6000);
  ASSERT_TRUE(writer_->SinkPosition("journal"));
  EXPECT_EQ(writer_->SinkPosition("journal")->event, 4711);
  EXPECT_EQ(writer_->SinkPosition("exec"), std::nullopt);
  EXPECT_EQ(feed_->ProblemsAfter(0, 10, &reader).back().endedBy, "by hand: eve");
  std::thread waiting([&] { EXPECT_TRUE(feed_->Wait(feed_->Newest(), 1h)); });
  Add(kApdStart, {"naa.2"});
  waiting.join();
  EXPECT_EQ(feed_->OpenProblems()[0].eventId, 6001);
  feed_->Stop();
  EXPECT_FALSE(feed_->Wait(feed_->Newest(), 1h));
}

TEST_F(Store, RemovesWhatIsTooOldOrTooMuch) {
  Start({.retentionBytes = 2 << 20});
  for (int i = 0; i < 8000; ++i) Add(kApdStart, {"naa." + std::to_string(i % 50)});
  ASSERT_TRUE(WaitUntil([&] { return writer_->Health().expired >= 3000; }));
  ASSERT_TRUE(WaitUntil([&] { return writer_->Health().fileBytes < (2 << 20); }));
  writer_->Stop(5s);
  EXPECT_EQ(feed_->OpenProblems().size(), 50U) << "what is wrong now stays";
  {
    Database database(path_, Database::Mode::kWrite);
    EXPECT_EQ(database.Word("PRAGMA quick_check"), "ok");
    EXPECT_EQ(database.Number("SELECT count(*) FROM event_subjects WHERE event_id NOT IN (SELECT id FROM events)"), 0);
    EXPECT_GT(database.Number("SELECT min(id) FROM events"), 3000) << "the oldest go";
    database.Execute(
        ("UPDATE events SET received_us = received_us - " + std::to_string(91 * kDayUs) + " WHERE id <= 7990").c_str());
  }
  Start();
  ASSERT_TRUE(WaitUntil([&] { return Ids({}).size() == 10; }));
}

}  // namespace
}  // namespace mgmtd
