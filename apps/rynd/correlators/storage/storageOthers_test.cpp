// The handlers of the system swap, VFAT and velfs correlators, which remember what they have told.

#include <filesystem>

#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(SwapCorrelator, ReconfiguresTheSwapAndReportsAFailure) {
  CapturedLog log;
  ClearHost();
  PutHost("storage/filesystems/5f1a-22", "ds1");
  const auto told = [](const char *what, const Arguments &path) {
    const Events events = EventsOf(SwapHandlers(), std::string("ryn.swap.systemSwap.isPDL.") + what, path);
    return events.empty() ? "" : events[0].substr(0, events[0].find(" affected"));
  };
  const Arguments path = {Str("/hyfs/volumes/ds1/swap.sys")};
  const std::string front = "amb.problem.swap.systemSwap.isPDL.", still = front + "cannot.remove.2 System swap on ",
                    failed = front + "removed.reconfig.failure.2 System swap on ";
  EXPECT_EQ(told("cannot.remove", path), still + "ds1 is");
  EXPECT_EQ(told("removed", path), "");
  EXPECT_EQ(TakeActions(), "storage/swap/reconfigure;");
  PutHost("storage/swap/reconfigure", "no 100%s room");
  EXPECT_EQ(told("removed", path), failed + "ds1 was");
  const std::string line = "System swap at path /hyfs/volumes/ds1/swap.sys ",
                    removed = line + "was affected by the Permanent Device Loss of its datastore and was removed.";
  EXPECT_EQ(log.Messages(),
            (Events{"2us: [ryn.swap.systemSwap.isPDL.cannot.remove] m",
                    line + "is affected by the Permanent Device Loss of its datastore but cannot be removed.",
                    "2us: [ryn.swap.systemSwap.isPDL.removed] m", removed,
                    line + "was affected by the PDL of its datastore and was removed. System swap has been "
                           "reconfigured.",
                    "2us: [ryn.swap.systemSwap.isPDL.removed] m", removed, "no 100%s room"}));
  EXPECT_EQ(told("cannot.remove", {NullStr()}), still + "(invalid) is");
  EXPECT_EQ(told("cannot.remove", {Int(1)}), "");
  for (const Arguments &unreadable : {Arguments{}, Arguments{Int(1)}, Arguments{NullStr()}}) {
    EXPECT_EQ(told("removed", unreadable), failed + "(invalid) was");
  }
}

TEST(VfatCorrelator, ReportsEachFileSystemOnceAndKnowsTheScratchPartition) {
  const CapturedLog log;
  const std::string scratch = ProcessRoot() / "/scratch";
  const auto full = [](hosted::RawArgument uuid) {
    return EventsOf(VfatHandlers(), "ryn.vfat.filesystem.full", {Str("/dev/x"), std::move(uuid)});
  };
  std::filesystem::create_symlink("/hyfs/volumes/1a-2b", scratch);
  EXPECT_EQ(full(Str("1a-2b")), Events{"amb.problem.vfat.filesystem.full.scratch The host's scratch partition, which "
                                       "is the VFAT filesystem /dev/x (UUID 1a-2b), is full."});
  EXPECT_EQ(full(Str("1a-2b")), Events{});
  EXPECT_EQ(full(Str("1a-2")),
            Events{"amb.problem.vfat.filesystem.full.other The VFAT filesystem /dev/x (UUID 1a-2) is full."});
  std::filesystem::remove(scratch);
  std::filesystem::create_symlink("bare", scratch);
  EXPECT_TRUE(full(Str("bare"))[0].starts_with("amb.problem.vfat.filesystem.full.scratch "));
  std::filesystem::remove(scratch);
  EXPECT_TRUE(full(Str("scratch"))[0].starts_with("amb.problem.vfat.filesystem.full.scratch "))
      << "no link: its own name";
  EXPECT_TRUE(full(Str("bare2"))[0].starts_with("amb.problem.vfat.filesystem.full.other "));
  EXPECT_TRUE(full(NullStr())[0].ends_with("(UUID (null)) is full."));
  EXPECT_EQ(full(Str("")), Events{}) << "a null string and an empty one are one key";
}

TEST(VelfsCorrelator, ReportsEachRamdiskOnceAKind) {
  const CapturedLog log;
  const auto usage = [](const char *kind, const char *ramdisk) {
    const Events events =
        EventsOf(VelfsHandlers(), std::string("ryn.velfs.ramdisk.usage.") + kind, {Str(ramdisk), Str("7")});
    return events.empty() ? "" : events[0].substr(0, events[0].find("' "));
  };
  for (const std::string kind : {"warning", "error"}) {
    EXPECT_EQ(usage(kind.c_str(), "tmp"), "amb.problem.velfs.ramdisk.usage." + kind + " Ramdisk 'tmp");
    EXPECT_EQ(usage(kind.c_str(), "tmp"), "");
    EXPECT_EQ(usage(kind.c_str(), "configstore"),
              "amb.problem.velfs.configstore.usage." + kind + " Ramdisk 'configstore");
  }
  EXPECT_EQ(usage("warning", "configstore2"), "amb.problem.velfs.ramdisk.usage.warning Ramdisk 'configstore2");

  const Arguments full = {Str("tmp"), Str("/tmp/a")};
  EXPECT_EQ(EventsOf(VelfsHandlers(), "ryn.velfs.ramdisk.full", full).size(), 1u);

  EXPECT_EQ(EventsOf(VelfsHandlers(), "ryn.velfs.ramdisk.full", {Str("tmp"), Str("/tmp/b")}), Events{});
  const auto inodes = [](const char *ramdisk, const char *file, const char *application) {
    return EventsOf(VelfsHandlers(), "ryn.velfs.ramdisk.inodetable.full",
                    {Str(ramdisk), Str(file), Str(application), NullStr()});
  };
  EXPECT_TRUE(inodes("tmp", "a", "app")[0].ends_with(
      "'tmp' is full.  As a result, the file a could not be created by the application 'app'."));

  EXPECT_EQ(inodes("tmp", "a", "app2"), Events{});
  EXPECT_EQ(inodes("tmp", "b", "app").size() + inodes("tmp2", "a", "app").size(), 2u);
}

TEST(VelfsCorrelator, ReportsAnythingElseOnce) {
  CapturedLog log;
  TakeEvents();
  Dispatch(VelfsHandlers(), VelfsDefaultHandler(), "ryn.velfs.new", {}, "what was seen");
  Dispatch(VelfsHandlers(), VelfsDefaultHandler(), "ryn.velfs.newer", {}, "what was seen");
  EXPECT_EQ(TakeEvents(), Events{"amb.problem.velfs.failure An operation on the root filesystem has failed."});
  EXPECT_EQ(log.CountOf("2us: [ryn.velfs.new] what was seen"), 1u);
  EXPECT_EQ(log.CountOf("2us: [ryn.velfs.newer] what was seen"), 1u);
}

}  // namespace
}  // namespace rynd
