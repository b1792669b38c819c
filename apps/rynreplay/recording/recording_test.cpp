// Recordings that no daemon made: what is told to whom, and what a replay makes of differences, of damage and of size.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "flight/writer.h"
#include "hosted/records/rawRecord.h"
#include "replay/reports/commands.h"
#include "rynctl/showing/testEvent.h"
#include "testing/testRoot.h"

namespace replay {
namespace {

using testing_support::TestRoot;

constexpr uint64_t kStartUs = 1'700'000'000'000'000;

std::string Record(const std::string &id, const std::vector<std::string> &texts) {
  hosted::RawRecord record{0, kStartUs, id, "m", {}};
  for (const std::string &text : texts) record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, text});
  const std::vector<std::byte> bytes = hosted::EncodeRecord(record);
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

flight::Bytes View(const std::string &bytes) {
  return {reinterpret_cast<const std::byte *>(bytes.data()), bytes.size()};
}

/// Writes a recording entry by entry, a millisecond apart.
class Recorder {
 public:
  explicit Recorder(const std::string &path) : file_(path, std::ios::binary), writer_(&file_) {}
  template <typename What>
  Recorder &Put(const std::string &thread, const What &what) {
    ms_ += 1;
    EXPECT_TRUE(writer_.Append({1'000'000'000 + ms_ * 1'000'000, kStartUs + ms_ * 1'000, 0, thread, what}));
    return *this;
  }
  Recorder &Observe(const std::string &record) { return Put("rynd", flight::Observation{0, 0, 0, View(record)}); }
  Recorder &Take(const std::string &thread, const std::string &record) {
    return Put(thread, flight::Taken{flight::RecordHash(View(record).data(), record.size()), record.size()});
  }
  Recorder &Wait(uint64_t ms) {
    ms_ += ms;
    return *this;
  }

