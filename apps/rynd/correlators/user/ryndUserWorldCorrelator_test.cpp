#include "correlators/user/crashCounter.h"
#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(CrashCounter, ForgetsTheNameThatCrashedLongestAgo) {
  CrashCounter counter;
  EXPECT_EQ(counter.Count("often", 1), 1);
  EXPECT_EQ(counter.Count("once", 2), 1);
  EXPECT_EQ(counter.Count("often", 3), 2);
  for (size_t i = 2; i < kMostMapEntries + 1; ++i) counter.Count("n" + std::to_string(i), 4);
  EXPECT_EQ(counter.Names(), kMostMapEntries);
  EXPECT_EQ(counter.Count("often", 5), 3);
  EXPECT_EQ(counter.Count("once", 6), 1);  // forgotten
  EXPECT_EQ(counter.Names(), kMostMapEntries);
  // Two new programs crash in turn after the clock was set back.
  for (int count = 1; count < 4; ++count) {
    EXPECT_EQ(counter.Count("one", 0), count);
    EXPECT_EQ(counter.Count("other", 0), count);
  }
}

Events Dumped(const std::string &id, const std::string &name, const Arguments &more = {}) {
  Arguments arguments = {Str(name), Int(77), Str("/core")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return EventsOf(UserWorldHandlers(), id, arguments);
}

TEST(UserWorld, CountsCrashesByNameAndKind) {
  const auto counted = [](const char *kind, const std::string &name, const Arguments &more = {}) {
    const Events events = Dumped(std::string("ryn.uw.core.") + kind, name, more);
    return events.empty() ? "" : events[0].substr(0, events[0].find(')'));
  };
  const std::string app = "amb.problem.application.core.", said = " An application (app";
  EXPECT_EQ(counted("dumped", "app"), app + "dumped" + said);
  const auto ends = [](const Events &events, const char *back) {
    return events.size() == 1 && events[0].ends_with(back);
  };
  EXPECT_TRUE(ends(Dumped("ryn.uw.core.dumped.encrypted", "app"),
                   "(2 time(s) so far). A core file may have been created at /core."))
      << "without a key it is not encrypted";
  EXPECT_EQ(counted("dumpFailed", "app"), app + "dumpFailed" + said) << "counted apart";
  // A key that is none drops the observation, uncounted.
  EXPECT_EQ(counted("dumped", "app", {Int(1)}), "");
  EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.core.dumped", {Str("app"), Int(1)}), Events{});
  EXPECT_TRUE(ends(Dumped("ryn.uw.core.dumped", "app", {Str("k1")}),
                   "(3 time(s) so far). An encrypted core file using keyId k1 may have been created at /core."));
  EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.core.dumped", {NullStr(), Int(1), NullStr()}).size(), 1u);
  // Agents go by part of their name.
  EXPECT_EQ(counted("dumped", "x-fleetd-worker"), "amb.problem.fleetd.core.dumped x-fleetd-worker crashed (1 time(s");
  EXPECT_EQ(counted("dumped", "fleetd and mgmtd").find("amb.problem.mgmtd.core.dumped "), 0u);
}

TEST(UserWorld, ReportsTenForeignFiles) {
  const std::string prevented =
      "amb.audit.uw.security.execInstalledOnly.violation Execution of non-installed file prevented: ";
  const std::string warned = "amb.audit.uw.security.execInstalledOnly.warning Execution of non-installed file: ";
  for (int i = 1; i <= 9; ++i) {
    const std::string path = "/tmp/" + std::to_string(i);
    const bool warning = i % 2 == 0;
    const char *id = warning ? "ryn.uw.exec.installonly.warning" : "ryn.uw.exec.installonly.violation";
    EXPECT_EQ(EventsOf(UserWorldHandlers(), id, {Str(path)}), Events{(warning ? warned : prevented) + path});
    EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.exec.installonly.violation", {Str(path)}), Events{});
  }
  EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.exec.installonly.violation", {Str("/tmp/10")}),
            Events{prevented + "Multiple files"});
  for (const char *path : {"/tmp/10", "/tmp/11", "/tmp/12"}) {
    EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.exec.installonly.warning", {Str(path)}), Events{});
  }
}

}  // namespace
}  // namespace rynd
