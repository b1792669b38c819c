#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "hosted/contexts/discardLog.h"
#include "hosted/testSupport.h"
#include "platform/ryn.h"

namespace hosted {
namespace {

using Bytes = std::vector<std::byte>;

/// One record of exactly `size` bytes.
Bytes RecordOfSize(size_t size, const std::string &id = "ryn.big") {
  return RecordOf(id, {}, std::string(size - RecordOf(id, {}, "").size(), 'x'));
}

Bytes BadRecord() {
  Bytes record = RecordOf("ryn.bad");
  record[20] = std::byte{1};
  return record;
}

void SendTo(int fd, const Bytes &record) {
  ASSERT_EQ(send(fd, record.data(), record.size(), MSG_NOSIGNAL), static_cast<ssize_t>(record.size()))
      << std::strerror(errno);
}

/// A context opened with a listener at the system log, and what reads from it.
class ContextTest : public testing::Test {
 protected:
  ~ContextTest() override {
    if (handle_ != nullptr) RynLib_Close(handle_);
  }

  /// Read with a buffer of `size`. The status; the record is in `record_`.
  int Read(int fd, size_t size = 8192) {
    record_.assign(size, std::byte{0xee});
    size_t length = size + 1;
    const int status = RynLib_ReadFromFd(fd, record_.data(), size, &length);
    record_.resize(length);
    return status;
  }
  static short PollEvents(int fd) {
    pollfd polled{fd, POLLIN, 0};
    poll(&polled, 1, 0);
    return polled.revents;
  }

  LogListener log_;
  RynLibHandle handle_ = nullptr;
  int fd_ = -1;
  Bytes record_;
};

class KernelContextTest : public ContextTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(RynLib_AsyncContextOpen(7, &handle_), 0);
    ASSERT_EQ(RynLib_HandleToFd(handle_, &fd_), 0);
    ASSERT_EQ(ConnectUnixSocket(KernelSocketPath(7), SOCK_DGRAM, &sender_), 0);
    constexpr int kRoom = 400'000;
    setsockopt(sender_.Get(), SOL_SOCKET, SO_SNDBUF, &kRoom, sizeof kRoom);
  }
  base::UniqueFd sender_;
};

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
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_.size(), 0u);  // nothing there, and no wait
  const Bytes first = RecordOf("ryn.a", {Text("x")}), second = RecordOf("ryn.b");
  SendTo(sender_.Get(), first);
  SendTo(sender_.Get(), second);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, first);
  EXPECT_EQ(Read(fd_, second.size()), 0);
  EXPECT_EQ(record_, second);
}

TEST_F(KernelContextTest, LeavesARecordThatDoesNotFit) {
  const Bytes record = RecordOfSize(9000);
  SendTo(sender_.Get(), record);
  EXPECT_EQ(Read(fd_, 8999), kRynLibTooSmall);
  EXPECT_EQ(Read(fd_, 8999), kRynLibTooSmall);
  EXPECT_EQ(Read(fd_, 9000), 0);
  EXPECT_EQ(record_, record);
  SendTo(sender_.Get(), RecordOfSize(kMaxRecordSize));
  EXPECT_EQ(Read(fd_, kMaxRecordSize + 1), 0);
  EXPECT_EQ(record_.size(), kMaxRecordSize);
  SendTo(sender_.Get(), RecordOfSize(kMaxRecordSize + 1));  // is never delivered, whatever the buffer
  EXPECT_EQ(Read(fd_, kMaxRecordSize + 1), kRynLibTooSmall);
}

TEST_F(KernelContextTest, NeverCutsARecordThatComesWhileItLooks) {
  const Bytes record = RecordOfSize(9000);
  constexpr int kRecords = 500;
  std::thread sender([&] {
    for (int i = 0; i < kRecords; ++i) SendTo(sender_.Get(), record);
  });
  for (int got = 0; got < kRecords;) {
    const int status = Read(fd_, 8192);
    ASSERT_TRUE(status == kRynLibTooSmall || (status == 0 && record_.empty()));
    if (status == 0) continue;
    ASSERT_EQ(Read(fd_, 9000), 0);
    ASSERT_EQ(record_, record);
    ++got;
  }
  sender.join();
  EXPECT_TRUE(log_.AllMessages().empty());
}

TEST_F(KernelContextTest, DiscardsBadRecordsAndGoesOn) {
  const Bytes good = RecordOf("ryn.a");
  SendTo(sender_.Get(), {});
  SendTo(sender_.Get(), BadRecord());
  SendTo(sender_.Get(), good);
  SendTo(sender_.Get(), {});
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, good);
  EXPECT_EQ(log_.NextMessage(), "Discarded 2 bad records of kernel-07, the first: the packet is empty");
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_.size(), 0u);
  EXPECT_EQ(PollEvents(fd_), 0);      // the empty one is gone, too
  EXPECT_EQ(log_.NextMessage(), "");  // it came within the second
  RynLib_Close(std::exchange(handle_, nullptr));
  EXPECT_EQ(log_.NextMessage(), "Discarded 1 more bad record since the last such line");
}

