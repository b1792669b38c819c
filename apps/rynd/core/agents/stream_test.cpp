#include "core/agents/stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <random>

#include "platform/ryn.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

void ReleaseWhatIsNotHeld() NO_THREAD_SAFETY_ANALYSIS {
  streamLock.Release();
}
void AcquireTwice() NO_THREAD_SAFETY_ANALYSIS {
  streamLock.Acquire();
  streamLock.Acquire();
}

class StreamTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(StreamListInit(), 0); }
};

TEST_F(StreamTest, KeepsTheReadEndBlockingAndOpenAcrossExec) {
  Stream *stream = OpenStream("a");
  EXPECT_EQ(fcntl(stream->readEnd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(fcntl(stream->readEnd, F_GETFD) & FD_CLOEXEC, 0);
  int fd = -1;
  size_t count = 0;
  EXPECT_EQ(StreamGetFd(*stream, &fd, &count), 1);
  count = 4;
  EXPECT_EQ(StreamGetFd(*stream, &fd, &count), 0);
  EXPECT_EQ(fd, stream->readEnd);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(StreamClose(stream), 0);
}

TEST_F(StreamTest, ReassemblesFromAnySplitOfBytes) {
  std::mt19937 random(1);
  std::vector<std::byte> bytes;
  std::vector<std::string> ids;
  for (int i = 0; i < 200; ++i) {
    ids.push_back("ryn.a." + std::string(random() % 300 + 1, 'x'));
    const auto record = MakeRecord(ids.back(), {std::string(random() % 2000, 'y')});
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
  Stream *stream = OpenStream("a");
  std::vector<std::string> seen;
  for (size_t at = 0; at < bytes.size();) {
    // One byte at a time inside of headers now and then, whole batches otherwise.
    const size_t part = std::min<size_t>(bytes.size() - at, random() % 4 == 0 ? 1 : random() % 3000 + 1);
    ASSERT_EQ(write(stream->writeEnd, bytes.data() + at, part), static_cast<ssize_t>(part));
    at += part;
    for (std::string id = ReadId(stream); !id.empty(); id = ReadId(stream)) seen.push_back(id);
  }
  EXPECT_EQ(seen, ids);
  StreamClose(stream);
}

TEST_F(StreamTest, EndOfFileIsFatal) {
  Stream *stream = OpenStream("a");
  close(stream->writeEnd);
  EXPECT_DEATH(ReadId(stream), "Rynd - Panic: EOF trying to read 32 bytes from stream 0x");
}

TEST_F(StreamTest, ReportsFailures) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  Stream *stream = OpenStream("a");
  Observation *observation = nullptr;
  bool complete = false;
  const auto record = MakeRecord("ryn.a.b", {std::string(5000, 'z')});
  ASSERT_EQ(write(stream->writeEnd, record.data(), 32), 32);
  EXPECT_EQ(WithoutMemoryFor(record.size(), [&] { return StreamRead(stream, &observation, &complete); }), 2);
  EXPECT_FALSE(complete);
  StreamClose(stream);

  Subscription *subscription = SubscriptionCreate();
  EXPECT_EQ(WithoutMemoryFor(sizeof(Stream), [&] { return StreamOpen("b", *subscription, &stream); }), 1);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(StreamOpen("b", *subscription, &stream), 2);
  setrlimit(RLIMIT_NOFILE, &before);
  SubscriptionDestroy(subscription);
  streamLock.Acquire();
  EXPECT_TRUE(ListIsEmpty(*StreamList()));
  streamLock.Release();
}

TEST_F(StreamTest, ACloseThatFailsIsReportedAndStillUnregisters) {
  Stream *stream = OpenStream("a");
  const int writeEnd = stream->writeEnd;
  close(stream->readEnd);
  EXPECT_EQ(StreamClose(stream), 2);
  close(writeEnd);
  streamLock.Acquire();
  EXPECT_TRUE(ListIsEmpty(*StreamList()));
  streamLock.Release();
}

TEST_F(StreamTest, BrokenLinksAndLocksAreFatal) {
  Stream *first = OpenStream("a");
  Stream *second = OpenStream("b");
  EXPECT_DEATH(
      {
        second->previous = second;
        StreamClose(second);
      },
      "Rynd - Panic: VERIFY hykernel/public/list:411");
  EXPECT_DEATH(ReleaseWhatIsNotHeld(), "Rynd - Panic: Failed to release stream lock: ");
  EXPECT_DEATH(AcquireTwice(), "Rynd - Panic: Failed to acquire stream lock: ");
  StreamClose(first);
  StreamClose(second);
}

}  // namespace
}  // namespace rynd
