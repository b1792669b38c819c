#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

Events Dumped(const std::string &id, const std::string &name, const Arguments &more = {}) {
  Arguments arguments = {Str(name), Int(77), Str("/core")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return EventsOf(UserWorldHandlers(), id, arguments);
}

TEST(UserWorld, CountsCrashesByNameAndKind) {
  const auto dumped = [](int count) {
    return Events{"amb.problem.application.core.dumped An application (app) running on Ambi host has crashed (" +
                  std::to_string(count) + " time(s) so far). A core file may have been created at /core."};
  };
  EXPECT_EQ(Dumped("ryn.uw.core.dumped", "app"), dumped(1));
  EXPECT_EQ(Dumped("ryn.uw.core.dumped.encrypted", "app"),
            dumped(2));  // no key: not encrypted
  EXPECT_TRUE(Dumped("ryn.uw.core.dumpFailed", "app")[0].starts_with(
      "amb.problem.application.core.dumpFailed An application (app) running on Ambi host has crashed (1 "));
  EXPECT_TRUE(Dumped("ryn.uw.core.dumped", "app", {Str("k1")})[0].ends_with(
      "(3 time(s) so far). An encrypted core file using keyId k1 may have been created at /core."));

  // A key that is none drops the observation, uncounted.
  EXPECT_EQ(Dumped("ryn.uw.core.dumped", "app", {Int(1)}), Events{});
  EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.core.dumped", {Str("app"), Int(1)}), Events{});
  EXPECT_EQ(Dumped("ryn.uw.core.dumped", "app"), dumped(4));
}

TEST(UserWorld, WordsCrashesOfAgentsByPartOfTheirName) {
  for (const std::string agent : {"mgmtd", "fleetd"}) {
    const std::string name = "x-" + agent + "-worker", front = "amb.problem." + agent + ".core.dumped";
    EXPECT_TRUE(Dumped("ryn.uw.core.dumped.encrypted", name)[0].starts_with(
        front + " " + name + " crashed (1 time(s) so far) and a core file "));
    EXPECT_TRUE(Dumped("ryn.uw.core.dumped", name, {Str("k")})[0].starts_with(
        front + ".encrypted " + name +
        " crashed (2 time(s) so far) and an encrypted core file using keyId k may have been created at /core."));
  }

  EXPECT_TRUE(Dumped("ryn.uw.core.dumped", "fleetd and mgmtd")[0].starts_with("amb.problem.mgmtd.core.dumped "));
  EXPECT_EQ(EventsOf(UserWorldHandlers(), "ryn.uw.core.dumped", {NullStr(), Int(1), NullStr()}).size(), 1u);
}

TEST(UserWorld, ReportsTenForeignFiles) {
  const std::string prevented =
      "amb.audit.uw.security.execInstalledOnly.violation Execution of non-installed file "
      "prevented: ";
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