TEST(DiscardLog, TellsAtMostOnceASecond) {
  DiscardLog log;
  EXPECT_EQ(log.Line(5000, "kernel-00", 1, "why"), "Discarded 1 bad record of kernel-00: why");
  EXPECT_EQ(log.Line(5000, "kernel-00", 64, "why"), "");
  EXPECT_EQ(log.Line(5999, "user", 2, "why"), "");
  EXPECT_EQ(log.Line(6000, "user", 3, "because"),
            "Discarded 3 bad records of user, the first: because (and 66 more since the last such line)");
  EXPECT_EQ(log.Line(6999, "user", 1, "why"), "");
  EXPECT_EQ(log.LastLine(), "Discarded 1 more bad record since the last such line");
  EXPECT_EQ(log.LastLine(), "");
  EXPECT_EQ(log.Line(7000, "user", 1, "why"), "Discarded 1 bad record of user: why");
}

TEST_F(KernelContextTest, FindsTheGoodRecordBehindAFlood) {
  constexpr int kRecords = 200;  // more than the queue holds: fed by a thread
  std::thread sender([&] {
    for (int i = 0; i < kRecords; ++i) SendTo(sender_.Get(), BadRecord());
    SendTo(sender_.Get(), RecordOf("ryn.a"));
  });
  do {
    ASSERT_EQ(Read(fd_), 0);
  } while (record_.empty());
  sender.join();
  EXPECT_EQ(record_, RecordOf("ryn.a"));
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
  ASSERT_EQ(RynLib_AsyncContextOpen(8, &handle_), 0);
  std::filesystem::remove(KernelSocketPath(8));
  EXPECT_EQ(RynLib_Close(std::exchange(handle_, nullptr)), 0);
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

class UserContextTest : public ContextTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(RynLib_UserContextOpen(kRynUserContext, &handle_), 0);
    Connect();
  }
  ~UserContextTest() override { RynLib_UserContextCloseCnx(fd_); }

  void Connect() {
    int listening = -1;
    ASSERT_EQ(RynLib_HandleToFd(handle_, &listening), 0);
    ASSERT_EQ(ConnectUnixSocket(RootPath(kUserSocket), SOCK_SEQPACKET, &peer_), 0);
    constexpr int kRoom = 400'000;
    setsockopt(peer_.Get(), SOL_SOCKET, SO_SNDBUF, &kRoom, sizeof kRoom);
    EXPECT_EQ(PollEvents(listening), POLLIN);
    ASSERT_EQ(RynLib_UserContextNewCnx(handle_, &fd_), 0);
    EXPECT_EQ(PollEvents(listening), 0);
  }

  base::UniqueFd peer_;
};

TEST_F(UserContextTest, TakesUserRecordsOnly) {
  struct stat status {};
  EXPECT_EQ(stat(RootPath(kUserSocket).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  const Bytes good = RecordOf("ryn.user.a");
  SendTo(peer_.Get(), RecordOf("ryn.storage.apd.start", {Text("naa.1")}));
  SendTo(peer_.Get(), RecordOf("ryn.user"));
  SendTo(peer_.Get(), RecordOf("ryn.userx.a"));
  SendTo(peer_.Get(), BadRecord());
  SendTo(peer_.Get(), good);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, good);
  EXPECT_EQ(log_.NextMessage(), "Discarded 4 bad records of user (pid " + std::to_string(getpid()) + ", uid " +
                                    std::to_string(getuid()) +
                                    "), the first: its id does not begin with \"ryn.user.\"");
}

TEST_F(UserContextTest, TellsAnEmptyPacketFromTheEnd) {
  const Bytes good = RecordOf("ryn.user.a");
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_.size(), 0u);
  SendTo(peer_.Get(), {});
  SendTo(peer_.Get(), {});
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_.size(), 0u);
  EXPECT_EQ(PollEvents(fd_), 0);  // nothing left, nobody hung up
  SendTo(peer_.Get(), good);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, good);
}

TEST_F(UserContextTest, ReadsEmptyPacketsSentBeforeTheAccept) {
  base::UniqueFd early;
  ASSERT_EQ(ConnectUnixSocket(RootPath(kUserSocket), SOCK_SEQPACKET, &early), 0);
  const Bytes good = RecordOf("ryn.user.a");
  SendTo(early.Get(), {});
  SendTo(early.Get(), good);
  early.Reset();
  int fd = -1;
  ASSERT_EQ(RynLib_UserContextNewCnx(handle_, &fd), 0);
  EXPECT_EQ(Read(fd), 0);
  EXPECT_EQ(record_, good);
  EXPECT_EQ(Read(fd), 0);
  EXPECT_EQ(record_.size(), 0u);
  EXPECT_EQ(RynLib_UserContextCloseCnx(fd), 0);
  EXPECT_LT(RynLib_UserContextCloseCnx(fd), 0);
}

