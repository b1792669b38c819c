// Valid records of every id, changed at every place of their structure, into every kind of context: none harms the
// daemon, and the good ones between them all arrive.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "testing/arrivals.h"
#include "testing/campaign/campaign.h"
#include "testing/daemon.h"
#include "testing/ledger.h"
#include "testing/peers.h"
#include "testing/replay/randomHost.h"

namespace testing_support {
namespace {

using hosted::ArgumentKind;
using hosted::RawRecord;

constexpr char kGoodId[] = "ryn.bootdevice.pdl.v2";
constexpr char kGoodEvent[] = "amb.problem.bootdevice.pdl.v2";
constexpr unsigned kContexts = 29;

/// One as the catalogue says, but for the agent that gets good records alone.
RawRecord NextRecord(RandomHost *host) {
  for (;;) {
    const std::string bytes = host->NextRecord(0);
    RawRecord record = hosted::DecodeRecord(reinterpret_cast<const std::byte *>(bytes.data()), bytes.size());
    if (!record.id.starts_with("ryn.bootdevice")) return record;
  }
}

/// A text that somebody may choose: long, with conversions, not UTF-8, with line ends.
std::string OddText(Rounds *rounds) {
  static const auto texts = std::to_array<std::string>({"", "%s%n%n%s", std::string("a\0b", 3), "\xff\xfe\x80",
                                                        "a\nb\r\x1b[31m", "../../../etc", std::string(300, 'x'), "-1",
                                                        "hba0:C0:T0:L0", "1700000000:00000001:0123456789abcdef",
                                                        "99999999999999999999", std::string(70'000, 'y')});
  return texts[rounds->Draw(rounds->Draw(50) == 0 ? texts.size() : texts.size() - 1)];
}

/// Change what a sender can choose, the layout left sound.
void ChangeParts(Rounds *rounds, RawRecord *record) {
  switch (rounds->Draw(6)) {
    case 0:
      record->message = OddText(rounds);
      break;
    case 1:
      record->id.resize(rounds->Draw(record->id.size()) + 1);
      break;
    case 2:
      record->id += OddText(rounds);
      break;
    case 3:
      if (!record->arguments.empty()) record->arguments.pop_back();
      break;
    case 4:
      for (uint64_t i = rounds->Draw(12); i > 0; --i) {
        record->arguments.push_back({ArgumentKind::kSigned, 4, rounds->Random()(), {}});
      }
      break;
    default:
      record->microseconds = rounds->Random()();
  }
  for (hosted::RawArgument &argument : record->arguments) {
    if (rounds->Draw(3) != 0) continue;
    const auto kind = static_cast<ArgumentKind>(rounds->Draw(4) + 1);
    const bool isInteger = kind == ArgumentKind::kSigned || kind == ArgumentKind::kUnsigned;
    argument = {kind, static_cast<uint8_t>(isInteger ? 1 << rounds->Draw(4) : 0), rounds->Random()(), {}};
    if (kind == ArgumentKind::kString) argument.text = OddText(rounds);
  }
}

/// Change what the layout says: a length, a count, a kind, any byte, or where it ends.
void ChangeBytes(Rounds *rounds, std::vector<std::byte> *bytes) {
  const auto odd = [&] {
    constexpr uint32_t kOdd[] = {0, 1, 31, 32, 0x7fffffff, 0x80000000, 0xffffffff, 131071, 131072};
    return rounds->Draw(2) == 0 ? kOdd[rounds->Draw(std::size(kOdd))]
                                : static_cast<uint32_t>(bytes->size() + rounds->Draw(9) - 4);
  };
  for (uint64_t i = rounds->Draw(3); i > 0; --i) {
    const size_t field = 16 + 4 * rounds->Draw(4);  // the total length, the count, the id's and the message's length
    const uint32_t value = odd();
    if (field + sizeof value <= bytes->size()) std::memcpy(bytes->data() + field, &value, sizeof value);
  }
  if (rounds->Draw(2) == 0) (*bytes)[rounds->Draw(bytes->size())] = static_cast<std::byte>(rounds->Draw(256));
  if (rounds->Draw(4) == 0) bytes->resize(rounds->Draw(bytes->size() + 40));
}

/// Where the records go: kernel contexts, and connections of programs, which the daemon may close.
class Senders {
 public:
  explicit Senders(const TestRoot &root) : root_(root) {
    for (unsigned id = 0; id < kContexts; ++id) kernel_.push_back(ConnectKernel(root, id));
  }
  void Send(Rounds *rounds, const std::vector<std::byte> &record) {
    const uint64_t to = rounds->Draw(kContexts + 3);
    if (to < kContexts) {
      sent_ += SendRecord(kernel_[to], record) ? 1 : 0;
      return;
    }
    base::UniqueFd &user = users_[to - kContexts];
    if (!user || rounds->Draw(200) == 0) user = ConnectUser(root_);
    if (!SendRecord(user, record)) user.Reset();
  }
  void SendGood(uint64_t number) {
    EXPECT_TRUE(SendRecord(kernel_[7], MakeRecord(kGoodId, {Arrivals::Text(number)})));
    ++sent_;
  }
  uint64_t SentToKernelContexts() const { return sent_; }

 private:
  const TestRoot &root_;
  std::vector<base::UniqueFd> kernel_;
  std::array<base::UniqueFd, 3> users_;
  uint64_t sent_ = 0;
};

/// What the daemon says of the records that were sent: "" when all are accounted for, and the good ones came through.
std::string Gap(const TestRoot &root, const Arrivals &arrivals, uint64_t sent, uint64_t good) {
  const nlohmann::json statistics = ReadStatistics(root);
  std::string gap = LedgerGap(statistics);
  if (!gap.empty()) return gap;
  const uint64_t read = ReadFromKernel(statistics);
  if (read != sent) gap += std::to_string(read) + " of " + std::to_string(sent) + " read; ";
  for (const auto &agent : statistics.at("agents")) {
    if (agent.at("alive") != true) gap += agent.at("name").get<std::string>() + " has ended; ";
    if (agent.at("name") != "BootDevice") continue;
    if (agent.at("handled") != good || agent.at("posted") != good) gap += agent.dump() + "; ";
    const uint64_t missing = arrivals.Missing(kGoodEvent, good);
    if (agent.at("dropped") != missing) gap += std::to_string(missing) + " good ones are missing; ";
  }
  return gap;
}

TEST(Records, ChangedOnesHarmNothingAndGoodOnesArrive) {
  const uint64_t each = IsSlowBuild() ? 2'000 : 20'000;
  const TestRoot root;
  PeerCounts counts;
  const PeerThread log([&](const auto &stop) { ServeLog(root, &counts, stop); });
  Arrivals arrivals;
  const EventListener agent(root / hosted::kEventSocket, [&](const std::string &record) { arrivals.Take(record); });
  Daemon daemon(root);
  ASSERT_TRUE(WaitUntil([&] { return IsWhole(root); }));
  Senders senders(root);
  uint64_t good = 0;
  for (Rounds rounds(IsSlowBuild() ? 8 : 50); rounds.Next();) {
    SCOPED_TRACE(rounds.Name());
    RandomHost host(rounds.Draw(1'000'000));
    for (uint64_t i = 0; i < each; ++i) {
      RawRecord record = NextRecord(&host);
      const uint64_t how = rounds.Draw(4);
      if (how != 0) ChangeParts(&rounds, &record);
      std::vector<std::byte> bytes = hosted::EncodeRecord(record);
      if (how < 2) ChangeBytes(&rounds, &bytes);
      senders.Send(&rounds, bytes);
      if (i % 1'000 == 0) senders.SendGood(good++);
    }
    std::string gap;
    EXPECT_TRUE(
        WaitUntil([&] { return (gap = Gap(root, arrivals, senders.SentToKernelContexts(), good)).empty(); }, 60))
        << gap;
    if (HasFailure()) break;
  }
  daemon.Signal(SIGTERM);
  EXPECT_EQ(daemon.WaitForExit(20), 0) << ReadFile(root / "/stderr");
}

}  // namespace
}  // namespace testing_support
