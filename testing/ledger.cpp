#include "testing/ledger.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/daemon.h"

namespace testing_support {
namespace {

using nlohmann::json;

uint64_t Sum(const json &list, const char *member) {
  return std::accumulate(list.begin(), list.end(), uint64_t{0}, [member](uint64_t sum, const json &entry) {
    return sum + (member == nullptr ? entry : entry.at(member)).get<uint64_t>();
  });
}

}  // namespace

std::string Difference(const std::string &what, uint64_t left, uint64_t right) {
  if (left == right) return "";
  return what + ": " + std::to_string(left) + " against " + std::to_string(right) + "\n";
}

json ReadStatistics(const TestRoot &root) {
  const base::UniqueFd client = ConnectTrace(root);
  const timeval patience{10, 0};
  setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (send(client.Get(), "stats\n", 6, MSG_NOSIGNAL) != 6) return nullptr;
  const std::string text = ReadToEnd(client.Get());
  const size_t start = text.find('{');  // lines of the feed may stand in front of it
  return start == std::string::npos ? json() : json::parse(text.substr(start), nullptr, false);
}

bool IsWhole(const TestRoot &root) {
  base::UniqueFd served;  // a socket's file is there before it is listened to
  if (hosted::ConnectUnixSocket(root / hosted::kTraceSocket, SOCK_STREAM, &served) != 0) return false;
  const json statistics = ReadStatistics(root);
  if (!statistics.is_object()) return false;
  const json &agents = statistics.at("agents");
  const auto isAlive = [](const json &agent) { return agent.at("alive") == true; };
  return statistics.at("agentsWanted") == std::count_if(agents.begin(), agents.end(), isAlive);
}

std::string LedgerGap(const json &statistics) {
  if (!statistics.is_object()) return "no statistics";
  const json &records = statistics.at("records");
  std::string gap = Difference("records of the contexts against matched, unmatched and unsound",
                               Sum(statistics.at("contexts"), "records"), Sum(records, nullptr));
  for (const json &agent : statistics.at("agents")) {
    const std::string name = agent.at("name");
    gap += Difference(name + " received against handled and unhandled", agent.at("received"),
                      agent.at("handled").get<uint64_t>() + agent.at("unhandled").get<uint64_t>());
    gap += Difference(name + " bytes that wait", agent.at("waitingBytes"), 0);
  }
  const json &events = statistics.at("events");
  const uint64_t accounted =
      Sum(events.at("dropped"), nullptr) + events.at("sent").get<uint64_t>() + events.at("waiting").get<uint64_t>();
  return gap + Difference("events posted against dropped, sent and waiting", events.at("posted"), accounted);
}

uint64_t ReadFromKernel(const json &statistics) {
  uint64_t read = 0;
  for (const json &context : statistics.at("contexts")) {
    if (context.at("name") == "user") continue;
    read += context.at("records").get<uint64_t>() + context.at("resetRecords").get<uint64_t>();
    read += Sum(context.at("discarded"), nullptr);
  }
  return read;
}

void ExpectLedgerCloses(const TestRoot &root) {
  if (!std::filesystem::exists(root / hosted::kTraceSocket)) return;  // a test has removed it
  std::string gap;
  WaitUntil([&] { return (gap = LedgerGap(ReadStatistics(root))).empty(); }, 20);
  EXPECT_EQ(gap, "");
}

}  // namespace testing_support
