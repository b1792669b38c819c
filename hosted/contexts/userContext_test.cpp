#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "base/unixListener.h"
#include "hosted/contexts/contextTest.h"
#include "hosted/log/log.h"
#include "platform/statistics.h"

namespace hosted {
namespace {

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
    peer_ = Call();
    constexpr int kRoom = 400'000;
    setsockopt(peer_.Get(), SOL_SOCKET, SO_SNDBUF, &kRoom, sizeof kRoom);
    EXPECT_EQ(PollEvents(listening), POLLIN);
    ASSERT_EQ(RynLib_UserContextNewCnx(handle_, &fd_), 0);
    EXPECT_EQ(PollEvents(listening), 0);
  }

  /// One that is not accepted yet.
  static base::UniqueFd Call() {
    base::UniqueFd caller;
    EXPECT_EQ(ConnectUnixSocket(RootPath(kUserSocket), SOCK_SEQPACKET, &caller), 0);
    return caller;
  }

  const Bytes good_ = RecordOf("ryn.user.a");
  base::UniqueFd peer_;
  std::vector<base::UniqueFd> lingering_;
};

TEST_F(UserContextTest, TakesUserRecordsOnly) {
  struct stat status {};
  EXPECT_EQ(stat(RootPath(kUserSocket).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  for (const Bytes &record : {RecordOf("ryn.storage.apd.start", {Text("naa.1")}), RecordOf("ryn.user"),
                              RecordOf("ryn.userx.a"), BadRecord(), good_}) {
    SendTo(peer_.Get(), record);
  }
  EXPECT_EQ(Take(fd_), good_);
  const std::string sender = "user (pid " + std::to_string(getpid()) + ", uid " + std::to_string(getuid()) + "): ";
  EXPECT_EQ(log_.NextMessage(), "Discarded 1 bad record of " + sender + "its id does not begin with \"ryn.user.\"");
}

TEST_F(UserContextTest, TellsAnEmptyPacketFromTheEnd) {
  EXPECT_EQ(Take(fd_), Bytes());
  SendTo(peer_.Get(), {});
  SendTo(peer_.Get(), {});
  EXPECT_EQ(Take(fd_), Bytes());
  EXPECT_EQ(PollEvents(fd_), 0);  // nothing left, nobody hung up
  SendTo(peer_.Get(), good_);
  EXPECT_EQ(Take(fd_), good_);
}

TEST_F(UserContextTest, ReadsEmptyPacketsSentBeforeTheAccept) {
  base::UniqueFd early = Call();
  SendTo(early.Get(), {});
  SendTo(early.Get(), good_);
  early.Reset();
  int fd = -1;
  ASSERT_EQ(RynLib_UserContextNewCnx(handle_, &fd), 0);
  EXPECT_EQ(Take(fd), good_);
  EXPECT_EQ(Take(fd), Bytes());
  EXPECT_EQ(RynLib_UserContextCloseCnx(fd), 0);
  EXPECT_LT(RynLib_UserContextCloseCnx(fd), 0);
}

TEST_F(UserContextTest, HangsUpWhenThePeerHasSentItsLast) {
  for (const bool half : {true, false}) {
    SendTo(peer_.Get(), good_);
    if (half) {
      ASSERT_EQ(shutdown(peer_.Get(), SHUT_WR), 0);
    } else {
      peer_.Reset();
    }
    EXPECT_EQ(Take(fd_), good_);
    EXPECT_EQ(Take(fd_), Bytes());
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
  EXPECT_EQ(Take(fd_, kMaxRecordSize), longest);
}

TEST_F(UserContextTest, DiscardsAtMost64InOneCall) {
  for (int i = 0; i < 100; ++i) SendTo(peer_.Get(), i % 2 == 0 ? Bytes() : BadRecord());
  SendTo(peer_.Get(), good_);
  EXPECT_EQ(Take(fd_), Bytes());
  EXPECT_EQ(PollEvents(fd_), POLLIN);
  EXPECT_EQ(Take(fd_), good_);
}

/// 0 or an errno value.
int SendWithDescriptors(int fd, Bytes record, const std::vector<int> &attached) {
  iovec part{record.data(), record.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(253 * sizeof(int))] = {};
  const size_t size = attached.size() * sizeof(int);
  const msghdr message{nullptr, 0, &part, 1, control, CMSG_SPACE(size), 0};
  cmsghdr *header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(header), attached.data(), size);
  return sendmsg(fd, &message, MSG_NOSIGNAL) > 0 ? 0 : errno;
}

ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST_F(UserContextTest, RefusesDescriptorsOfAPeer) {
  if (!base::RefusesDescriptors(fd_)) GTEST_SKIP() << "the kernel can't";
  const base::UniqueFd early = Call();
  for (const int sender : {peer_.Get(), early.Get()}) EXPECT_EQ(SendWithDescriptors(sender, good_, {0}), EPERM);
  SendTo(peer_.Get(), good_);
  EXPECT_EQ(Take(fd_), good_);
}

/// A connection over TCP whose close takes its sender's linger time: what is sent on it is never read.
std::vector<base::UniqueFd> LingeringConnection() {
  std::vector<base::UniqueFd> fds;
  fds.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(fds[0].Get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  EXPECT_EQ(listen(fds[0].Get(), 1), 0);
  EXPECT_EQ(getsockname(fds[0].Get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  fds.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  connect(fds[1].Get(), reinterpret_cast<sockaddr *>(&address), sizeof address);
  pollfd connected{fds[1].Get(), POLLOUT, 0};
  EXPECT_EQ(poll(&connected, 1, 5000), 1);
  const std::string text(1 << 16, 'x');
  while (send(fds[1].Get(), text.data(), text.size(), MSG_NOSIGNAL) > 0) {
  }
  constexpr linger kLong{1, 60};
  EXPECT_EQ(setsockopt(fds[1].Get(), SOL_SOCKET, SO_LINGER, &kLong, sizeof kLong), 0);
  return fds;
}

/// Where the kernel lets descriptors through, whoever closes the last one waits as long as its maker likes.
TEST_F(UserContextTest, IsNotHeldUpByDescriptorsOfAPeer) {
  if (RYND_EMULATED) GTEST_SKIP() << "its system calls take descriptors in that the program has no room for";
  constexpr int kOn = 1;
  setsockopt(fd_, SOL_SOCKET, base::kPassRights, &kOn, sizeof kOn);  // as a kernel that can't refuse them
  Log("The log opens what it needs at its first line, which may be one that is told a second late.");
  const ptrdiff_t before = OpenDescriptors();
  const auto send = [&](size_t copies) {
    std::vector<base::UniqueFd> lingering = LingeringConnection();
    ASSERT_EQ(SendWithDescriptors(peer_.Get(), good_, std::vector<int>(copies, lingering[1].Get())), 0);
    lingering[1].Reset();
    lingering_.push_back(std::move(lingering[0]));
  };
  const auto start = std::chrono::steady_clock::now();
  const auto closesInTime = [&] {
    for (int i = 0; i < 500 && OpenDescriptors() > before + static_cast<ptrdiff_t>(lingering_.size()) + 2; ++i)
      usleep(10'000);
    EXPECT_LE(OpenDescriptors(), before + static_cast<ptrdiff_t>(lingering_.size()) + 2) << "the closing thread's pipe";
  };
  for (const size_t copies : {1U, 253U}) {
    send(copies);
    EXPECT_EQ(Take(fd_), good_);
    closesInTime();
  }
  send(1);
  EXPECT_EQ(RynLib_Reset(handle_), 0);
  closesInTime();
  // Without room for all of them the packet is not taken at all, and its connection ends.
  send(253);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit few{static_cast<rlim_t>(peer_.Get()) + 20, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_EQ(Take(fd_), Bytes());
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_NE(PollEvents(fd_) & POLLHUP, 0);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(RynLib_UserContextCloseCnx(fd_), 0);  // and what is unread goes with the connection
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST_F(UserContextTest, CountsAndNamesWhoIsServedAndWhoIsRefused) {
  RynUserStatistics before{}, after{};
  RynLib_GetUserStatistics(&before);
  const auto me = "of pid " + std::to_string(getpid()) + ", uid " + std::to_string(getuid());
  int32_t pid = 0;
  uint32_t uid = 1;
  EXPECT_EQ(RynLib_UserConnectionSender(fd_, &pid, &uid), 0);
  EXPECT_EQ(pid, getpid());
  EXPECT_EQ(uid, getuid());
  EXPECT_EQ(RynLib_UserConnectionSender(-1, &pid, &uid), ENOENT);
  // Another process sends over the same connection.
  const pid_t child = fork();
  if (child == 0) {
    _exit(::send(peer_.Get(), good_.data(), good_.size(), 0) > 0 ? 0 : 1);
  }
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(Read(fd_), 0);
  EXPECT_EQ(RynLib_UserConnectionSender(fd_, &pid, &uid), 0);
  EXPECT_EQ(pid, child);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // until a line may come again
  for (int i = 0; i < 3; ++i) {
    const base::UniqueFd caller = Call();
    int fd = -1;
    ASSERT_EQ(RynLib_UserContextNewCnx(handle_, &fd), 0);
    EXPECT_EQ(RynLib_UserContextCloseCnx(fd), 0);
  }
  RynLib_GetUserStatistics(&after);
  EXPECT_EQ(after.accepted - before.accepted, 3u);
  EXPECT_EQ(after.refused - before.refused, 3u);
  EXPECT_EQ(after.now, before.now);
  const std::vector<std::string> lines = log_.AllMessages();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("Refused a user connection " + me + ": as many as can be served are open"));
}

TEST_F(UserContextTest, TurnsCallersAwayWithoutDescriptors) {
  const base::UniqueFd caller = Call();
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
