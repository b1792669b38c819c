// What every agent asks of the runner, which is replaced: nothing else would notice an agent that hears nothing.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <random>
#include <string>
#include <vector>

#include "correlators/agentTable.h"
#include "platform/ryn.h"
#include "testing/postedEvents.h"
#include "testing/recordedAgents.h"

namespace rynd {
namespace {

/// What an agent's default handler logs and posts about "ryn.t.other".
std::vector<std::string> Answer(Handler handler, CapturedLog *log) {
  const size_t before = log->Messages().size();
  Observation *observation = MakeObservation("ryn.t.other", {}, "seen");
  handler(observation);
  Ryn_Free(observation);
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

/// An argument that no handler may trip over.
hosted::RawArgument AnyArgument(std::mt19937 *random) {
  switch ((*random)() % 9) {
    case 0:
      return NullStr();
    case 1:
      return Str("");
    case 2:
      return Str("%s%n/../\n\t\"" + std::string((*random)() % 3000, '/'));
    case 3:
      return Str("reason: " + std::to_string((*random)() % 50));
    case 4:
      return Int(static_cast<int32_t>((*random)()));
    case 5:
      return Long(~uint64_t{0} >> ((*random)() % 64));
    default:  // what most handlers expect
      return (*random)() % 2 == 0 ? Str("name" + std::to_string((*random)() % 20)) : Int((*random)() % 100);
  }
}

/// Hand `arguments` to `handler` under `id`; what the runner would let pass fails the test.
void Try(Handler handler, std::string_view id, const Arguments &arguments, CapturedLog *log) {
  const std::vector<std::byte> record = hosted::EncodeRecord({1, 2, std::string(id), "m", arguments});
  auto *bytes = new std::byte[record.size()];
  std::copy(record.begin(), record.end(), bytes);
  Observation *observation = nullptr;
  ASSERT_EQ(Ryn_MakeRyn(bytes, record.size(), &observation), 0);
  try {
    handler(observation);
  } catch (const std::exception &) {  // the runner ignores it
  } catch (...) {
    ADD_FAILURE() << id << " throws what would end its agent";
  }
  Ryn_Free(observation);
  log->Messages();  // or the log would wait for room
}

TEST(AgentTable, NoHandlerTripsOverItsArguments) {
  std::mt19937 random(20261121);
  CapturedLog log;
  KeepEvents(0);
  size_t tried = 0;
  for (const AgentFunction agent : AgentTable()) {
    agent();
    HandlerTable table = recordedAgents.back().table;
    for (const std::string_view id : table.Ids()) {
      for (const hosted::RawArgument &same : {NullStr(), Str(""), Int(-1), Long(~uint64_t{0})}) {
        for (size_t count = 0; count <= 12; ++count, ++tried) Try(table[id], id, Arguments(count, same), &log);
      }
      for (int i = 0; i < 60; ++i, ++tried) {
        Arguments arguments;
        for (size_t count = random() % 13; count > 0; --count) arguments.push_back(AnyArgument(&random));
        Try(table[id], id, arguments, &log);
      }
    }
  }
  KeepEvents(SIZE_MAX);
  EXPECT_GT(tried, 300u * 100);
}

}  // namespace
}  // namespace rynd
