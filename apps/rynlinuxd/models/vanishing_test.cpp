// Devices that vanish, or can't be read, at each single step of reading what sysfs says of them.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <set>

#include "models/network/txTimeouts.h"
#include "models/raidModel.h"
#include "models/recorder.h"
#include "models/storage/diskModel.h"
#include "models/storage/multipathModel.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

/// At its turn one step fails below `root`: opening, listing, reading, following a link, or looking whether it is
/// there.
struct Fault {
  std::string root{};
  std::vector<std::string> vanishes{};  ///< has gone by then, the first of it first
  int error = 0;                        ///< of that step
  int turn = 0, steps = 0;
  std::set<int> files{};  ///< open below `root`
  bool isArmed = false;
};
Fault fault;

/// Whether it is this step's turn: what vanishes has done so, and what is still there of it can be read.
bool Fails(bool isBelow, const std::function<bool()> &isGone) {
  if (!fault.isArmed || !isBelow || fault.steps++ != fault.turn) return false;
  fault.isArmed = false;
  for (const std::string &path : fault.vanishes) std::filesystem::remove_all(fault.root + path);
  const bool fails = fault.vanishes.empty() || isGone();
  fault.isArmed = true;
  errno = fault.error;
  return fails;
}
bool Fails(const char *path) {
  struct stat status {};
  return Fails(std::string_view(path).starts_with(fault.root), [&] { return lstat(path, &status) != 0; });
}
bool Fails(int fd) {
  struct stat status {};
  return Fails(fault.files.contains(fd), [&] { return fstat(fd, &status) != 0 || status.st_nlink == 0; });
}

}  // namespace
}  // namespace rynlinuxd

// The models call these in the place of the C library's.
extern "C" {
int open(const char *path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
  va_end(more);
  if (rynlinuxd::Fails(path)) return -1;
  const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
  if (rynlinuxd::fault.isArmed && fd >= 0) rynlinuxd::fault.files.insert(fd);
  return fd;
}
ssize_t read(int fd, void *bytes, size_t size) {
  if (rynlinuxd::Fails(fd)) return -1;
  return syscall(SYS_read, fd, bytes, size);
}
DIR *opendir(const char *path) {
  using Open = DIR *(*)(const char *);
  static const auto real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "opendir"));
  return rynlinuxd::Fails(path) ? nullptr : real(path);
}
ssize_t readlink(const char *path, char *target, size_t size) noexcept {
  return rynlinuxd::Fails(path) ? -1 : syscall(SYS_readlinkat, AT_FDCWD, path, target, size);
}
int access(const char *path, int mode) noexcept {
  return rynlinuxd::Fails(path) ? -1 : static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
}
}

namespace rynlinuxd {
namespace {

using Files = std::vector<std::pair<std::string, std::string>>;

/// The files of a sysfs of the test's own, and what is told.
struct World {
  testing_support::TestRoot root;
  Recorder told;

