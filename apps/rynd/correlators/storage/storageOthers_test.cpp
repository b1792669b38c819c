// The handlers of the system swap, VFAT and velfs correlators, which remember what they have told, and of HYFS.

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
  std::filesystem::remove(HostPath("storage/swap/reconfigure"));
  std::filesystem::create_directory(HostPath("storage/swap/reconfigure"));
  EXPECT_EQ(told("removed", path), failed + "ds1 was") << "whether it can be done can't be read";
  EXPECT_EQ(TakeActions(), "");
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

/// `front`, a UUID's nine numbers, `rear`.
Arguments WithUuid(Arguments front, const Arguments &rear,
                   const std::vector<uint32_t> &numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9}) {
  for (const uint32_t number : numbers) front.push_back(Long(number));
  front.insert(front.end(), rear.begin(), rear.end());
  return front;
}

TEST(HyfsCorrelator, PutsAnyUuidIntoText) {
  CapturedLog log;
  const auto textOf = [](const std::vector<uint32_t> &numbers) {
    const Events events = EventsOf(HyfsHandlers(), "ryn.hyfs.heartbeat.timedout", WithUuid({}, {Str("v")}, numbers));
    return events.size() == 1 ? events[0].substr(events[0].find(' ') + 1) : "none";
  };
  EXPECT_EQ(textOf({UINT32_MAX, 0, 0xffff, 0xff, 0, 0x0a, 0xa0, 1, 0xff}), "ffffffff-00000000-ffff-ff000aa001ff v");
  EXPECT_EQ(textOf({0, UINT32_MAX, 0, 0, 0xff, 0, 0, 0, 0}), "00000000-ffffffff-0000-00ff00000000 v");
  for (uint32_t byte = 0; byte < 256; ++byte) {
    char text[64];
    snprintf(text, sizeof text, "00000001-00000002-0003-04050607%02x%02x v", 255 - byte, byte);
    EXPECT_EQ(textOf({1, 2, 3, 4, 5, 6, 7, 255 - byte, byte}), text);
    log.Messages();  // makes room in its socket
  }
  EXPECT_EQ(textOf({1, 2, 0x10000, 4, 5, 6, 7, 8, 9}), "none");
  EXPECT_EQ(textOf({1, 2, 3, 4, 5, 6, 7, 8, 256}), "none");
}

/// Hand an observation `id` to the handler of `handlerOf`.
void Mislead(const char *handlerOf, const char *id, const Arguments &arguments) {
  HandlerTable table;
  table[id] = HyfsHandlers()[handlerOf];
  Dispatch(table, IgnoreObservation, id, arguments);
}

TEST(HyfsDeathTest, AnIdThatAHandlerDoesNotKnowEndsTheDaemon) {
  EXPECT_DEATH(Mislead("ryn.hyfs.heartbeat.timedout", "ryn.hyfs.heartbeat.other", WithUuid({}, {Str("v")})),
               "NOT_REACHED apps/rynd/ryndHyfsCorrelator:149 ");
  EXPECT_DEATH(
      Mislead("ryn.hyfs.nfs.server.restored", "ryn.hyfs.nfs.server.lost", WithUuid({Str("1"), Str("2")}, {Str("3")})),
      "NOT_REACHED apps/rynd/ryndHyfsCorrelator:816 ");
}

}  // namespace
}  // namespace rynd
