// What every agent asks of the runner, which is replaced: nothing else would notice an agent that hears nothing.
#include "correlators/agentTable.h"

#include <string>
#include <vector>

#include "testing/postedEvents.h"
#include "testing/recordedAgents.h"

namespace rynd {
namespace {

/// What an agent's default handler logs and posts about "ryn.t.other".
std::vector<std::string> Answer(Handler handler, CapturedLog *log) {
  const size_t before = log->Messages().size();
  handler(MakeObservation(MakeRecord("ryn.t.other", {}, "seen")).get());
  const std::vector<std::string> &all = log->Messages();
  std::vector<std::string> answer(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
  for (const std::string &event : TakeEvents()) answer.push_back(event.substr(0, event.find(' ')));
  return answer;
}

}  // namespace

void DispatchObservation(Handler /*defaultHandler*/, HandlerTable * /*table*/, Observation * /*observation*/) {}

namespace {

TEST(AgentTable, AgentsStartInOrderAndHearTheirSubsystem) {
  using Texts = std::vector<std::string>;
  const Texts kNothing, kSaysSo = {"No correlator for ryn.t.other "}, kPrints = {"0us: [ryn.t.other] seen"};
  const struct {
    const char *name;
    Texts prefixes, answer;
  } rows[] = {
      {"net", {"net"}, kSaysSo},
      {"scsi", {"scsi"}, kSaysSo},
      {"psastor", {"psastor"}, kSaysSo},
      {"APD", {"storage.apd"}, kSaysSo},
      {"iscsi", {"iscsi"}, kNothing},
      {"hyfs", {"hyfs"}, kNothing},
      {"UserLevel", {"user"}, kNothing},
      {"Hardware", {"hardware"}, kNothing},
      {"cpu", {"cpu"}, kNothing},
      {"UserWorld", {"uw"}, kSaysSo},
      {"SWAP", {"swap"}, kSaysSo},
      {"Memtier", {"memory"}, kNothing},
      {"VM", {"vm"}, kSaysSo},
      {"Generic", {"user", "external"}, kPrints},
      {"migrate", {"migrate"}, kSaysSo},
      {"pageretire", {"pageretire"}, kNothing},
      {"Velfs", {"velfs"}, {kPrints[0], "amb.problem.velfs.failure"}},
      {"Vfat", {"vfat"}, kSaysSo},
      {"Clock", {"clock"}, {"No system clock correlator for ryn.t.other"}},
      {"sched", {"sched"}, kPrints},
      {"vscsi", {"vscsi"}, kNothing},
      {"Fabra", {"fabra"}, kSaysSo},
      {"HCM", {"hcm"}, kNothing},
      {"Kvol", {"kvol"}, kNothing},
      {"BootDevice", {"bootdevice"}, kNothing},
  };
  CapturedLog log;
  ASSERT_EQ(AgentTable().size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) {
    AgentTable()[i]();
    ASSERT_EQ(recordedAgents.size(), i + 1);
    const RecordedAgent &last = recordedAgents.back();
    EXPECT_EQ(last.name, rows[i].name);
    EXPECT_EQ(last.prefixes, rows[i].prefixes) << last.name;
    EXPECT_TRUE(last.exactIds.empty());
    EXPECT_EQ(last.table.Size() == 0, last.name == "Fabra") << last.name;
    ASSERT_NE(last.defaultHandler, nullptr) << last.name;
    EXPECT_EQ(Answer(last.defaultHandler, &log), rows[i].answer) << last.name;
  }
}

}  // namespace
}  // namespace rynd
