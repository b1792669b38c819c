#include "hosted/contexts/unixSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>

#include "base/unixAddress.h"
#include "hosted/paths.h"
#include "hosted/testSupport.h"

namespace hosted {
namespace {

constexpr int kTypes[] = {SOCK_DGRAM, SOCK_STREAM, SOCK_SEQPACKET};

mode_t ModeOf(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

TEST(UnixSocket, ReplacesStaleFileAndRefusesLiveOne) {
  const testing_support::TestRoot root;
  const std::string path = root / "/socket";
  for (const int type : kTypes) {
    for (const int other : kTypes) {  // a live socket of another type is live, too
      base::UniqueFd first, second;
      ASSERT_EQ(ServeUnixSocket(path, type, 0600, &first), 0);
      EXPECT_EQ(ServeUnixSocket(path, other, 0600, &second), EADDRINUSE);
      first.Reset();
      EXPECT_EQ(ServeUnixSocket(path, other, 0600, &second), 0);
      base::UniqueFd caller;
      EXPECT_EQ(ConnectUnixSocket(path, other, &caller), 0);
      EXPECT_NE(fcntl(second.Get(), F_GETFD) & FD_CLOEXEC, 0);
      EXPECT_EQ(fcntl(second.Get(), F_GETFL) & O_NONBLOCK, 0);
    }
  }
}

TEST(UnixSocket, RefusesOneThatIsTooBusyToAnswer) {
  const testing_support::TestRoot root;
  base::UniqueFd busy(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  base::UnixAddress address;
  ASSERT_EQ(base::MakeUnixAddress(root / "/socket", &address), 0);
  ASSERT_EQ(bind(busy.Get(), address.Get(), base::UnixAddress::kLength), 0);
  ASSERT_EQ(listen(busy.Get(), 0), 0);
  base::UniqueFd caller, second;
  ASSERT_EQ(ConnectUnixSocket(root / "/socket", SOCK_STREAM, &caller), 0);
  EXPECT_EQ(ServeUnixSocket(root / "/socket", SOCK_STREAM, 0600, &second), EADDRINUSE);
}

TEST(UnixSocket, TellsWhyAPathCannotBeServed) {
  const testing_support::TestRoot root;
  testing_support::WriteFile(root / "/file", "kept");
  const std::string fits = root / ("/" + std::string(base::kMaxSocketPath - root.Path().size() - 1, 'a'));
  base::UniqueFd fd;
  EXPECT_EQ(ServeUnixSocket(root / "/file", SOCK_DGRAM, 0600, &fd), EEXIST);
  EXPECT_EQ(testing_support::ReadFile(root / "/file"), "kept");
  EXPECT_EQ(ServeUnixSocket(root / "/missing/socket", SOCK_DGRAM, 0600, &fd), ENOENT);
  EXPECT_EQ(ServeUnixSocket(fits, SOCK_DGRAM, 0600, &fd), 0);
  EXPECT_EQ(ServeUnixSocket(fits + "a", SOCK_DGRAM, 0600, &fd), ENAMETOOLONG);
  EXPECT_EQ(ConnectUnixSocket(fits + "a", SOCK_DGRAM, &fd), ENAMETOOLONG);
  EXPECT_EQ(ConnectUnixSocket(root / "/missing", SOCK_DGRAM, &fd), ENOENT);
}

TEST(UnixSocket, GivesTheModeWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    const testing_support::TestRoot root;
    const mode_t before = umask(mask);
    base::UniqueFd fd;
    EXPECT_EQ(MakeFolders(root / "/a/b/c", 0700), 0);
    EXPECT_EQ(MakeFolders(root / "/a/b/c", 0755), 0);  // there already: left as it is
    EXPECT_EQ(ServeUnixSocket(root / "/a/b/c/socket", SOCK_SEQPACKET, 0660, &fd), 0);
    umask(before);
    EXPECT_EQ(ModeOf(root / "/a"), 0755u);
    EXPECT_EQ(ModeOf(root / "/a/b"), 0755u);
    EXPECT_EQ(ModeOf(root / "/a/b/c"), 0700u);
    EXPECT_EQ(ModeOf(root / "/a/b/c/socket"), 0660u);
    testing_support::WriteFile(root / "/file", "");
    EXPECT_EQ(MakeFolders(root / "/file", 0700), ENOTDIR);
    EXPECT_EQ(MakeFolders(root / "/file/below", 0700), ENOTDIR);
  }
}

TEST(UnixSocket, GivesTheFoldersGroupWhereItMay) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give any group";
  const testing_support::TestRoot root;
  ASSERT_EQ(chown(root.Path().c_str(), 0, 4711), 0);
  base::UniqueFd fd;
  ASSERT_EQ(ServeUnixSocket(root / "/socket", SOCK_DGRAM, 0660, &fd), 0);
  struct stat status {};
  ASSERT_EQ(lstat((root / "/socket").c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, 4711u);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
}

/// Anybody who may read the folder can lock it, and whoever may write to it can make a lock file of his own.
TEST(UnixSocket, IsNotHeldUpByTheLockOfAStranger) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  const testing_support::TestRoot root;
  ASSERT_EQ(chmod(root.Path().c_str(), 01777), 0);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  base::UniqueFd told(ends[0]), tell(ends[1]);
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setresuid(65534, 65534, 65534) != 0) _exit(1);
    const int folder = open(root.Path().c_str(), O_RDONLY | O_DIRECTORY);
    const int file = open((root / "/.lock").c_str(), O_RDWR | O_CREAT, 0666);
    if (flock(folder, LOCK_EX) == 0 && flock(file, LOCK_EX) == 0 && write(tell.Get(), "y", 1) == 1) pause();
    _exit(1);
  }
  tell.Reset();
  char locked = 'n';
  EXPECT_EQ(read(told.Get(), &locked, 1), 1);
  const auto start = std::chrono::steady_clock::now();
  base::UniqueFd fd;
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(ServeUnixSocket(root / "/socket", SOCK_DGRAM, 0600, &fd), i == 0 ? 0 : EADDRINUSE);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << "2 s each when it waits";
  kill(stranger, SIGKILL);
  waitpid(stranger, nullptr, 0);
}