  void Put(const Files &files) {
    for (const auto &[path, text] : files) testing_support::WriteFile(root / path, text + "\n");
  }
  /// Do `act` while one step of it fails; whether there was one.
  bool Try(int turn, int error, const std::vector<std::string> &vanishes, const std::function<void()> &act) {
    fault = {root.Path(), vanishes, error, turn, 0, {}, true};
    act();
    fault.isArmed = false;
    return fault.steps > turn;
  }
};

/// Call `run` for each step, until there is none any more, and each error; with an error alone nothing vanishes.
void ForEachStep(int least, const std::vector<std::string> &vanishes,
                 const std::function<bool(int turn, int error, const std::vector<std::string> &vanishes)> &run) {
  for (const int error : {ENODEV, ENOENT, EIO, ENOMEM}) {
    for (const bool isGone : {true, false}) {
      // Of what is there the kernel never says that it is not.
      if (!isGone && (error == ENOENT || error == ENODEV)) continue;
      int turn = 0;
      while (run(turn, error, isGone ? vanishes : std::vector<std::string>())) ++turn;
      EXPECT_GE(turn, least) << "the reading does not come through here";
    }
  }
}

struct DiskCase {
  const char *what;
  std::string path;                ///< of the disk that vanishes
  Files files;                     ///< of it
  std::string told;                ///< when it does not
  std::vector<std::string> first;  ///< vanish in front of the others
};

const std::string kHost = "/devices/pci0000:00/0000:00:01.0/virtio0/host0/target0:0:0/0:0:0:";
const DiskCase kDisks[] = {
    {"SCSI",
     kHost + "5/block/sdx",
     {{"/device/wwid", "naa.5"}, {"/device/type", "0"}},
     "naa.5",
     {"/device/uevent", "/device/type", "/device/wwid"}},
    {"a second path",
     kHost + "6/block/sdy",
     {{"/device/wwid", "naa.1"}, {"/device/type", "0"}},
     "",
     {"/device/uevent", "/device/wwid"}},
    {"an optical drive", kHost + "7/block/sr0", {{"/device/type", "5"}}, "", {"/device/uevent", "/device/type"}},
    {"NVMe, whose controller has a number too",
     "/devices/pci0000:00/0000:00:03.0/nvme/nvme0/nvme0n1",
     {{"/wwid", "nvme.1-2"}, {"/device/serial", "S1"}},
     "nvme.1-2",
     {"/uevent", "/wwid"}},
    {"without a name of its own",
     "/devices/pci0000:00/0000:00:04.0/virtio2/block/vdx",
     {{"/serial", ""}},
     "vdx",
     {"/device"}},
};

TEST(Vanishing, ADiskIsToldByItsNameOrNotAtAll) {
  const std::string other = kHost + "1/block/sda";
  for (const DiskCase &disk : kDisks) {
    const std::string link = "/block" + disk.path.substr(disk.path.rfind('/'));
    std::vector<std::string> whole = {disk.path, link}, parts;
    for (const std::string &file : disk.first) parts.push_back(disk.path + file);
    for (const bool isLook : {false, true}) {
      const auto run = [&](int turn, int error, const std::vector<std::string> &vanishes) {
        World world;
        const auto plug = [&](const std::string &path, const Files &files) {
          for (const char *each : {"/uevent", "/device/uevent"}) world.Put({{path + each, ""}});
          for (const auto &[file, text] : files) world.Put({{path + file, text}});
          std::filesystem::create_directories(world.root / "/block");
          std::filesystem::create_symlink(".." + path, world.root / ("/block" + path.substr(path.rfind('/'))));
        };
        plug(other, {{"/device/wwid", "naa.1"}});
        DiskModel model(world.root.Path(), &world.told.ledger, &world.told);
        model.Look(0);
        plug(disk.path, disk.files);
        const auto send = [&](const char *action) {
          model.Change({action, disk.path, {{"SUBSYSTEM", "block"}, {"DEVTYPE", "disk"}}});
        };
        const bool isStep = world.Try(turn, error, vanishes, [&] { isLook ? model.Look(0) : send("add"); });
        model.OnDue(DiskModel::kAgainNs);
        std::string told = world.told.Take();
        const std::string right = disk.told.empty() ? "" : "hcm.event.disk.insertion " + disk.told + '\n';
        EXPECT_TRUE(told.empty() || told == right) << disk.what << ", step " << turn << ": " << told;
        send("remove");
        const std::string end = world.told.Take();
        EXPECT_EQ(end, told.empty() ? "" : "hcm.event.disk.removal " + disk.told + '\n') << disk.what << turn;
        return isStep;
      };
      ForEachStep(3, whole, run);
      ForEachStep(3, parts, run);
    }
  }
}

TEST(Vanishing, AnArrayIsNeitherRepairedNorAnother) {
  const std::string array = "/md0/md/";
  for (const bool isKnown : {true, false}) {
    ForEachStep(5, {array + "degraded", "/md0"}, [&](int turn, int error, const std::vector<std::string> &vanishes) {
      World world;
      world.Put({{"/sda/size", "9"}, {array + "uuid", "a-b"}, {array + "degraded", "1"}});
      RaidModel model(world.root.Path(), &world.told);
      const std::string right =
          "external.error array md0 man:rynlinuxd(8) it is degraded: 1 of its devices are missing\n";
      if (isKnown) model.Look();
      EXPECT_EQ(world.told.Take(), isKnown ? right : "");
      const bool isStep = world.Try(turn, error, vanishes, [&] { model.Look(); });
      const std::string told = world.told.Take();
      EXPECT_TRUE(told.empty() || (!isKnown && told == right)) << turn << ": " << told;
      model.Look();
      const bool isLate = vanishes.empty() && !isKnown && told.empty();
      EXPECT_EQ(world.told.Take(), isLate ? right : "") << turn;
      EXPECT_EQ(world.told.ledger.Below("array ").count("md0"), 0u) << "it has a name for good";
      return isStep;
    });
  }
}

TEST(Vanishing, ACardsPastTimeoutsAreNoNewOnes) {
  const Files card = {
      {"/device/vendor", "1"}, {"/ifindex", "2"}, {"/queues/tx-0/tx_timeout", "7"}, {"/queues/tx-1/tx_timeout", "3"}};
  for (const bool hasLooked : {true, false}) {
    ForEachStep(10, {"/eth0/queues", "/eth0"}, [&](int turn, int error, const std::vector<std::string> &vanishes) {
      World world;
      world.Put({{"/bonding_masters", ""}});
      for (const auto &[file, text] : card) world.Put({{"/eth0" + file, text}, {"/eth1" + file, text}});
      testing_support::WriteFile(world.root / "/eth1/ifindex", "3\n");
      TxTimeouts model(world.root.Path(), {}, &world.told);
      if (hasLooked) model.Look();
      const bool isStep = world.Try(turn, error, vanishes, [&] { model.Look(); });
      for (int i = 0; i < 3; ++i) model.Look();
      EXPECT_EQ(world.told.Take(), "") << "step " << turn;
      world.Put({{"/eth1/queues/tx-1/tx_timeout", "4"}});
      model.Look();
      EXPECT_EQ(world.told.Take(), "net.uplink.watchdog.timeout eth1\n") << "step " << turn;
      return isStep;
    });
  }
}

TEST(Vanishing, APathKeepsOneName) {
  ForEachStep(2, {"/dev/block/8:16"}, [&](int turn, int error, const std::vector<std::string> &vanishes) {
    World world;
    std::filesystem::create_directories(world.root / "/dev/block");
    for (const char *name : {"8:0", "8:16"})
      std::filesystem::create_symlink(std::string("../../devices/block/sd-") + name, world.root / "/dev/block/" + name);
    MultipathModel model(world.root.Path(), &world.told.ledger, &world.told);
    const auto answer = [&](bool isActive) {
      model.Answer("253:0", DmDevice{"253:0", "wwid", true, {{"8:0", true}, {"8:16", isActive}}}, 0, 1);
      return world.told.Take();
    };
    const bool isStep = world.Try(turn, error, vanishes, [&] { answer(true); });
    const std::string dead = answer(false), alive = answer(true);
    const std::string name = dead.find(" sd-8:16 ") != std::string::npos ? "sd-8:16" : "8:16";
    EXPECT_EQ(dead, "scsi.scsipath.pathstate.deadver2 " + name + " on wwid\n") << turn;
    EXPECT_EQ(alive, "scsi.scsipath.pathstate.on " + name + " dead\n") << turn;
    return isStep;
  });
}

}  // namespace
}  // namespace rynlinuxd
