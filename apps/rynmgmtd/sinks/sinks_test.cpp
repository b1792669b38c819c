// Sinks against the other sides that they meet: there, slow, gone and back.
#include "mgmtd/sinks/sinks.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "apps/rynmgmtd/testSupport.h"
#include "catalog/catalog.h"
#include "mgmtd/sinks/alertmanagerSink.h"
#include "mgmtd/sinks/execSink.h"
#include "mgmtd/sinks/journalSink.h"
#include "testing/journalListener.h"

namespace mgmtd {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using testing_support::JournalListener;
using testing_support::WaitUntil;

/// A feed and positions that outlast the sinks, as a store's do.
struct Agent {
  std::string store = testing_support::ProcessRoot() / "/sinks.db";
  Feed feed;
  Writer writer{{store}, &feed};
  std::unique_ptr<Sinks> sinks;

  ~Agent() { feed.Stop(); }
  std::string Start(SinkOptions options) {
    sinks = std::make_unique<Sinks>(std::move(options), store, &feed, &writer);
    return sinks->Start();
  }
  void Publish(int64_t from, int64_t to) {
    std::vector<StoredEvent> events;
    for (int64_t id = from; id <= to; ++id) events.push_back(MakeEvent(id));
    feed.Publish(events, {});
  }
  bool HasPassed(uint64_t count) {
    return WaitUntil([&] { return sinks->Statuses()[0].passed >= count && sinks->Statuses()[0].lag == 0; });
  }
};

std::string FieldOf(const std::string &record, const std::string &name) {
  const size_t at = ("\n" + record).find("\n" + name + "=");
  if (at == std::string::npos) return "(none)";
  const size_t begin = at + name.size() + 1;
  return record.substr(begin, record.find('\n', begin) - begin);
}

TEST(JournalSink, WritesRecordsOfEverySize) {
  JournalListener journal;
  Agent agent;
  ASSERT_EQ(agent.Start({.journal = true}), "");
  StoredEvent lines = MakeEvent(2, "one\ntwo"), unknown = MakeEvent(4, "");
  unknown.name = "amb.problem.none";
  unknown.category = "unknown";
  unknown.severity = "info";
  agent.feed.Publish({MakeEvent(1), lines, MakeEvent(3, std::string(1'500'000, 'x')), unknown}, {});
  const std::string plain = journal.Next(10'000);
  const std::pair<const char *, std::string> fields[] = {{"MESSAGE", "text"},
                                                         {"PRIORITY", "3"},
                                                         {"SYSLOG_IDENTIFIER", "rynmgmtd"},
                                                         {"MESSAGE_ID", catalog::MessageId(kApd)},
                                                         {"RYND_EVENT", kApd},
                                                         {"RYND_CATEGORY", "problem"},
                                                         {"RYND_SUBJECT", "naa.1"},
                                                         {"RYND_ARG_DEVICE", "naa.1"},
                                                         {"RYND_ARG_LOST", "(none)"},
                                                         {"RYND_ARG_X_Y", "7"},
                                                         {"RYND_ID", "1"}};
  for (const auto &[name, value] : fields) EXPECT_EQ(FieldOf(plain, name), value) << name;
  EXPECT_NE(plain.find("\nRYND_SUBJECT=naa.2\n"), std::string::npos);
  EXPECT_NE(journal.Next(10'000).find(std::string("MESSAGE\n\7\0\0\0\0\0\0\0one\ntwo\n", 24)), std::string::npos);
  EXPECT_GT(journal.Next(10'000).size(), 1'500'000U);
  EXPECT_EQ(journal.files, 1);
  const std::string last = journal.Next(10'000);
  EXPECT_EQ(FieldOf(last, "MESSAGE"), "amb.problem.none");
  EXPECT_EQ(FieldOf(last, "MESSAGE_ID"), "(none)");
}

TEST(JournalSink, LosesAndDoublesNothingWhileTheJournalIsAway) {
  JournalListener journal;
  Agent agent;
  agent.Publish(1, 5);  // before it was asked for: not its business
  ASSERT_EQ(agent.Start({.journal = true}), "");
  agent.Publish(6, 10);
  int64_t next = 6;
  const auto readTo = [&](int64_t last) {
    for (; next <= last; ++next) ASSERT_EQ(FieldOf(journal.Next(10'000), "RYND_ID"), std::to_string(next));
  };
  readTo(10);
  ASSERT_TRUE(agent.HasPassed(5));
  journal.Close();
  agent.Publish(11, 2000);
  ASSERT_TRUE(WaitUntil([&] { return agent.sinks->Statuses()[0].failures >= 1; }));
  EXPECT_NE(agent.sinks->Statuses()[0].error, "");
  EXPECT_EQ(agent.sinks->Statuses()[0].lag, 1990);
  journal.Open();
  readTo(1000);  // slower than they are sent: the socket's queue is full all the time
  agent.sinks->Stop();
  // What was sent before the stop, and no more; the next run goes on behind it.
  const int64_t position = agent.writer.SinkPosition("journal")->event;
  readTo(position);
  EXPECT_EQ(journal.Next(50), "");
  ASSERT_EQ(agent.Start({.journal = true}), "");
  readTo(2000);
  EXPECT_EQ(journal.Next(50), "");
}

/// A folder that only root may write, for programs; removed in the end. "" where there is none.
class Programs {
 public:
  Programs() {
    std::string name = "/root/rynmgmtd-test-XXXXXX";
    if (geteuid() == 0 && mkdtemp(name.data()) != nullptr) folder = name;
  }
  ~Programs() {
    std::error_code ignored;
    if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
  }
  std::string Put(const std::string &name, const std::string &script, mode_t mode = 0755) const {
    testing_support::WriteFile(folder + "/" + name, "#!/bin/sh\n" + script + "\n");
    chmod((folder + "/" + name).c_str(), mode);
    return folder + "/" + name;
  }
  std::vector<std::string> Lines(const std::string &name) const {
    return testing_support::Lines(testing_support::ReadFile(folder + "/" + name));
  }

  std::string folder;
};

TEST(ExecSink, RunsOneProgramAtATimeInOrder) {
  const Programs programs;
  if (programs.folder.empty()) GTEST_SKIP() << "only root has folders that nobody else may write";
  // Event 3 asks to be called again once; event 5 hangs with a child; event 7 fails.
  const std::string program = programs.Put("each", "cd " + programs.folder + R"(
mkdir running || echo overlap >>out
cat >event; id=$(sed 's/.*"id":\([0-9]*\).*/\1/' event)
echo "$id" >>out
rmdir running
[ $id != 3 ] || [ -e again ] || { touch again; exit 75; }
[ $id != 5 ] || { sleep 1000 & echo $! >child; wait; }
[ $id != 7 ] || exit 3
[ -z "$SECRET" ] || echo leaked >>out)");
  setenv("SECRET", "1", 1);
  Agent agent;
  ASSERT_EQ(agent.Start({.exec = program, .execLimit = milliseconds(1500)}), "");
  agent.Publish(1, 8);
  ASSERT_TRUE(agent.HasPassed(6));
  EXPECT_EQ(programs.Lines("out"), (std::vector<std::string>{"1", "2", "3", "3", "4", "5", "6", "7", "8"}));
  EXPECT_EQ(agent.sinks->Statuses()[0].refused, 2U);
  EXPECT_EQ(agent.sinks->Statuses()[0].failures, 1U);
  const pid_t child = std::stoi(programs.Lines("child").at(0));
  const std::string state = "/proc/" + std::to_string(child) + "/stat";
  EXPECT_TRUE(WaitUntil([&] {
    const std::string text = testing_support::ReadFile(state);
    return text.empty() || text.find(") Z ") != std::string::npos;
  })) << "the child of a program that was killed lives on";
  unsetenv("SECRET");
  // A stop in the middle: the event is not passed, and comes again.
  programs.Put("each", "sleep 1000");
  agent.Publish(9, 9);
  std::this_thread::sleep_for(milliseconds(300));
  agent.sinks->Stop();
  EXPECT_EQ(agent.writer.SinkPosition("exec")->event, 8);
  // A program that turned unsafe is not run, until that is mended.
  programs.Put("each", "cat >>" + programs.folder + "/later", 0757);
  EXPECT_NE(agent.Start({.exec = program}).find("chmod"), std::string::npos);
  chmod(program.c_str(), 0755);
  ASSERT_EQ(agent.Start({.exec = program}), "");
  ASSERT_TRUE(agent.HasPassed(1));
  EXPECT_EQ(programs.Lines("later").size(), 1U);
}

TEST(ExecSink, RunsOnlyWhatRootAloneDecides) {
  const Programs programs;
  if (programs.folder.empty()) GTEST_SKIP() << "only root has folders that nobody else may write";
  const auto folder = [&programs](const char *name, mode_t mode) {
    const std::string path = programs.folder + "/" + name;
    mkdir(path.c_str(), 0755);
    programs.Put(std::string(name) + "/program", "true");
    chmod(path.c_str(), mode);
    return path + "/program";
  };
  const std::string good = programs.Put("good", "true");
  const std::string foreign = programs.Put("foreign", "true");
  ASSERT_EQ(chown(foreign.c_str(), 65534, 0), 0);
  const std::string away = testing_support::ProcessRoot() / "/away";
  testing_support::WriteFile(away, "#!/bin/sh\n");
  chmod(away.c_str(), 0755);
  const std::string link = programs.folder + "/link", badLink = programs.folder + "/badLink";
  ASSERT_EQ(symlink(good.c_str(), link.c_str()), 0);
  ASSERT_EQ(symlink(away.c_str(), badLink.c_str()), 0);
  EXPECT_EQ(CheckProgram(good), "");
  EXPECT_EQ(CheckProgram(link), "");
  EXPECT_EQ(CheckProgram(folder("fine", 0755)), "");
  const std::pair<std::string, const char *> bad[] = {
      {"good", "absolute"},
      {programs.folder + "/missing", "No such file"},
      {programs.folder, "plain"},
      {foreign, "owned"},
      {programs.Put("group", "true", 0775), "chmod"},
      {programs.Put("others", "true", 0757), "chmod"},
      {programs.Put("text", "true", 0644), "chmod"},
      {folder("shared", 0775), "chmod"},
      {folder("public", 01777), "chmod"},
      {badLink, "/tmp"},
  };
  for (const auto &[path, says] : bad) EXPECT_NE(CheckProgram(path).find(says), std::string::npos) << path;
}

/// An Alertmanager that remembers, with what a real one refuses.
class FakeAlertmanager {
 public:
  explicit FakeAlertmanager(int port = 0) {
    server_.Post("/am/api/v2/alerts", [this](const httplib::Request &request, httplib::Response &response) {
      const json alerts = json::parse(request.body);
      const std::lock_guard lock(mutex_);
      bool refused = false;
      for (const json &alert : alerts) {
        if (alert["labels"].value("subject", "") == "bad") {
          refused = true;
          continue;
        }
        const bool resolved = alert["endsAt"] < alert.value("now", "2025");
        history_.push_back(alert["labels"].value("subject", "") + (resolved ? " resolved" : " firing"));
      }
      response.status = refused ? 400 : 200;
    });
    port_ = port == 0 ? server_.bind_to_any_port("127.0.0.1") : server_.bind_to_port("127.0.0.1", port) ? port : -1;
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(milliseconds(1));
  }
  ~FakeAlertmanager() {
    server_.stop();
    thread_.join();
  }
  int Port() const { return port_; }
  long Count(const std::string &what) {
    const std::lock_guard lock(mutex_);
    return std::count(history_.begin(), history_.end(), what);
  }
  bool Has(const std::string &what, long times = 1) {
    return WaitUntil([&] { return Count(what) >= times; });
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::mutex mutex_;
  std::vector<std::string> history_;
  std::thread thread_;
};

TEST(AlertmanagerSink, TellsTheLastOfEachProblemAcrossAbsences) {
  auto manager = std::make_unique<FakeAlertmanager>();
  const int port = manager->Port();
  const SinkOptions options{.alertmanagers = {"http://127.0.0.1:" + std::to_string(port) + "/am/"},
                            .resend = milliseconds(60'000)};
  Agent agent;
  agent.feed.Publish({}, {MakeProblem(1, 1, "early")});  // open before the sink was there: told all the same
  ASSERT_EQ(agent.Start(options), "");
  ASSERT_TRUE(manager->Has("early firing"));
  agent.feed.Publish({}, {MakeProblem(2, 2, "a"), MakeProblem(3, 3, "b")});
  ASSERT_TRUE(manager->Has("b firing"));
  agent.feed.Publish({}, {MakeProblem(4, 2, "a", true)});
  ASSERT_TRUE(manager->Has("a resolved"));
  ASSERT_TRUE(agent.HasPassed(3));
  // Away: b ends, c comes and ends, d comes, "early" ends and comes back as another problem.
  manager.reset();
  agent.feed.Publish({}, {MakeProblem(5, 3, "b", true), MakeProblem(6, 4, "c"), MakeProblem(8, 5, "d")});
  agent.feed.Publish({},
                     {MakeProblem(9, 4, "c", true), MakeProblem(10, 1, "early", true), MakeProblem(11, 6, "early")});
  ASSERT_TRUE(WaitUntil([&] { return agent.sinks->Statuses()[0].failures >= 2; }));
  agent.sinks->Stop();
  ASSERT_EQ(agent.Start(options), "");  // and the agent is started anew meanwhile
  manager = std::make_unique<FakeAlertmanager>(port);
  ASSERT_EQ(manager->Port(), port);
  ASSERT_TRUE(manager->Has("b resolved"));
  ASSERT_TRUE(manager->Has("d firing"));
  ASSERT_TRUE(WaitUntil([&] { return agent.sinks->Statuses()[0].lag == 0; }));
  ASSERT_TRUE(manager->Has("early firing"));
  EXPECT_EQ(manager->Count("early resolved"), 0) << "its end came behind its return";
  EXPECT_EQ(manager->Count("b firing"), 0);
  EXPECT_EQ(manager->Count("a resolved"), 0) << "told twice";
}

TEST(AlertmanagerSink, RepeatsWhatIsOpenAndGoesRoundWhatIsRefused) {
  FakeAlertmanager manager;
  Agent agent;
  std::vector<Problem> problems;
  for (int64_t i = 1; i <= 450; ++i) problems.push_back(MakeProblem(i, i, i == 77 ? "bad" : "p" + std::to_string(i)));
  problems.push_back(MakeProblem(451, 451, "p1", true));
  problems.back().id = 1;
  ASSERT_EQ(agent.Start({.alertmanagers = {"http://127.0.0.1:" + std::to_string(manager.Port()) + "/am"},
                         .resend = milliseconds(200)}),
            "");
  agent.feed.Publish({}, problems);
  ASSERT_TRUE(manager.Has("p450 firing", 3));
  ASSERT_TRUE(manager.Has("p1 resolved"));
  EXPECT_EQ(agent.sinks->Statuses()[0].lag, 0);
  EXPECT_GE(agent.sinks->Statuses()[0].refused, 1U);
  EXPECT_EQ(manager.Count("p1 resolved"), 1) << "what ended is repeated";
  EXPECT_LE(manager.Count("p1 firing"), 1);
}

TEST(AlertmanagerSink, AlertsSayHowBadItIsAndHaveSoundTimesWhateverClocksSaid) {
  const int64_t now = 1'800'000'000'000'000;
  Problem future = MakeProblem(1, 1, "x");
  EXPECT_EQ(AlertOf(future, "host", now)["startsAt"], "2023-11-14T22:13:20.000001Z");
  EXPECT_EQ(AlertOf(future, "host", now)["labels"]["severity"], "error");
  future.firstUs = now + 500'000'000;
  const auto open = AlertOf(future, "host", now);
  EXPECT_LT(open["startsAt"], open["endsAt"]);
  future.endedUs = future.firstUs - 900'000'000;
  const auto ended = AlertOf(future, "host", now);
  EXPECT_LE(ended["startsAt"], ended["endsAt"]);
  future.subject = "";
  EXPECT_FALSE(AlertOf(future, "host", now)["labels"].contains("subject")) << "an empty label is no label";
}

TEST(Sinks, RefuseWhatCannotWork) {
  Agent agent;
  const std::pair<SinkOptions, const char *> cases[] = {
      {{.alertmanagers = {"alertmanager:9093"}}, "alertmanager:9093"},
      {{.alertmanagers = {"ftp://x"}}, "ftp://x"},
      {{.alertmanagers = {"http://"}}, "http://"},
      {{.alertmanagers = {"http://user@x"}}, "user@x"},
      {{.alertmanagers = {"http://x:1", "http://x:1/"}}, "twice"},
      {{.exec = "relative"}, "--exec"},
  };
  for (const auto &[options, says] : cases) EXPECT_NE(agent.Start(options).find(says), std::string::npos) << says;
}

}  // namespace
}  // namespace mgmtd
