#include "core/feed/traceFeed.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>

#include "core/feed/traceLines.h"
#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

base::UniqueFd AddClient(TraceFeed *feed, int *status = nullptr) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) abort();
  base::UniqueFd own(ends[0]);
  const int added = feed->AddClient(base::UniqueFd(ends[1]));
  if (status != nullptr) *status = added;
  return own;
}

/// Read until `text` holds `end`; what was read.
std::string ReadUntil(const base::UniqueFd &client, const std::string &end) {
  std::string text;
  char part[65536];
  while (text.find(end) == std::string::npos) {
    const ssize_t count = recv(client.Get(), part, sizeof part, 0);
    if (count <= 0) return text + "(end of file)";
    text.append(part, static_cast<size_t>(count));
  }
  return text;
}

bool WaitForNoClients(const TraceFeed &feed) {
  return testing_support::WaitUntil([&] { return !feed.HasClients(); });
}

// Never destroyed, as the daemon's own: a client's thread may still be on its way out.
TraceFeed *NewFeed() {
  static auto *const feeds = new std::vector<TraceFeed *>;
  feeds->push_back(new TraceFeed);
  return feeds->back();
}

TEST(TraceFeed, EveryClientGetsEveryLineFromItsConnectionOn) {
  TraceFeed *feed = NewFeed();
  feed->Publish({"before\n"});
  const auto first = AddClient(feed);
  feed->Publish({"one\n"});
  const auto second = AddClient(feed);
  feed->Publish({"two\n"});
  EXPECT_EQ(ReadUntil(first, "two\n"), "one\ntwo\n");
  EXPECT_EQ(ReadUntil(second, "two\n"), "two\n");
}

TEST(TraceFeed, AStalledClientLosesLinesAndIsToldHowMany) {
  TraceFeed *feed = NewFeed();
  const auto stalled = AddClient(feed);
  const auto reading = AddClient(feed);
  constexpr size_t kLines = 3000;
  const std::string filler(2000, '.');
  for (size_t i = 0; i < kLines; ++i) {
    feed->Publish({std::to_string(i) + filler + "\n"});
    if (i % 100 == 99) ReadUntil(reading, std::to_string(i) + filler + "\n");  // one that reads misses none
  }
  feed->Publish({"last\n"});
  const std::string text = ReadUntil(stalled, "last\n");
  size_t received = 0, lost = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    if (const size_t mark = line.find(" LOST "); mark != std::string::npos) {
      lost += std::stoul(line.substr(mark + 6));
    } else {
      // Whole, in order, none twice.
      EXPECT_EQ(line, line == "last" ? "last" : std::to_string(received + lost) + filler);
      ++received;
    }
  }
  EXPECT_GT(lost, 0u);
  EXPECT_EQ(received + lost, kLines + 1);
}

TEST(TraceFeed, ForgetsClientsThatVanish) {
  TraceFeed *feed = NewFeed();
  auto idle = AddClient(feed);
  auto stalled = AddClient(feed);
  for (int i = 0; i < 2000; ++i) feed->Publish({std::string(1000, 'x') + "\n"});
  stalled.Reset();  // in the middle of a line, its thread inside of a send
  idle.Reset();
  feed->Publish({"x\n"});
  EXPECT_TRUE(WaitForNoClients(*feed));
  auto vanished = AddClient(feed);
  vanished.Reset();             // with nothing to send it
  auto next = AddClient(feed);  // a new client is the occasion to look
  next.Reset();
  feed->Publish({"y\n"});
  EXPECT_TRUE(WaitForNoClients(*feed));
}

TEST(TraceFeed, ServesHundredsAndTurnsAwayMore) {
  // Both ends of each client are in this process, which may be allowed 1024 descriptors only at first.
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 2 * TraceFeed::kMaxClients + 100);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "too few descriptors (ulimit -Hn)";
  TraceFeed *feed = NewFeed();
  std::vector<base::UniqueFd> clients;
  for (size_t i = 0; i < TraceFeed::kMaxClients - 100; ++i) clients.push_back(AddClient(feed));
  feed->Publish({"hello\n"});
  for (const auto &client : clients) EXPECT_EQ(ReadUntil(client, "\n"), "hello\n");
  for (size_t i = 0; i < 100; ++i) clients.push_back(AddClient(feed));
  int status = 0;
  AddClient(feed, &status);
  EXPECT_EQ(status, EUSERS);
  clients.clear();
  feed->Publish({"bye\n"});
  EXPECT_TRUE(WaitForNoClients(*feed));
}

TEST(TraceLines, AreOneLineWithQuotedArguments) {
  const auto client = AddClient(&Feed());
  const auto record = MakeRecord("ryn.a.b", {"plain", "q\"b\\n\nt\te\033d\177", ""}, "two\nlines");
  TraceObservation(record.data(), record.size(), {"kernel-00"}, {});
  EXPECT_EQ(ReadUntil(client, "\n"), "0 IN ryn.a.b two lines (\"plain\", \"q\\\"b\\\\n\\nt\\te\\033d\\177\", \"\")\n");
  TraceEvent({42, 7, "amb.audit.x", "text", nullptr, 0});
  EXPECT_EQ(ReadUntil(client, "\n"), "42 OUT amb.audit.x text ()\n");
}

}  // namespace
}  // namespace rynd
