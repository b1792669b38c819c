// The daemon where what stands around it is blocked, missing or in the way.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "testing/daemon.h"

namespace testing_support {
namespace {

/// A pipe at `path` that is full, that nobody reads and that others write to, too.
base::UniqueFd FullPipe(const std::string &path) {
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  base::UniqueFd pipe(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  const std::string text(4096, 'x');
  while (write(pipe.Get(), text.data(), text.size()) > 0) {
  }
  return pipe;
}

TEST(Surroundings, ABlockedStandardErrorHoldsNothingUp) {
  {
    const TestRoot root;
    const base::UniqueFd pipe = FullPipe(root / "/stderr");
    const EventListener events(root / "/var/run/corvane/mgmtd-kprob.sock");
    Daemon daemon(root);
    ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(root / "/var/run/corvane/rynd-trace.sock"); }));
    for (unsigned i = 0; i < 40; ++i) {
      ASSERT_TRUE(SendRecord(ConnectKernel(root, i % 29), MakeRecord("ryn.storage.apd.start", {std::to_string(i)})));
    }
    EXPECT_TRUE(events.Records().WaitFor("amb.problem.storage.apd.start", 40));
    EXPECT_EQ(daemon.Stop(), 0);
  }
  if (RYND_EMULATED) return;  // the emulator writes there too when its program aborts, and waits
  const TestRoot root;
  const base::UniqueFd pipe = FullPipe(root / "/stderr");
  WriteFile(root / "/var/lib/corvane/host/sysinfo/system/buildSignature", "another\n");
  Daemon daemon(root);
  EXPECT_EQ(daemon.WaitForExit(), 128 + SIGABRT) << "a panic";
}

TEST(Surroundings, SocketsHaveTheirModesWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    const TestRoot root;
    const mode_t before = umask(mask);
    const LogListener log(root / "/dev/log");
    Daemon daemon(root);
    umask(before);
    ASSERT_TRUE(log.Lines().WaitFor("Start polling loop."));
    const std::pair<const char *, mode_t> sockets[] = {
        {"ryn/kernel-00", 0600}, {"ryn/kernel-28", 0600}, {"ryn-user.sock", 0660}, {"rynd-trace.sock", 0660}};
    for (const auto &[name, mode] : sockets) {
      struct stat status {};
      EXPECT_EQ(lstat((root / "/var/run/corvane/" + name).c_str(), &status), 0) << name;
      EXPECT_EQ(status.st_mode & 07777, mode) << name;
    }
    EXPECT_EQ(daemon.Stop(), 0);
  }
}

}  // namespace
}  // namespace testing_support