/// What `count` processes get that all serve `path` at the same time and keep it until the last has tried.
std::map<int, int> ServeAtOnce(const std::string &path, int type, int count) {
  int results[2], hold[2];
  EXPECT_EQ(pipe(results), 0);
  EXPECT_EQ(pipe(hold), 0);
  for (int i = 0; i < count; ++i) {
    if (fork() != 0) continue;
    close(hold[1]);
    base::UniqueFd fd;
    const int error = ServeUnixSocket(path, type, 0600, &fd);
    char byte = 0;
    const bool told = write(results[1], &error, sizeof error) == sizeof error;
    _exit(told && read(hold[0], &byte, 1) == 0 ? 0 : 1);
  }
  std::map<int, int> outcomes;
  for (int i = 0; i < count; ++i) {
    int error = -1;
    EXPECT_EQ(read(results[0], &error, sizeof error), static_cast<ssize_t>(sizeof error));
    ++outcomes[error];
  }
  for (const int fd : {results[0], results[1], hold[0], hold[1]}) close(fd);
  for (int i = 0; i < count; ++i) wait(nullptr);
  return outcomes;
}

TEST(UnixSocket, LetsOneOfManyProcessesWin) {
  const testing_support::TestRoot root;
  constexpr int kProcesses = 8;
  for (int round = 0; round < 96; ++round) {  // a third finds the stale file of the one before
    if (round % 3 != 0) unlink((root / "/socket").c_str());
    EXPECT_EQ(ServeAtOnce(root / "/socket", kTypes[round % 2], kProcesses),
              (std::map<int, int>{{0, 1}, {EADDRINUSE, kProcesses - 1}}))
        << round;
  }
}

}  // namespace
}  // namespace hosted