 private:
  std::ofstream file_;
  flight::Writer writer_;
  uint64_t ms_ = 0;
};

/// What `rynreplay WORDS` prints, and its exit status behind it.
std::string Tool(int (*command)(const rynctl::Words &, rynctl::Console &), const rynctl::Words &words) {
  const TestRoot root;
  std::ofstream out(root / "/out"), err(root / "/err");
  rynctl::Console console{out, err};
  const int status = command(words, console);
  out.close();
  err.close();
  return testing_support::ReadFile(root / "/out") + testing_support::ReadFile(root / "/err") + std::to_string(status);
}

void ExpectIn(const std::string &part, const std::string &text) {
  EXPECT_NE(text.find(part), std::string::npos) << text;
}

TEST(Recording, TellsWhatDiffersAndHow) {
  const TestRoot root;
  const std::string path = root / "/a.rec";
  const std::string a = Record("ryn.storage.apd.start", {"naa.a"});
  const std::vector<std::byte> eventA = rynctl::EventBytes(rynctl::kApdStart, {"naa.a"});
  const std::vector<std::byte> eventB = rynctl::EventBytes(rynctl::kApdStart, {"naa.b"});
  const auto write = [&](const std::vector<std::vector<std::byte>> &events) {
    Recorder recorder(path);
    const flight::HostAnswer uuid{flight::HostKind::kText, false, false, 0, "machine/uuid", rynctl::kTestUuid};
    recorder.Put("rynd", flight::Start{}).Put("rynd", uuid).Observe(a).Take("APDCorrelator", a);
    for (const std::vector<std::byte> &event : events) recorder.Put("APDCorrelator", flight::Event{event});
    recorder.Put("APDCorrelator", flight::Done{});
  };
  write({eventA});
  const std::string equal = Tool(ReplayCommand, {path});
  ExpectIn("1 event from 1 handled observation, all as recorded.\n0", equal);
  EXPECT_EQ(Tool(ReplayCommand, {path}), equal);
  write({});
  ExpectIn("\n+ ", "\n" + Tool(ReplayCommand, {path}));
  ExpectIn("0 as recorded, 0 changed (!), 1 in the replay alone (+), 0 in the recording alone (-).\n1",
           Tool(ReplayCommand, {path}));
  write({eventB});
  ExpectIn("! replayed: ", Tool(ReplayCommand, {path}));
  ExpectIn("1 changed (!)", Tool(ReplayCommand, {path}));
  write({eventA, eventA});
  ExpectIn("1 as recorded, 0 changed (!), 0 in the replay alone (+), 1 in the recording alone (-).\n1",
           Tool(ReplayCommand, {path}));
  ExpectIn("\"compared\":\"missing\"", Tool(ReplayCommand, {path, "--json"}));
}

TEST(Recording, TellsEachAgentItsOwnReadsAndRunsTimersWhenTheyRan) {
  const TestRoot root;
  const std::string path = root / "/a.rec";
  const std::string down = Record("ryn.net.hynic.linkstate.down", {"hynic0"});
  const auto clock = [](flight::ClockKind kind, int64_t value) { return flight::ClockRead{kind, value}; };
  {
    Recorder recorder(path);
    recorder.Put("rynd", flight::Start{});
    for (int i = 0; i < 3; ++i) {
      recorder.Observe(down)
          .Take("netCorrelator", down)
          .Put("netCorrelator", clock(flight::ClockKind::kWindowS, 100 + i));
      recorder.Put("netCorrelator", flight::HostAnswer{flight::HostKind::kText, false, false, 0,
                                                       "sysinfo/config/intOpts/Net/LinkFlappingThreshold", "2"});
      if (i == 2) {
        recorder.Put("netCorrelator", flight::HostAnswer{flight::HostKind::kAction, false, false, 0,
                                                         "net/pNics/linkFlapping", "hynic0"});
      }
      recorder.Put("netCorrelator", clock(flight::ClockKind::kMonotonicNs, 5'000'000'000))
          .Put("netCorrelator", flight::Done{});
    }
    recorder.Wait(1'000).Put("TimerThread", flight::Timer{"uplinks"}).Put("TimerThread", flight::Done{});
    recorder.Put("netCorrelator", flight::Timer{"woken"})
        .Put("netCorrelator", clock(flight::ClockKind::kMonotonicNs, 5'000'000'002))  // more than a second too early
        .Put("netCorrelator", flight::Done{});
    recorder.Wait(1'000)
        .Put("netCorrelator", flight::Timer{"woken"})
        .Put("netCorrelator", clock(flight::ClockKind::kMonotonicNs, 6'000'000'000))
        .Put("netCorrelator", flight::Done{});
  }
  const std::string replayed = Tool(ReplayCommand, {path});
  EXPECT_NE(replayed.find("linkstate.flapping"), std::string::npos) << replayed;
  EXPECT_NE(replayed.find("linkstate.down  Physical NIC hynic0 linkstate is down  <- net, uplink hynic0: link down"),
            std::string::npos)
      << replayed;
  const std::string whatIf = Tool(ReplayCommand, {path, "--set", "sysinfo/config/intOpts/Net/LinkFlappingThreshold=3"});
  EXPECT_EQ(whatIf.find("linkstate.flapping"), std::string::npos) << whatIf;
  const std::string why = Tool(WhyCommand, {"net.hynic.linkstate.flapping", path});
  EXPECT_NE(why.find("counter of link losses of hynic0 at 3 in 60 s, tolerated are 2"), std::string::npos) << why;
  EXPECT_NE(why.find("counter of link losses of hynic0 at 1 in 60 s"), std::string::npos) << why;
  EXPECT_NE(why.find("sysinfo/config/intOpts/Net/LinkFlappingThreshold is \"2\""), std::string::npos) << why;
  const std::string whyNot = Tool(WhyNotCommand, {"net.connectivity.lost", path, "--subject", "hynic0"});
  EXPECT_NE(whyNot.find("did not come.\nNo observation about hynic0 came that leads to it:\n"), std::string::npos)
      << whyNot;
}

TEST(Recording, PlaysEachRunFromItsStart) {
  const TestRoot root;
  const std::string path = root / "/a.rec";
  const std::string full = Record("ryn.velfs.ramdisk.full", {"tmp", "/tmp/a"});
  {
    Recorder recorder(path);
    // Within 300 s, but the daemon had started anew; and after them.
    for (int run = 0; run < 3; ++run) {
      recorder.Put("rynd", flight::Start{}).Observe(full).Wait(100).Observe(full).Wait(301'000).Observe(full);
    }
  }
  const std::string replayed = Tool(ReplayCommand, {path});
  EXPECT_EQ(std::ranges::count_if(
                testing_support::Lines(replayed),
                [](const std::string &line) { return line.starts_with("2 events from 3 handled observations"); }),
            3)
      << replayed;
  ExpectIn("the alarm of tmp was given 0 s ago: quiet for 300 s",
           Tool(WhyNotCommand, {"velfs.ramdisk.full", path, "--subject", "/tmp/a"}));
}

TEST(Recording, SaysWhatCannotBeUsed) {
  const TestRoot root;
  testing_support::WriteFile(root / "/text", "not a recording at all, whatever its length may be, which is enough\n");
  testing_support::WriteFile(root / "/empty", "");
  for (const std::string &path : {root / "/none", root / "/text", root / "/empty", root.Path()}) {
    const std::string said = Tool(ReplayCommand, {path});
    EXPECT_TRUE(said.ends_with("2") && said.find(path) != std::string::npos) << said;
    EXPECT_TRUE(Tool(WhyCommand, {"1", path}).ends_with("2"));
  }
  EXPECT_TRUE(Tool(ReplayCommand, {"--from-trace", root / "/text"}).ends_with("2"));
}

TEST(Recording, TakesASavedTraceFeed) {
  const TestRoot root;
  testing_support::WriteFile(
      root / "/feed",
      R"({"us":1700000000000000,"dir":"in","context":"kernel-00","id":"ryn.storage.apd.timeout","text":"m",)"
      R"("args":[{"s":"naa.6001"},{"i32":140}],"agents":["APD"]})"
      "\n"
      R"({"us":1700000000000001,"dir":"out","seq":1,"agent":"APD","id":"amb.problem.storage.apd.timeout"})"
      "\n");
  const std::string replayed = Tool(ReplayCommand, {"--from-trace", root / "/feed"});
  EXPECT_NE(replayed.find("amb.problem.storage.apd.timeout"), std::string::npos) << replayed;
  EXPECT_NE(replayed.find("1 event from 1 handled observation"), std::string::npos) << replayed;
}

}  // namespace
}  // namespace replay
