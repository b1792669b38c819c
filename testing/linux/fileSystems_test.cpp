// Real file systems in a namespace: they run full, break, hang; and what the kernel kills and how a boot ended.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "testing/linux/linuxHost.h"

namespace testing_support {
namespace {

TEST(LinuxFileSystems, ThoseThatRunFullAreToldByTheirNames) {
  ENTER_NAMESPACES();
  const TestRoot work;
  const std::string ram = work / "/a ram\n disk", disk = work / "/disk", sealed = work / "/sealed";
  ASSERT_TRUE(Shell("set -e; cd " + work.Path() + "; mkdir disk sealed '" + ram +
                    "'; truncate -s 32M img; mkfs.ext4 -q -m 0 img; mount -o loop img disk;"
                    "mount -t tmpfs -o size=10m none '" +
                    ram +
                    "'; mount -t tmpfs -o size=1m none sealed;"
                    "head -c 1048576 /dev/zero >sealed/all; mount -o remount,ro sealed"))
      << "this needs loop devices";
  LinuxHost host({"--sources", "filesystems", "--poll", "1"});
  Pause(1.5);
  EXPECT_EQ(host.CountOf(work.Path()), 0u) << "what was sealed is meant to be full: " << host.All();
  ASSERT_TRUE(
      Shell("head -c 9700000 /dev/zero >'" + ram + "/x'; head -c 40M /dev/zero >" + disk + "/x 2>/dev/null; true"));
  EXPECT_TRUE(
      host.Tells("velfs.ramdisk.usage.warning Ramdisk '" + ram + "' usage is very high. Approx 7% space left."));
  EXPECT_TRUE(host.Tells("file system " + disk + ". The message reported is: it is nearly full: 100 %"));
  ASSERT_TRUE(Shell("head -c 2M /dev/zero >>'" + ram + "/x' 2>/dev/null; rm " + disk + "/x"));
  EXPECT_TRUE(
      host.Tells("velfs.ramdisk.usage.error Ramdisk '" + ram + "' is reaching its critical size limit. Approx 0%"));
  EXPECT_TRUE(host.Tells("3rdParty.information A 3rd party component, file system " + disk));
  // A daemon that is started anew hears what is open, and nothing else.
  host.EndDaemon(SIGTERM);
  host.StartDaemon();
  EXPECT_TRUE(host.Tells("critical size limit", 2));
  host.EndWatcher(SIGTERM);
  host.StartWatcher();
  ASSERT_TRUE(Shell("umount '" + ram + "'"));
  EXPECT_TRUE(host.Tells("it is not mounted any more"));
  EXPECT_EQ(host.CountOf("is nearly full"), 1u);
  EXPECT_EQ(host.CountOf("critical size limit"), 2u);
}

TEST(LinuxFileSystems, DamageAndItsConsequenceAreTold) {
  ENTER_NAMESPACES();
  const TestRoot work;
  ASSERT_TRUE(
      Shell("set -e; cd " + work.Path() +
            "; mkdir data; truncate -s 16M img; mkfs.ext4 -q -L 'vol one' -U 01234567-89ab-cdef-fedc-ba9876543210 "
            "img; mount -o loop,errors=remount-ro img data"));
  LinuxHost host({"--sources", "fs-errors", "--poll", "1"});
  if (!host.Watches("fs-errors")) GTEST_SKIP() << host.Check();
  ASSERT_TRUE(
      Shell("echo test >/sys/fs/ext4/$(basename $(findmnt -no SOURCE " + (work / "/data") + "))/trigger_fs_error"));
  EXPECT_TRUE(host.Tells("hyfs.metadata.corruptondisk 01234567-89abcdef-fedc-ba9876543210 vol one"));
  EXPECT_TRUE(host.Tells("it has turned read-only after an error"));
  EXPECT_TRUE(host.Tells("errors stand in its record"));
  Pause(1);
  EXPECT_EQ(host.Events().size(), 3u) << host.All();
  Shell("umount " + (work / "/data"));
}

TEST(LinuxFileSystems, AHangingOneHoldsNobodyUp) {
  ENTER_NAMESPACES();
  const base::UniqueFd silent(open("/dev/fuse", O_RDWR | O_CLOEXEC));
  const TestRoot work;
  const std::string hung = work / "/hung", ram = work / "/ram";
  ASSERT_TRUE(Shell("mkdir '" + hung + "' '" + ram + "'; mount -t tmpfs -o size=1m none " + ram));
  const std::string options = "fd=" + std::to_string(silent.Get()) + ",rootmode=40000,user_id=0,group_id=0";
  if (!silent || mount("server", hung.c_str(), "fuse", 0, options.c_str()) != 0) GTEST_SKIP() << "no fuse here";
  LinuxHost host({"--sources", "filesystems", "--poll", "1"});
  ASSERT_TRUE(Shell("head -c 1000000 /dev/zero >" + ram + "/x"));
  EXPECT_TRUE(host.Tells("Ramdisk '" + ram + "'", 1, 10));
  EXPECT_TRUE(host.Tells("server does not answer"));
  Pause(8);
  EXPECT_EQ(host.CountOf("does not answer"), 1u);
  host.EndWatcher(SIGTERM);  // at once, whatever hangs
  umount2(hung.c_str(), MNT_DETACH);
}

TEST(LinuxFileSystems, TenThousandMountsAreLookedAt) {
  ENTER_NAMESPACES();
  const TestRoot work;
  int made = 0;
  for (; made < 10'000; ++made) {
    const std::string point = work / ("/m" + std::to_string(made));
    if (mkdir(point.c_str(), 0755) != 0 || mount("none", point.c_str(), "tmpfs", 0, "size=64k") != 0) break;
  }
  ASSERT_GT(made, 1000) << "the host allows so few mounts";
  LinuxHost host({"--sources", "filesystems,links", "--poll", "1"});
  const std::string last = work / ("/m" + std::to_string(made - 1));
  ASSERT_TRUE(Shell("head -c 65536 /dev/zero >" + last + "/x"));
  EXPECT_TRUE(host.Tells("Ramdisk '" + last + "'"));
  EXPECT_EQ(host.CountOf(work.Path()), 1u) << host.All();
  if (!IsSlowBuild()) {
    EXPECT_LT(ReadProcessState(host.Watcher().Pid()).residentKib, 8192);
  }
}

TEST(LinuxMemory, AKillForWantOfMemoryIsToldAndAForgedOneIsNot) {
  ENTER_NAMESPACES(true);
  LinuxHost host({"--sources", "oom"});
  if (!host.Watches("oom")) GTEST_SKIP() << host.Check();
  // A control group of the test's own, which takes nothing from anybody.
  const std::string tag = "oomA" + std::to_string(getpid() % 100000);
  const TestRoot work;
  const std::string groups = ReadFile("/proc/mounts");
  const bool isOld = groups.find("cgroup /sys/fs/cgroup/memory ") != std::string::npos;
  const std::string group = (isOld ? "/sys/fs/cgroup/memory/" : "/sys/fs/cgroup/") + ("rynd-test-" + tag);
  const std::string limit = group + (isOld ? "/memory.limit_in_bytes" : "/memory.max");
  ASSERT_TRUE(Shell("echo '<3>Out of memory: Killed process 1 (forged) total-vm:1kB' >/dev/kmsg"));
  if (!Shell("mkdir " + group + " 2>/dev/null && echo 4194304 >" + limit)) GTEST_SKIP() << "no memory control here";
  Shell("cp /usr/bin/tail " + (work / "/" + tag) + "; sh -c 'echo $$ >" + group + "/cgroup.procs; exec " +
        (work / "/" + tag) + " /dev/zero' 2>/dev/null");
  EXPECT_TRUE(host.Tells("component, " + tag));
  EXPECT_NE(host.All().find("its control group is out of memory"), std::string::npos) << host.All();
  EXPECT_EQ(host.CountOf("forged"), 0u);
  EXPECT_TRUE(WaitUntil([&] { return rmdir(group.c_str()) == 0; }));
}

TEST(LinuxBoot, OneThatEndedWithoutAStopIsTold) {
  ENTER_NAMESPACES();
  LinuxHost host({"--sources", "boot"});
  const std::string ledger = host.Root() / "/var/lib/corvane/linux/ledger.json";
  const auto asIfBootedAnew = [&](int signal) {
    host.EndWatcher(signal);
    std::string text = ReadFile(ledger);
    const size_t at = text.find("\"boot\": \"") + 9;
    WriteFile(ledger, text.replace(at, text.find('"', at) - at, "another"));
    host.StartWatcher();
  };
  EXPECT_TRUE(WaitUntil([&] { return ReadFile(ledger).find("running") != std::string::npos; }));
  host.EndWatcher(SIGKILL);
  host.StartWatcher();
  asIfBootedAnew(SIGTERM);
  Pause(0.3);
  EXPECT_EQ(host.All(), "") << "a stop in good order, and a crash of this program alone";
  EXPECT_TRUE(WaitUntil([&] { return ReadFile(ledger).find("another") == std::string::npos; }));
  asIfBootedAnew(SIGKILL);
  EXPECT_TRUE(host.Tells("the last boot ended without a stop in good order"));
}

}  // namespace
}  // namespace testing_support
