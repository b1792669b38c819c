#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "correlators/user/rebootReason.h"
#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using nlohmann::json;

constexpr const char *kRecord = "configstore/amb/hykernel/reboot_reason.json";
constexpr const char *kConsult =
    " Please consult Ambi Embedded and Kestrel Server Setup Guide or follow the Ask Corvane link for more information.";

/// Every test starts without a record.
class UserLevelTest : public testing::Test {
 protected:
  void SetUp() override { ClearHost(); }

  static Events Announce(const std::string &id, const Arguments &arguments = {}) {
    return EventsOf(UserLevelHandlers(), id, arguments);
  }
  /// The committed values without the time; null when there is no record.
  static json Recorded() {
    json record = json::parse(testing_support::ReadFile(HostPath(kRecord)), nullptr, false);
    if (record.is_discarded()) return nullptr;
    record.erase("timestamp");
    return record;
  }
};

TEST_F(UserLevelTest, RecordsWhatIsAnnounced) {
  for (const std::string who : {"subsystem", "ambcli", "mgmtd"}) {
    for (const bool reboots : {true, false}) {
      const std::string tail = who + ".host." + (reboots ? "reboot" : "poweroff") + ".reason";
      const Events events = Announce("ryn.user." + tail, {Str("Reboot:  \t disk: upgrade"), Str("root"), Str("fleet")});
      ASSERT_EQ(events.size(), 1u);
      EXPECT_NE(events[0].find(": disk: upgrade. User: root."), std::string::npos) << events[0];
      const char *subsystem = who == "subsystem" ? "fleet" : who == "ambcli" ? "ambcli" : "DONT_REPLICATE";
      EXPECT_EQ(Recorded(), (json{{"type", reboots ? "REBOOT" : "POWEROFF"},
                                  {"user", "root"},
                                  {"subsystem", subsystem},
                                  {"reason", "disk: upgrade"}}));
    }
  }
}

TEST_F(UserLevelTest, WithoutAReasonThereIsNoAnnouncement) {
  for (const Arguments &arguments : {Arguments{}, Arguments{Str("no colon"), Str("root"), Str("x")},
                                     Arguments{NullStr(), Str("root"), Str("x")}, Arguments{Int(1), Str("root")}}) {
    EXPECT_EQ(Announce("ryn.user.subsystem.host.reboot.reason", arguments), Events{});
  }
  EXPECT_EQ(Recorded(), nullptr);
  // An empty reason is one; what can't be read behind it is an empty text.
  const struct {
    const char *id;
    Arguments arguments;
    const char *shown;
    json recorded;
  } rows[] = {{"subsystem.host.reboot.reason",
               {Str("why: ")},
               ". Reason for reboot: . User: . Subsystem: .",
               {{"type", "REBOOT"}, {"user", "UNKNOWN_USER"}, {"subsystem", ""}, {"reason", ""}}},
              {"mgmtd.host.reboot.reason",
               {Str(":x"), NullStr()},
               " through mgmtd. Reason for reboot: x. User: (null).",
               {{"type", "REBOOT"}, {"user", "UNKNOWN_USER"}, {"subsystem", "DONT_REPLICATE"}, {"reason", "x"}}},
              {"subsystem.host.poweroff.reason",
               {Str(":x"), Str(""), NullStr()},
               ". Reason for power off: x. User: . Subsystem: (null).",
               {{"type", "POWEROFF"}, {"user", "UNKNOWN_USER"}, {"subsystem", ""}, {"reason", "x"}}}};
  for (const auto &row : rows) {
    const Events events = Announce(std::string("ryn.user.") + row.id, row.arguments);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(events[0].ends_with(std::string(row.shown) + kConsult)) << events[0];
    EXPECT_EQ(Recorded(), row.recorded);
  }
}

TEST_F(UserLevelTest, ShellsNeverOverwriteAReason) {
  EXPECT_EQ(Announce("ryn.user.host.stop.shutdown"), Events{"amb.audit.host.stop.shutdown Host is shutting down."});
  EXPECT_EQ(Recorded()["reason"], "The host is being powered off through Shell Console User Interface.");
  EXPECT_EQ(Announce("ryn.user.host.stop.reboot"), Events{"amb.audit.host.stop.reboot Host is rebooting."});
  EXPECT_EQ(Recorded()["type"], "POWEROFF");
  Announce("ryn.user.mgmtd.host.reboot.reason", {Str("r: update"), Str("root")});
  EXPECT_EQ(Announce("ryn.user.host.stop.reboot").size(), 1u);
  EXPECT_EQ(Recorded()["reason"], "update");
  // A console does.
  for (const std::string kind : {"reboot", "shutdown"}) {
    EXPECT_TRUE(Announce("ryn.user.dcui." + kind + ".host")[0].starts_with("amb.audit.dcui.host." + kind + " "));
  }

  EXPECT_EQ(Recorded(), (json{{"type", "POWEROFF"},
                              {"user", "UNKNOWN_USER"},
                              {"subsystem", "DONT_REPLICATE"},
                              {"reason", "The host is being shutdown through Direct Console User Interface (DCUI)."}}));
}

TEST_F(UserLevelTest, ARefusedValueLeavesTheRecordAsItWas) {
  Announce("ryn.user.ambcli.host.reboot.reason", {Str("r: first"), Str("root")});
  PutHost("configstore/REFUSE", "subsystem\n");
  EXPECT_EQ(Announce("ryn.user.ambcli.host.reboot.reason", {Str("r: second"), Str("root")}).size(), 1u);
  EXPECT_EQ(Recorded()["reason"], "first");
  // A store that can't be read has no reason.
  std::filesystem::remove(HostPath("configstore/REFUSE"));
  PutHost(kRecord, "{\"reason\": ");
  EXPECT_EQ(RebootReasonRecorded(), 0);
  PutHost(kRecord, "{\"reason\": \"\"}");
  EXPECT_EQ(RebootReasonRecorded(), 0x0bad0005);
  PutHost(kRecord, "{\"type\": \"REBOOT\"}");
  EXPECT_EQ(RebootReasonRecorded(), 0);
}

TEST_F(UserLevelTest, TimesAreLocal) {
  // The zone may change while the daemon runs.
  setenv("TZ", "ABC4", 1);
  EXPECT_EQ(RebootTimestamp(0), "Wed, 31 Dec 69 20:00:00 -0400");
  setenv("TZ", "XYZ-5:30", 1);
  EXPECT_EQ(RebootTimestamp(0), "Thu, 01 Jan 70 05:30:00 +0530");
  EXPECT_EQ(RebootTimestamp(1795244277), "Sat, 21 Nov 26 12:27:57 +0530");
  unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace rynd
