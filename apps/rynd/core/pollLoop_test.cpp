#include "core/pollLoop.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <vector>

#include "base/uniqueFd.h"
#include "core/agents/stream.h"
#include "core/fanOut.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

/// The real contexts of the hosted platform, polled by the test itself.
class PollLoopTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(StreamListInit(), 0);
    ASSERT_TRUE(AllocateReadBuffer());
    ASSERT_EQ(OpenContexts(&contexts_, set_), 0);
    for (size_t i = kTraceSlot; i < kAllSlots; ++i) set_[i] = {-1, POLLIN, 0};
    stream_ = OpenStream("user");
  }
  void TearDown() override {
    StreamClose(stream_);
    CloseContexts(contexts_);
  }
  void Pass(PollLoop *loop) {
    ASSERT_GE(poll(set_, loop->Count(), 0), 0);
    ASSERT_EQ(loop->ServeSlots(), 0);
  }
  /// So many programs, each accepted or turned away.
  std::vector<base::UniqueFd> Connect(PollLoop *loop, size_t count) {
    std::vector<base::UniqueFd> clients(count);
    for (base::UniqueFd &client : clients) {
      EXPECT_EQ(hosted::ConnectUnixSocket(hosted::RootPath(hosted::kUserSocket), SOCK_SEQPACKET, &client), 0);
      Pass(loop);
    }
    return clients;
  }
  static void Send(const base::UniqueFd &fd, const std::string &id) { hosted::SendTo(fd.Get(), MakeRecord(id)); }

  ContextTable contexts_ = MakeContextTable();
  pollfd set_[kAllSlots];
  Stream *stream_ = nullptr;
};

TEST_F(PollLoopTest, ANinthConnectionIsAcceptedAndClosedAtOnce) {
  PollLoop loop(set_, kAllSlots, contexts_);
  std::vector<base::UniqueFd> clients = Connect(&loop, 9);
  EXPECT_EQ(loop.Count(), kAllSlots);
  char byte;
  EXPECT_EQ(recv(clients[8].Get(), &byte, 1, 0), 0);
  EXPECT_EQ(recv(clients[7].Get(), &byte, 1, MSG_DONTWAIT), -1);
  clients.erase(clients.begin());
  Pass(&loop);
  EXPECT_EQ(loop.Count(), kAllSlots - 1);
  const auto another = Connect(&loop, 1);
  EXPECT_EQ(loop.Count(), kAllSlots);
}

TEST_F(PollLoopTest, ClosingInTheMiddleMovesTheLastOneThereAndServesItInTheSamePass) {
  PollLoop loop(set_, kAllSlots, contexts_);
  std::vector<base::UniqueFd> clients = Connect(&loop, 4);
  const int lastFd = set_[kFirstConnectionSlot + 3].fd;
  clients[1].Reset();
  Send(clients[3], "ryn.user.last");
  Pass(&loop);
  EXPECT_EQ(loop.Count(), kFixedSlots + 3);
  EXPECT_EQ(set_[kFirstConnectionSlot + 1].fd, lastFd);
  EXPECT_EQ(set_[kFirstConnectionSlot + 3].fd, -1);
  EXPECT_EQ(ReadId(stream_), "ryn.user.last");
}

TEST_F(PollLoopTest, RecordsThatWaitOnAClosedConnectionAreServedBeforeItGoes) {
  PollLoop loop(set_, kAllSlots, contexts_);
  auto clients = Connect(&loop, 1);
  Send(clients[0], "ryn.user.one");
  Send(clients[0], "ryn.user.two");
  for (int i = 0; i < 150; ++i) ASSERT_EQ(send(clients[0].Get(), "bad", 3, MSG_DONTWAIT), 3);
  Send(clients[0], "ryn.user.behind.a.flood");
  clients.clear();
  for (int i = 0; i < 6; ++i) Pass(&loop);
  for (const char *id : {"ryn.user.one", "ryn.user.two", "ryn.user.behind.a.flood"}) EXPECT_EQ(ReadId(stream_), id);
  EXPECT_EQ(loop.Count(), kFixedSlots);
}

TEST_F(PollLoopTest, WithoutRoomForConnectionsTheListeningSlotIsTreatedAsOne) {
  PollLoop loop(set_, kFixedSlots, contexts_);
  const auto clients = Connect(&loop, 1);
  EXPECT_EQ(loop.Count(), kFixedSlots);
}

}  // namespace
}  // namespace rynd