TEST_F(UserContextTest, HangsUpWhenThePeerHasSentItsLast) {
  const Bytes good = RecordOf("ryn.user.a");
  for (const bool half : {true, false}) {
    SendTo(peer_.Get(), good);
    if (half) {
      ASSERT_EQ(shutdown(peer_.Get(), SHUT_WR), 0);
    } else {
      peer_.Reset();
    }
    EXPECT_EQ(Read(fd_), 0);
    EXPECT_EQ(record_, good);
    EXPECT_EQ(Read(fd_), 0);
    EXPECT_EQ(record_.size(), 0u);
    EXPECT_NE(PollEvents(fd_) & POLLHUP, 0) << half;
    EXPECT_EQ(RynLib_UserContextCloseCnx(fd_), 0);
    Connect();
  }
}

TEST_F(UserContextTest, DiscardsWhatIsTooLongForEveryBuffer) {
  const Bytes longest = RecordOfSize(kMaxRecordSize, "ryn.user.a");
  SendTo(peer_.Get(), RecordOfSize(kMaxRecordSize + 1, "ryn.user.a"));
  SendTo(peer_.Get(), longest);
  EXPECT_EQ(Read(fd_), kRynLibTooSmall);  // the first is gone; the second waits for a larger buffer
  EXPECT_EQ(Read(fd_, kMaxRecordSize - 1), kRynLibTooSmall);
  EXPECT_EQ(Read(fd_, kMaxRecordSize), 0);
  EXPECT_EQ(record_, longest);
}

TEST_F(UserContextTest, DiscardsAtMost64InOneCall) {
  for (int i = 0; i < 100; ++i) SendTo(peer_.Get(), i % 2 == 0 ? Bytes() : BadRecord());
  const Bytes good = RecordOf("ryn.user.a");
  SendTo(peer_.Get(), good);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_.size(), 0u);
  EXPECT_EQ(PollEvents(fd_), POLLIN);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, good);
}

/// A message over `bytes` with room for `control`.
msghdr MessageOf(iovec *bytes, char *control, size_t controlSize) {
  msghdr message{};
  message.msg_iov = bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = controlSize;
  return message;
}

void SendWithDescriptor(int fd, Bytes record) {
  iovec part{record.data(), record.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  const msghdr message = MessageOf(&part, control, sizeof control);
  cmsghdr *header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  ASSERT_GT(sendmsg(fd, &message, 0), 0);
}

ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

/// Emulated system calls may take descriptors in that the program has no room for.
bool TakesDescriptorsInAnyway() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  const base::UniqueFd sender(ends[0]), receiver(ends[1]);
  constexpr int kOn = 1;
  setsockopt(receiver.Get(), SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn);
  SendWithDescriptor(sender.Get(), {std::byte{1}});
  char byte = 0;
  iovec part{&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
  msghdr message = MessageOf(&part, control, sizeof control);
  const ptrdiff_t before = OpenDescriptors();
  EXPECT_EQ(recvmsg(receiver.Get(), &message, 0), 1);
  return OpenDescriptors() != before;
}

TEST_F(UserContextTest, TakesInNoDescriptorsOfAPeer) {
  const Bytes good = RecordOf("ryn.user.a");
  if (TakesDescriptorsInAnyway()) GTEST_SKIP() << "not with these emulated system calls";
  SendWithDescriptor(peer_.Get(), good);
  const ptrdiff_t before = OpenDescriptors();
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(record_, good);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(UserContextTest, TurnsCallersAwayWithoutDescriptors) {
  base::UniqueFd caller;
  ASSERT_EQ(ConnectUnixSocket(RootPath(kUserSocket), SOCK_SEQPACKET, &caller), 0);
  int listening = -1, fd = -1;
  ASSERT_EQ(RynLib_HandleToFd(handle_, &listening), 0);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<base::UniqueFd> fillers;
  // Every number up to the highest in use is taken, and then no further one is allowed.
  while (fillers.empty() || fillers.back().Get() < caller.Get()) fillers.emplace_back(dup(0));
  const rlimit full{static_cast<rlim_t>(fillers.back().Get()) + 1, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
  EXPECT_EQ(RynLib_UserContextNewCnx(handle_, &fd), EMFILE);
  EXPECT_EQ(PollEvents(listening), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(RynLib_UserContextNewCnx(handle_, &fd), EAGAIN);  // nobody is left, and there is no wait
  EXPECT_EQ(PollEvents(caller.Get()) & POLLHUP, POLLHUP);
}

TEST_F(UserContextTest, ResetDiscardsWhatItsConnectionsHold) {
  for (int i = 0; i < 5; ++i) SendTo(peer_.Get(), RecordOfSize(100, "ryn.user.a"));
  EXPECT_EQ(RynLib_Reset(handle_), 0);
  EXPECT_EQ(log_.NextMessage(), "Reset of user discarded 5 records, 500 bytes");
  EXPECT_EQ(PollEvents(fd_), 0);
}

}  // namespace
}  // namespace hosted
