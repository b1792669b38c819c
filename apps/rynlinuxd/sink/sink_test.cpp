// The way out: what is merged, what is lost, what a new daemon and a new run are told.
#include "sink/sink.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdlib>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/records.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

Report State(const std::string &key, const std::string &state, bool isOpen) {
  return {"ryn.test." + state, "", {Text(key)}, key, state, isOpen};
}

/// A daemon's end of context 0, whose queue holds few records.
struct FakeDaemon {
  base::UniqueFd socket;
  void Serve() {
    ASSERT_EQ(hosted::MakeFolders(hosted::RootPath(hosted::kContextFolder), 0700), 0);
    ASSERT_EQ(hosted::ServeUnixSocket(hosted::KernelSocketPath(0), SOCK_DGRAM, 0600, &socket), 0);
  }
  void End() {
    socket.Reset();
    unlink(hosted::KernelSocketPath(0).c_str());
  }
  /// "ID KEY" of all that is there, each ended by ';'.
  std::string Read() {
    std::string read;
    for (hosted::RawRecord record; !(record = testing_support::ReceiveRecord(socket.Get())).id.empty();) {
      read += record.id.substr(9) + ' ' + (record.arguments.empty() ? "" : record.arguments.back().text) + ';';
    }
    return read;
  }
};

struct SinkTest : testing::Test {
  FakeDaemon daemon;
  Ledger ledger;
  std::vector<Report> states;  ///< what the sources see
  Sink sink{&ledger,
            [this] {
              for (const Report &state : states) sink.Tell(state);
            },
            false};
  std::string ledgerPath = hosted::RootPath("/ledger.json");
  void SetUp() override {
    unlink(ledgerPath.c_str());
    ledger.Load(ledgerPath, "boot-1");
    daemon.Serve();
    sink.Connect(0);
  }
  void TearDown() override { daemon.End(); }
  void See(const Report &report) {
    std::erase_if(states, [&](const Report &state) { return state.key == report.key; });
    states.push_back(report);
    sink.Tell(report);
  }
};

TEST_F(SinkTest, StatesAreMergedAndWhatMustBeCountedIsNot) {
  size_t sent = 0;
  while (sink.Socket() >= 0 && !sink.WantsRoom() && sent < 10'000) {
    sink.Tell({"ryn.test.fill", "", {Text("x")}});
    ++sent;
  }
  ASSERT_LT(sent, 10'000u) << "a full queue does not block";
  See(State("a", "down", true));
  for (int i = 0; i < 5000; ++i) {
    See(State("b", i % 2 == 0 ? "down" : "up", i % 2 == 0));
    sink.Tell({"ryn.test.once", "", {Text("n")}});
  }
  See(State("c", "down", true));
  See(State("c", "", false));
  std::string all;
  for (std::string part; !(part = daemon.Read()).empty(); sink.Flush()) all += part;
  const auto count = [&](const std::string &what) {
    size_t found = 0;
    for (size_t at = 0; (at = all.find(what, at)) != std::string::npos; ++at) ++found;
    return found;
  };
  EXPECT_EQ(count("fill x;"), sent);
  EXPECT_EQ(count("down a;") + count("up b;") + 10 * count("down b;"), 2u) << "the last states alone";
  EXPECT_EQ(count(" c;"), 0u) << "came and went unseen";
  const size_t kept = count("once n;");
  EXPECT_LE(kept, Outbox::kMostOnce);
  EXPECT_NE(all.find(std::to_string(5000 - kept) + " observations were lost"), std::string::npos) << all.substr(0, 300);
  EXPECT_TRUE(sink.IsTaken());
}

TEST_F(SinkTest, ADaemonThatIsStartedAnewHearsWhatIsOpenOnce) {
  See(State("fine", "up", false));  // told just now, and perhaps never handled
  See(State("open", "down", true));
  Report baseline = State("old", "down", true);
  baseline.isBaseline = true;
  See(baseline);
  sink.Tell({"ryn.test.audit", "", {Text("once")}});
  EXPECT_EQ(daemon.Read(), "up fine;down open;audit once;");
  daemon.End();
  See(State("late", "down", true));
  EXPECT_EQ(sink.Due() == INT64_MAX, sink.Socket() >= 0) << "it looks for a new one";
  daemon.Serve();
  sink.Ready(sink.Notifier(), 1);
  const std::string again = daemon.Read();
  EXPECT_EQ(again, "down late;up fine;down open;") << "a baseline stays one, an audit is never repeated";
  See(State("open", "down", true));
  EXPECT_EQ(daemon.Read(), "");
}

TEST_F(SinkTest, ARunThatIsStartedAnewTellsTheDifferences) {
  See(State("same", "down", true));
  See(State("ends", "down", true));
  See(State("up", "up", false));
  daemon.Read();
  ledger.SetRun(Ledger::Run::kRunning);
  ledger.Save();
  for (const bool isNewDaemon : {false, true}) {
    if (isNewDaemon) {
      daemon.End();
      daemon.Serve();
    }
    Ledger next;
    next.Load(ledgerPath, isNewDaemon ? "boot-2" : "boot-1");
    EXPECT_TRUE(next.Previous() == Ledger::Run::kRunning && next.IsNewBoot() == isNewDaemon);
    Sink second(
        &next, [] {}, false);
    second.Connect(0);
    second.Tell(State("same", "down", true));
    second.Tell(State("ends", "", false));
    second.Tell(State("up", "up", false));
    EXPECT_EQ(daemon.Read(), isNewDaemon ? "down same; ends;" : " ends;");
  }
}

TEST(LedgerFile, ABrokenOneCountsAsMissing) {
  const std::string path = hosted::RootPath("/broken.json");
  for (const char *text : {"", "{", "[]", "{\"run\": 1}", "{\"run\": \"running\"", "\xff\xfe"}) {
    testing_support::WriteFile(path, text);
    Ledger ledger;
    ledger.Load(path, "b");
    EXPECT_FALSE(ledger.Existed()) << text;
    ledger.SetRun(Ledger::Run::kEnded);
    ledger.RecordTold(State("a \"name\"\n with\tblanks", "=odd state", true), 7);
    ledger.Save();
    Ledger next;
    next.Load(path, "b");
    ASSERT_NE(next.Find("a \"name\"\n with\tblanks"), nullptr);
    EXPECT_EQ(next.Find("a \"name\"\n with\tblanks")->state, "=odd state");
  }
}

}  // namespace
}  // namespace rynlinuxd
