// Storage correlators on a platform whose look-ups throw anything: its host management and kernel control are replaced.

#include <filesystem>
#include <new>

#include "correlators/rows/volumeOfPath.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/storage/storageLookups.h"
#include "correlators/storage/storagePaths.h"
#include "platform/hostMgmt.h"
#include "platform/hostMgmtStorage.h"
#include "platform/hykCtlStorage.h"
#include "platform/hykCtlSystem.h"
#include "testing/postedEvents.h"

namespace {

enum class Thrown { kNothing, kLibrary, kNoMemory, kForeign };
Thrown inLookUp = Thrown::kNothing;    ///< by the look-up of a device or path, the file systems and the swap
Thrown inContents = Thrown::kNothing;  ///< by what is asked of a device that was found

int32_t redundancy = 2;  ///< of every device

void Throw(Thrown what) {
  if (what == Thrown::kLibrary) throw HostMgmt::Lib::HostMgmtException("the library's own");
  if (what == Thrown::kNoMemory) throw std::bad_alloc();
  if (what == Thrown::kForeign) throw 7;
}

}  // namespace

namespace HostMgmt {

namespace Storage {

Lun::Lun(std::string component) : component_(std::move(component)) {}
Lun::~Lun() = default;
int32_t Lun::GetRedundancyStatus() const {
  Throw(inContents);
  return redundancy;
}
std::vector<Partition> DiskLun::GetPartitions() const {
  Throw(inContents);
  return {};
}
Path::Path(std::string deviceName) : deviceName_(std::move(deviceName)) {}
std::unique_ptr<Lun> StorageInfo::GetLunByName(const char * /*name*/, bool current) const {
  EXPECT_TRUE(current);
  Throw(inLookUp);
  return std::make_unique<DiskLun>("");
}
std::unique_ptr<Path> StorageInfo::GetPathByName(const char * /*name*/) const {
  Throw(inLookUp);
  return std::make_unique<Path>("naa.1");
}

}  // namespace Storage

std::unique_ptr<Storage::StorageInfo> Host::GetStorageInfo() const {
  return std::make_unique<Storage::StorageInfo>();
}
std::unique_ptr<Host> HostFactory::GetHost() {
  return std::make_unique<Host>();
}

}  // namespace HostMgmt

namespace HykCtl {

Storage::FileSystem::FileSystem(std::string label, std::string uuid)
    : label_(std::move(label)), uuid_(std::move(uuid)) {}
std::vector<Storage::FileSystem> Storage::StorageInfoImpl::GetFileSystems() const {
  Throw(inLookUp);
  return {{"ds1", "5f1a-22"}};
}
void System::SwapInfoImpl::ReconfigureSysSwap(uint32_t options, uint32_t flags) const {
  EXPECT_EQ(options + flags, 0u);
  Throw(inLookUp);
}

}  // namespace HykCtl

namespace rynd {
namespace {

constexpr int64_t kNow = 1'700'000'000;

class StorageFaults : public testing::TestWithParam<Thrown> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(ProcessRoot() / "/hyfs/volumes");
    inLookUp = inContents = Thrown::kNothing;
    TakeEvents();
  }
  CapturedLog log_;
};

TEST_P(StorageFaults, LeaveTheDatastoresUnknown) {
  EXPECT_EQ(DatastoreList("naa.1"), "");
  for (Thrown *const where : {&inLookUp, &inContents}) {
    *where = GetParam();
    EXPECT_EQ(EventsOf(ScsiHandlers(), "ryn.scsi.device.state.permanentloss", {Str("naa.1")}),
              Events{"amb.problem.scsi.device.state.permanentloss Device: naa.1 has been removed or is permanently "
                     "inaccessible. Affected datastores (if any): Unknown."});
    *where = Thrown::kNothing;
  }
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/ds1/swap"), "ds1");
  inLookUp = GetParam();
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/ds1/swap"), "(unknown)");
}

TEST_P(StorageFaults, StopTheReportOfAPath) {
  StoragePaths paths("", 0);
  for (Thrown *const where : {&inLookUp, &inContents}) {
    *where = GetParam();
    paths.PathDown("p", "on", "naa.1", kNow);
    EXPECT_EQ(TakeEvents(), Events{});
    *where = Thrown::kNothing;
    paths.PathDown("p", "on", "naa.1", kNow);
    EXPECT_EQ(TakeEvents().size(), 1u);
    *where = GetParam();
    paths.PathRestored("p", "dead", kNow);
    EXPECT_EQ(TakeEvents(), Events{});
    *where = Thrown::kNothing;
    paths.PathRestored("p", "dead", kNow);
    // The loss is still held when the path's device was not found, and forgotten when the device told nothing.
    EXPECT_EQ(TakeEvents().size(), where == &inLookUp ? 1u : 0u);
  }
  inContents = GetParam();
  for (int i = 0; i < 20; ++i) paths.CountChange("q", ChangeCounter::Change::kState, kNow);
  EXPECT_EQ(TakeEvents(), Events{});
}

TEST_P(StorageFaults, OnlyTheLibrarysOwnIsAFailedReconfiguration) {
  inLookUp = GetParam();
  const char *const id = "ryn.swap.systemSwap.isPDL.removed";
  const char *const path = "/hyfs/volumes/ds1/swap";
  if (GetParam() == Thrown::kForeign) {
    EXPECT_THROW(SwapHandlers()[id](MakeObservation(MakeRecord(id, {path})).get()), int);
    return;
  }
  EXPECT_EQ(EventsOf(SwapHandlers(), id, {Str(path)}).size(), GetParam() == Thrown::kLibrary ? 1u : 0u);
  EXPECT_EQ(log_.CountOf("the library's own"), GetParam() == Thrown::kLibrary ? 1u : 0u);
}

TEST(StorageFaultsDeathTest, AStatusThatCannotBeEndsTheDaemonAtARestoreOnly) {
  const auto restore = [](const HandlerTable &handlers, const std::string &down, const std::string &up) {
    redundancy = 4;
    EXPECT_EQ(EventsOf(handlers, down, {Str("p"), Str("on"), Str("naa.1")}), Events{});
    redundancy = 2;
    EXPECT_EQ(EventsOf(handlers, up, {Str("p"), Str("dead")}).size(), 1u) << "it counts as reported";
    EXPECT_EQ(EventsOf(handlers, down, {Str("p"), Str("on"), Str("naa.1")}).size(), 1u);
    redundancy = 4;
    EventsOf(handlers, up, {Str("p"), Str("dead")});
  };
  const CapturedLog log;
  inLookUp = inContents = Thrown::kNothing;
  TakeEvents();
  EXPECT_DEATH(restore(ScsiHandlers(), "ryn.scsi.scsipath.pathstate.offver2", "ryn.scsi.scsipath.pathstate.standby"),
               "NOT_REACHED apps/rynd/ryndScsiCorrelator:1050 ");
  EXPECT_DEATH(
      restore(PsaStorHandlers(), "ryn.psastor.psastorpath.pathstate.off", "ryn.psastor.psastorpath.pathstate.standby"),
      "NOT_REACHED apps/rynd/ryndPsaStorCorrelator:1061 ");
}

INSTANTIATE_TEST_SUITE_P(Thrown, StorageFaults, testing::Values(Thrown::kLibrary, Thrown::kNoMemory, Thrown::kForeign));

}  // namespace
}  // namespace rynd
