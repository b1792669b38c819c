#include "core/fanOut.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "core/basics/rawRecord.h"
#include "hosted/contexts/contextTest.h"
#include "hosted/records/littleEndian.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

std::vector<std::byte> operator+(std::vector<std::byte> left, const std::vector<std::byte> &right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class FanOutTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(StreamListInit(), 0);
    stream_ = OpenStream("a");
  }
  void TearDown() override { StreamClose(stream_); }
  std::vector<std::string> ReadAll() {
    std::vector<std::string> ids;
    for (std::string id = ReadId(stream_); !id.empty(); id = ReadId(stream_)) ids.push_back(id);
    return ids;
  }
  using Ids = std::vector<std::string>;
  Stream *stream_ = nullptr;
  const std::vector<std::byte> before_ = MakeRecord("ryn.a.before");
  const std::vector<std::byte> after_ = MakeRecord("ryn.a.after");
};

TEST_F(FanOutTest, EveryMatchingStreamGetsEachRecordInOrder) {
  Stream *same = OpenStream("a");
  Stream *other = OpenStream("b");
  EXPECT_EQ(LockedFanOut(before_ + MakeRecord("ryn.b.x") + after_), 0);
  EXPECT_EQ(ReadAll(), (Ids{"ryn.a.before", "ryn.a.after"}));
  EXPECT_EQ(ReadId(same), "ryn.a.before");
  EXPECT_EQ(ReadId(other), "ryn.b.x");
  EXPECT_EQ(ReadId(other), "");
  StreamClose(same);
  StreamClose(other);
}

TEST_F(FanOutTest, ABadRecordCostsItselfOnly) {
  const auto damage = [](size_t offset, uint32_t value) {
    auto record = MakeRecord("ryn.a.bad", {"argument"});
    hosted::StoreLittle(record.data() + offset, value);
    return record;
  };
  auto unterminated = MakeRecord("ryn.a.bad");
  unterminated[kRecordHeaderSize + 9] = std::byte{'x'};
  for (const auto &bad :
       {damage(kRecordIdLengthOffset, 0), damage(kRecordIdLengthOffset, 0xffffffff), damage(kRecordIdLengthOffset, 5),
        damage(kRecordMessageLengthOffset, 0xfffffff0), damage(kRecordMessageLengthOffset, 10'000), unterminated}) {
    EXPECT_EQ(LockedFanOut(before_ + bad + after_), -1);
    EXPECT_EQ(ReadAll(), (Ids{"ryn.a.before", "ryn.a.after"}));
  }
}

TEST_F(FanOutTest, AnUnusableLengthCostsWhatIsBehindIt) {
  for (const uint32_t total : {0u, 1u, 31u, 131072u, 0x7fffffffu, 0xffffffffu}) {
    auto bad = MakeRecord("ryn.a.bad");
    hosted::StoreLittle(bad.data() + kRecordTotalLengthOffset, total);
    EXPECT_EQ(LockedFanOut(before_ + bad + after_), -1) << total;
    EXPECT_EQ(ReadAll(), Ids{"ryn.a.before"}) << total;
  }
}

TEST_F(FanOutTest, NothingIsReadOutsideOfTruncatedBytes) {
  const auto record = MakeRecord("ryn.a.whole", {"text"});
  for (size_t length = 0; length < record.size(); ++length) {
    const std::vector<std::byte> cut(record.begin(), record.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_EQ(LockedFanOut(cut), length == 0 ? 0 : -1);
  }
}

TEST_F(FanOutTest, AnAgentThatLagsGetsEveryRecordWhole) {
  constexpr size_t kRecords = 40;
  const auto large = MakeRecord("ryn.a.large", {std::string(60'000, 'x'), std::string(60'000, 'y')});
  std::thread reader([&] {
    for (size_t seen = 0; seen < kRecords;) seen += ReadId(stream_) == "ryn.a.large" ? 1 : 0;
  });
  for (size_t i = 0; i < kRecords; ++i) EXPECT_EQ(LockedFanOut(large), 0);
  reader.join();
}

TEST_F(FanOutTest, AnAgentThatEndsWhileItLagsDoesNotHoldUpTheOthers) {
  signal(SIGPIPE, SIG_IGN);  // as good as blocked, which the daemon has it
  Stream *dying = OpenStream("a");
  const auto large = MakeRecord("ryn.a.large", {std::string(120'000, 'x')});
  std::atomic<bool> fanningOut = false;
  std::thread agent([&] {
    while (!fanningOut) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // until the fan-out waits for this stream
    EXPECT_EQ(StreamClose(dying), 0);
  });
  size_t delivered = 0;
  fanningOut = true;
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(LockedFanOut(large), 0);
    delivered += ReadAll().size();
  }
  agent.join();
  EXPECT_EQ(delivered, 8u);
}

TEST_F(FanOutTest, AFailedWriteIsReturnedAtOnce) {
  Stream *later = OpenStream("a");
  close(stream_->writeEnd);
  EXPECT_EQ(LockedFanOut(before_), EBADF);
  EXPECT_EQ(ReadId(later), "");
  stream_->writeEnd = dup(stream_->readEnd);
  StreamClose(later);
}

/// A record that waits for a larger buffer, which there is no memory for, is lost; nothing else is.
using FanOutMemory = hosted::KernelContextTest;
TEST_F(FanOutMemory, ARecordWithoutMemoryIsLostAlone) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  const std::vector<std::byte> large = MakeRecord("a.b", {std::string(9000, 'x')}), small = MakeRecord("a.b");
  for (const auto &record : {large, small}) hosted::SendTo(sender_.Get(), record);
  EXPECT_EQ(WithoutMemoryFor(large.size(), [this] { return Take(fd_).size(); }), 0u);
  EXPECT_EQ(Take(fd_), small);
  EXPECT_TRUE(log_.NextMessage().starts_with("Discarded 1 bad record of kernel-07: no memory to keep it"));
}

}  // namespace
}  // namespace rynd
