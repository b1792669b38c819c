#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <thread>
#include <utility>

#include "hosted/contexts/contextTest.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/records/littleEndian.h"
#include "platform/statistics.h"

namespace hosted {
namespace {

TEST_F(KernelContextTest, StandsWhereSendersLookForIt) {
  struct stat status {};
  char name[kRynLibNameSize];
  EXPECT_EQ(KernelSocketPath(7), testing_support::ProcessRoot() / "/var/run/corvane/ryn/kernel-07");
  EXPECT_EQ(stat(KernelSocketPath(7).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(stat(RootPath(kContextFolder).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  EXPECT_EQ(RynLib_HandleToName(handle_, name), 0);
  EXPECT_STREQ(name, "kernel-07");
  RynLibHandle other = handle_;
  EXPECT_EQ(RynLib_AsyncContextOpen(kRynAsyncContexts, &other), EINVAL);
  EXPECT_EQ(RynLib_UserContextOpen(7, &other), EINVAL);
  EXPECT_EQ(other, nullptr);
}

TEST_F(KernelContextTest, ReadsWholeRecordsInOrder) {
  EXPECT_EQ(Take(fd_), Bytes());  // nothing there, and no wait
  // Together as far as they fit and are whole: of all sizes, with bad ones between them.
  Bytes all;
  std::vector<Bytes> records;
  for (size_t i = 0; i < 600; ++i) {
    records.push_back(i % 7 == 3 ? BadRecord() : RecordOfSize(i % 50 == 49 ? kMaxRecordSize - i : 100 + i * 37 % 5000));
    if (i % 7 != 3) all.insert(all.end(), records.back().begin(), records.back().end());
  }
  std::thread sender([&] {
    for (const Bytes &record : records) SendTo(sender_.Get(), record);
  });
  Bytes got;
  size_t most = 0;
  while (got.size() < all.size()) {
    PollEvents(fd_, 5000);
    const int status = Read(fd_, 8192);
    if (status == kRynLibTooSmall) {
      ASSERT_EQ(Read(fd_, kMaxRecordSize + 1), 0);
    }
    ASSERT_LE(record_.size(), kMaxRecordSize);
    size_t count = 0;
    for (size_t at = 0; at < record_.size(); at += LoadLittle<uint32_t>(&record_[at + 16])) ++count;
    ASSERT_LE(count, 16U);
    most = std::max(most, count);
    got.insert(got.end(), record_.begin(), record_.end());
  }
  sender.join();
  EXPECT_EQ(got, all);
  EXPECT_GT(most, 1U);
}

TEST_F(KernelContextTest, LeavesARecordThatDoesNotFit) {
  const Bytes record = RecordOfSize(9000);
  SendTo(sender_.Get(), record);
  EXPECT_EQ(Read(fd_, 8999), kRynLibTooSmall);
  EXPECT_EQ(Read(fd_, 8999), kRynLibTooSmall);
  EXPECT_EQ(Take(fd_, 9000), record);
  SendTo(sender_.Get(), RecordOfSize(kMaxRecordSize));
  EXPECT_EQ(Take(fd_, kMaxRecordSize + 1).size(), kMaxRecordSize);
  SendTo(sender_.Get(), RecordOfSize(kMaxRecordSize + 1));  // is never delivered, whatever the buffer
  EXPECT_EQ(Read(fd_, kMaxRecordSize + 1), kRynLibTooSmall);
}

TEST_F(KernelContextTest, DiscardsBadRecordsAndGoesOn) {
  RynContextStatistics before{}, after{};
  EXPECT_EQ(RynLib_GetContextStatistics(7, &before), 0);
  const Bytes good = RecordOf("ryn.a");
  for (const Bytes &record : {Bytes(), BadRecord(), good, Bytes()}) SendTo(sender_.Get(), record);
  EXPECT_EQ(Take(fd_), good);
  EXPECT_EQ(Take(fd_), Bytes());
  EXPECT_EQ(PollEvents(fd_), 0);  // the empty one is gone, too
  const std::string bad = "bad record of kernel-07: ", empty = "the packet is empty",
                    counted = "the number of arguments is not the header's";
  EXPECT_EQ(log_.AllMessages(), std::vector<std::string>{"Discarded 1 " + bad + empty}) << "of this second";
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(Read(fd_), 0);  // no record at all, and yet it tells
  const std::vector<std::string> sums = log_.AllMessages();
  EXPECT_EQ(std::set<std::string>(sums.begin(), sums.end()),
            (std::set<std::string>{"Discarded 1 more " + bad + empty, "Discarded 1 more " + bad + counted}));
  SendTo(sender_.Get(), {});
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(RynLib_Reset(handle_), 0);
  log_.AllMessages();
  RynLib_Close(std::exchange(handle_, nullptr));
  EXPECT_EQ(log_.NextMessage(), "Discarded 1 more " + bad + empty);
  EXPECT_EQ(RynLib_GetContextStatistics(7, &after), 0);
  EXPECT_EQ(after.records - before.records, 1u);
  EXPECT_EQ(after.bytes - before.bytes, good.size());
  EXPECT_EQ(after.resets - before.resets, 1u);
  std::map<std::string, uint64_t> reasons;
  for (size_t i = 0; i < kRynDiscardReasons; ++i) {
    const uint64_t count = after.discarded[i] - before.discarded[i];
    if (count != 0) reasons[RynLib_DiscardReason(i)] = count;
  }
  EXPECT_EQ(reasons, (std::map<std::string, uint64_t>{{empty, 3}, {counted, 1}}));
  EXPECT_EQ(RynLib_GetContextStatistics(kRynUserContext + 1, &after), EINVAL);
}

TEST(DiscardLog, TellsTheFirstAtOnceAndTheRestAsSums) {
  DiscardLog log;
  const Sender none, one{1, 100}, two{2, 100};
  Discarded sum;
  EXPECT_TRUE(log.Add(5000, 7, 0, none));
  EXPECT_FALSE(log.Add(5000, 7, 0, none));
  EXPECT_FALSE(log.Add(5999, kRynUserContext, 1, one));
  EXPECT_FALSE(log.Add(5999, kRynUserContext, 1, one));
  EXPECT_FALSE(log.Add(5999, kRynUserContext, 2, one));
  EXPECT_FALSE(log.Add(5999, kRynUserContext, 2, two));
  EXPECT_FALSE(log.TakeDue(5999, &sum));
  // Each sum has its own sender.
  const auto is = [&sum](uint32_t context, size_t reason, uint64_t count, const Sender &sender, bool several) {
    return sum.context == context && sum.reason == reason && sum.count == count && sum.sender.pid == sender.pid &&
           sum.several == several;
  };
  EXPECT_TRUE(log.TakeDue(6000, &sum) && is(7, 0, 1, none, false));
  EXPECT_TRUE(log.TakeDue(6000, &sum) && is(kRynUserContext, 1, 2, one, false));
  EXPECT_TRUE(log.TakeDue(6000, &sum) && is(kRynUserContext, 2, 2, two, true));
  EXPECT_FALSE(log.TakeDue(6000, &sum));
  EXPECT_FALSE(log.Add(6999, 7, 0, none)) << "the sums were lines of this second";
  EXPECT_TRUE(log.TakeLast(&sum) && is(7, 0, 1, none, false));
  EXPECT_FALSE(log.TakeLast(&sum));
  EXPECT_TRUE(log.Add(6999, 7, 0, none));
  EXPECT_TRUE(log.Add(7999, 7, 0, none)) << "a second without any";
}

TEST_F(KernelContextTest, ResetEndsWhileSendersRefill) {
  std::atomic<bool> stop{false};
  const timeval wait{0, 50'000};
  setsockopt(sender_.Get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  std::thread sender([&] {
    const Bytes record = RecordOf("ryn.a");
    while (!stop) send(sender_.Get(), record.data(), record.size(), 0);
  });
  for (int i = 0; i < 20; ++i) EXPECT_EQ(RynLib_Reset(handle_), 0);
  stop = true;
  sender.join();
  log_.AllMessages();
  EXPECT_EQ(RynLib_Reset(handle_), 0);
  EXPECT_EQ(PollEvents(fd_), 0);
  EXPECT_TRUE(log_.NextMessage().starts_with("Reset of kernel-07 discarded "));
  SendTo(sender_.Get(), RecordOfSize(100));
  SendTo(sender_.Get(), RecordOfSize(150));
  SendTo(sender_.Get(), {});
  EXPECT_EQ(RynLib_Reset(handle_), 0);
  EXPECT_EQ(log_.NextMessage(), "Reset of kernel-07 discarded 3 records, 250 bytes");
}

TEST_F(KernelContextTest, RemovesNoFileButItsOwn) {
  const std::string path = KernelSocketPath(7);
  EXPECT_EQ(RynLib_Close(handle_), 0);
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_EQ(RynLib_AsyncContextOpen(7, &handle_), 0);
  std::filesystem::remove(path);
  base::UniqueFd successor;
  ASSERT_EQ(ServeUnixSocket(path, SOCK_DGRAM, 0600, &successor), 0);
  EXPECT_EQ(RynLib_Close(handle_), 0);
  EXPECT_TRUE(std::filesystem::exists(path));
  for (const std::string &gone : {KernelSocketPath(8), RootPath(kContextFolder)}) {
    ASSERT_EQ(RynLib_AsyncContextOpen(8, &handle_), 0);
    std::filesystem::remove_all(gone);
    log_.AllMessages();
    EXPECT_EQ(RynLib_Close(std::exchange(handle_, nullptr)), 0) << gone;
    EXPECT_EQ(log_.NextMessage(), "");
  }
}

TEST_F(KernelContextTest, TellsWhyItCannotBeOpened) {
  RynLibHandle second = nullptr;
  const std::string text = StandardErrorOf([&] { EXPECT_EQ(RynLib_AsyncContextOpen(7, &second), EADDRINUSE); });
  const std::string line = "Cannot open " + KernelSocketPath(7) + ": another process serves it";
  EXPECT_EQ(log_.NextMessage(), line);
  EXPECT_EQ(text, "rynd: " + line + "\n");
  EXPECT_EQ(second, nullptr);
  testing_support::WriteFile(KernelSocketPath(9), "");
  EXPECT_NE(StandardErrorOf([&] { EXPECT_EQ(RynLib_AsyncContextOpen(9, &second), EEXIST); }).find("no socket"),
            std::string::npos);
}

}  // namespace
}  // namespace hosted
