#include "correlators/rows/volumeOfPath.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

TEST(VolumeOfPath, IsTheFirstComponentOfAKnownVolume) {
  const std::string folder = testing_support::ProcessRoot() / "/var/lib/corvane/host/storage/filesystems";
  const CapturedLog log;
  testing_support::WriteFile(folder + "/5f1a-22", "datastore1\n");
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/5f1a-22/vm1/vm1.vswp"), "5f1a-22");
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/datastore1"), "datastore1");
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/datastore/1"), "(unknown)");
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes//5f1a-22"), "(unknown)");
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/"), "(unknown)");
  for (const char *outside :
       {"/tmp/vm1.vswp", "/hyfs/volumes", "hyfs/volumes/5f1a-22", "", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(VolumeOfPath(outside), "(invalid)");
  }
  testing_support::WriteFile(folder + "/11-aa", "two\nlines");  // can't be read, and spoils no other
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/5f1a-22/vm1"), "5f1a-22");
  std::filesystem::remove_all(folder);
  testing_support::WriteFile(folder, "no folder");  // the query throws
  EXPECT_EQ(VolumeOfPath("/hyfs/volumes/5f1a-22/vm1"), "(unknown)");
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace rynd
