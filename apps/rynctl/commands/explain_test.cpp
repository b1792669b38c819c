// Explanations and lists, as people and programs get them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "catalog/catalog.h"
#include "rynctl/toolRun.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

TEST(Explain, TellsEverythingInEightyColumns) {
  for (const catalog::Event &event : catalog::Events()) {
    const ToolResult result = RunTool({"explain", event.name});
    ASSERT_EQ(result.status, 0) << result.err;
    bool commands = false;
    for (const std::string &line : testing_support::Lines(result.out)) {
      commands = commands || line == "Try it";
      EXPECT_TRUE(commands || line.size() <= 80) << line;
      EXPECT_EQ(line.find('\x1b'), std::string::npos) << "colors are for terminals";
    }
    EXPECT_TRUE(commands || event.name == "amb.problem.cpu.page.correctederrors.high") << event.name;
  }
}

TEST(Explain, SaysWhatEndsAndWhatToType) {
  const std::string out = RunTool({"explain", "net.redundancy.lost"}).out;
  for (const char *part : {"problem, error", "virtual switch SWITCH", "each of PORT_GROUPS, NIC",
                           "ryn.net.pg.uplink.transition.down (agent net)", "of the same PORT_GROUPS; without names",
                           "echo vSwitch0 > net/portgroups/Production\n"}) {
    EXPECT_NE(out.find(part), std::string::npos) << part << "\n" << out;
  }
  EXPECT_NE(RunTool({"explain", "ryn.velfs.ramdisk.full"}).out.find("RAMDISK (s), FILE (s)"), std::string::npos);
  EXPECT_NE(RunTool({"explain", "velfs.failure"}).out.find("rynctl submit --force"), std::string::npos);
}

TEST(Explain, GuessesAndFails) {
  const ToolResult typo = RunTool({"explain", "sotrage.apd.start"});
  EXPECT_EQ(typo.status, 1);
  EXPECT_NE(typo.err.find("did you mean amb.problem.storage.apd.start"), std::string::npos) << typo.err;
  const ToolResult several = RunTool({"explain", "net.lacp"});
  EXPECT_EQ(several.status, 1);
  EXPECT_NE(several.err.find("16 names begin with net.lacp:\n  amb.audit.net.lacp.disable\n"), std::string::npos);
  EXPECT_EQ(RunTool({"explain"}).status, 2);
  EXPECT_EQ(RunTool({"explain", "\x1b[2J"}).err.find('\x1b'), std::string::npos);
}

TEST(Catalog, ListsWhatIsAskedFor) {
  const auto json = nlohmann::json::parse(RunTool({"catalog", "--json"}).out);
  EXPECT_EQ(json["version"], 1);
  EXPECT_EQ(json["events"].size(), catalog::Events().size());
  EXPECT_EQ(json["events"][0], nlohmann::json::parse(RunTool({"explain", "--json", json["events"][0]["name"]}).out));
  const auto some = nlohmann::json::parse(RunTool({"catalog", "--observations", "storage.apd", "--json"}).out);
  ASSERT_EQ(some["observations"].size(), 3U);
  EXPECT_EQ(some["observations"][2]["arguments"][1]["type"], "i32");
  EXPECT_EQ(RunTool({"catalog", "problem.kvol"}).out,
            "error\tamb.problem.kvol.container.offline\tKVol container (CONTAINER) has gone offline.\n");
  EXPECT_EQ(RunTool({"catalog", "--observations", "ryn.kvol.container.on"}).out,
            "Kvol\tryn.kvol.container.online\tCONTAINER (s)\n");
  EXPECT_EQ(RunTool({"catalog", "nothing"}).status, 1);
}

}  // namespace
}  // namespace rynctl
