#include "platform/hostMgmtStorage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "hosted/host/hostTree.h"
#include "hosted/testSupport.h"
#include "platform/hostMgmt.h"
#include "platform/volumesDirectory.h"

namespace hosted {
namespace {

using HostMgmt::Lib::HostMgmtException;

class HostMgmtStorageTest : public HostTreeTest {
 protected:
  static void Put(const std::string &path, const std::string &content) { PutHost("storage/" + path, content); }
  /// The volume that the query names for `request`, or its error.
  static std::string VolumeOf(const char *request) {
    char padded[kVolumesQueryRequestSize] = {};
    snprintf(padded, sizeof padded, "%s", request);
    char answer[kVolumesQueryAnswerSize];
    const int error = VolumesDirectoryQuery(0, kVolumesQueryPartitionVolume, padded, answer);
    return error == 0 ? answer : std::to_string(error);
  }

  std::unique_ptr<HostMgmt::Storage::StorageInfo> storage_ = HostMgmt::HostFactory::GetHost()->GetStorageInfo();
};

TEST_F(HostMgmtStorageTest, DevicesHaveARedundancyAndAType) {
  EXPECT_THROW(storage_->GetLunByName("naa.1", true), HostMgmtException);
  std::filesystem::create_directories(HostTreePath("storage/devices/naa.1"));
  const auto lun = storage_->GetLunByName("naa.1", true);
  EXPECT_EQ(lun->GetRedundancyStatus(), 0);
  EXPECT_NE(dynamic_cast<HostMgmt::Storage::DiskLun *>(lun.get()), nullptr);
  Put("devices/naa.1/redundancy", "3\n");
  EXPECT_EQ(lun->GetRedundancyStatus(), 3);
  for (const char *bad : {"-1", "4", "4294967296"}) {
    Put("devices/naa.1/redundancy", bad);
    EXPECT_THROW(static_cast<void>(lun->GetRedundancyStatus()), HostMgmtException) << bad;
  }
  Put("devices/naa.1/disk", "0");
  EXPECT_EQ(dynamic_cast<HostMgmt::Storage::DiskLun *>(storage_->GetLunByName("naa.1", true).get()), nullptr);
  Put("devices/naa.1/disk", "2");
  EXPECT_THROW(storage_->GetLunByName("naa.1", true), HostMgmtException);
}

TEST_F(HostMgmtStorageTest, NamesStayInTheirFolder) {
  Put("redundancy", "3");
  Put("devices/%/redundancy", "1");
  Put("paths/%2E.", "naa.9\n");
  EXPECT_EQ(storage_->GetLunByName("", true)->GetRedundancyStatus(), 1);
  EXPECT_EQ(storage_->GetPathByName("..")->GetDeviceName(), "naa.9");
  const std::string endless(5000, 'x');
  for (const char *name : {static_cast<const char *>(nullptr), endless.c_str()}) {
    EXPECT_THROW(storage_->GetLunByName(name, true), HostMgmtException);
    EXPECT_THROW(storage_->GetPathByName(name), HostMgmtException);
  }
  EXPECT_THROW(storage_->GetLunByName("..", true), HostMgmtException);
}

TEST_F(HostMgmtStorageTest, PartitionsRiseAndNameTheirVolumes) {
  for (const char *number : {"10", "9", "0"}) Put(std::string("devices/t10:x/partitions/") + number, "");
  Put("devices/t10:x/partitions/2", "datastore1\n");
  const auto lun = storage_->GetLunByName("t10:x", true);
  const auto *disk = dynamic_cast<HostMgmt::Storage::DiskLun *>(lun.get());
  ASSERT_NE(disk, nullptr);
  std::vector<int32_t> numbers;
  for (const HostMgmt::Storage::Partition &partition : disk->GetPartitions()) numbers.push_back(partition.number);
  EXPECT_EQ(numbers, (std::vector<int32_t>{0, 2, 9, 10}));
  EXPECT_EQ(VolumeOf("t10:x:2"), "datastore1");
  EXPECT_EQ(VolumeOf("t10:x:9"), std::to_string(ENOENT));
  EXPECT_EQ(VolumeOf("t10:x:3"), std::to_string(ENOENT));
  EXPECT_EQ(VolumeOf("t10:x"), std::to_string(EINVAL));
  EXPECT_EQ(VolumeOf("2"), std::to_string(EINVAL));
  Put("devices/t10:x/partitions/2", std::string(kVolumesQueryAnswerSize, 'v'));
  EXPECT_EQ(VolumeOf("t10:x:2"), std::to_string(ENAMETOOLONG));
  Put("devices/t10:x/partitions/01", "");
  log_.AllMessages();
  EXPECT_EQ(disk->GetPartitions().size(), 4u);
  EXPECT_EQ(log_.NextMessage(),
            "Left out " + HostTreePath("storage/devices/t10:x/partitions/01") + ": it is no number of a partition");
  char request[kVolumesQueryRequestSize] = "t10:x:2", answer[kVolumesQueryAnswerSize];
  // The device without a name and the one whose name is empty have volumes of their own.
  Put("devices/%00/partitions/1", "of no name\n");
  Put("devices/%/partitions/1", "of an empty name\n");
  const char nameless[kVolumesQueryRequestSize] = {'\0', ':', '1'};
  EXPECT_EQ(VolumesDirectoryQuery(0, kVolumesQueryPartitionVolume, nameless, answer), 0);
  EXPECT_STREQ(answer, "of no name");
  EXPECT_EQ(VolumeOf(":1"), "of an empty name");
  EXPECT_EQ(VolumesDirectoryQuery(-1, kVolumesQueryPartitionVolume, request, answer), EBADF);
  EXPECT_EQ(VolumesDirectoryQuery(0, 3037, request, answer), ENOTTY);
}

}  // namespace
}  // namespace hosted
