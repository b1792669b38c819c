// File systems, arrays and the kernel's log from recorded texts and bytes.
#include <gtest/gtest.h>
#include <sys/fanotify.h>

#include <cerrno>
#include <cstring>

#include "models/fsErrorModel.h"
#include "models/kernelLog.h"
#include "models/mountTable.h"
#include "models/raidModel.h"
#include "models/recorder.h"
#include "models/testSupport.h"
#include "models/usageModel.h"
#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

TEST(Mounts, EachDeviceOnceUnderItsRightName) {
  const char kList[] =
      "22 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
      "23 22 0:21 / /proc rw - proc proc rw\n"
      "24 22 254:0 /srv /bind rw - ext4 /dev/vda rw\n"
      "30 22 8:1 /part /only\\040a\\011part\\012of\\134it rw shared:7 master:1 - xfs /dev/sda1 rw\n"
      "31 22 8:2 / /mnt ro,noatime - ext4 /dev/sdb2 rw\n"
      "32 22 0:40 / /tmp rw - tmpfs tmp\\040fs rw,size=1024k\n"
      "33 22 8:3 / /mnt rw - vfat /dev/sdb3 rw\n"
      "34 22 0:41 / /net rw - nfs4 server:/a\\040b rw,vers=4.2\n"
      "35 22 0:42 / /home/x/fuse rw - fuse.sshfs x@y: rw\n"
      "36 22 7:1 / /snap ro - squashfs /dev/loop1 ro\n"
      "37 22 0:43 / /pool rw - btrfs /dev/sdc rw\n"
      "38 22 0:44 / /over rw - overlay overlay rw,upperdir=/ro\n"
      "39 22 8:5 / /broken rw - ext4 /dev/sde rw,errors=remount-ro,emergency_ro\n"
      "40 22 8:6 / /short";
  std::string seen;
  for (const Mount &mount : ParseMounts(kList)) {
    if (mount.kind == MountKind::kIgnored) continue;
    seen += mount.device + ' ' + mount.point + ' ' + mount.type + ' ' + mount.source + ' ' +
            std::to_string(static_cast<int>(mount.kind)) + (mount.isReadOnly ? " ro" : "") +
            (mount.isEmergency ? " emergency" : "") + '\n';
  }
  EXPECT_EQ(seen,
            "254:0 / ext4 /dev/vda 1\n8:1 /only a\tpart\nof\\it xfs /dev/sda1 1\n0:40 /tmp tmpfs tmp fs 2\n"
            "8:3 /mnt vfat /dev/sdb3 1\n0:41 /net nfs4 server:/a b 3\n0:42 /home/x/fuse fuse.sshfs x@y: 3\n"
            "0:43 /pool btrfs /dev/sdc 1\n8:5 /broken ext4 /dev/sde 1 emergency\n");
  std::string many;
  for (int i = 0; i < 10'000; ++i) {
    many += std::to_string(i) + " 1 0:" + std::to_string(i) + " / /m" + std::to_string(i) + " rw - tmpfs t rw\n";
  }
  EXPECT_EQ(ParseMounts(many).size(), 10'000u);
}

Mount At(const char *point, MountKind kind, const char *type = "ext4") {
  return {.point = point, .type = type, .source = "/dev/x", .kind = kind};
}

TEST(Usage, EachLevelIsToldOnceAndLeftOnlyWellBelowIt) {
  const struct {
    const char *what;
    MountKind kind;
    std::vector<uint64_t> used;  ///< percent, one look after the other
    const char *told;
  } kCases[] = {
      {"disk",
       MountKind::kDisk,
       {10, 94, 95, 94, 96, 93, 92},
       "external.warning file system /m man:rynlinuxd(8) it is nearly full: 95 % of it is in use\n"
       "external.info file system /m man:rynlinuxd(8) it has room again: 92 % of it is in use\n"},
      {"straight to the end",
       MountKind::kDisk,
       {99, 98, 99, 97, 10},
       "external.error file system /m man:rynlinuxd(8) it is nearly full: 99 % of it is in use\n"
       "external.warning file system /m man:rynlinuxd(8) it is nearly full: 97 % of it is in use\n"
       "external.info file system /m man:rynlinuxd(8) it has room again: 10 % of it is in use\n"},
      {"ramdisk",
       MountKind::kRamdisk,
       {89, 90, 89, 98, 97, 96, 88, 87},
       "velfs.ramdisk.usage.warning /m 10\nvelfs.ramdisk.usage.error /m 2\nvelfs.ramdisk.usage.warning /m 4\n"
       "external.info ramdisk /m man:rynlinuxd(8) it has room again: 13 % are left\n"},
  };
  for (const auto &[what, kind, used, expected] : kCases) {
    Recorder told;
    UsageModel model(&told);
    for (const uint64_t percent : used) model.Take(At("/m", kind), {100, 100 - percent, 100 - percent}, "");
    EXPECT_EQ(told.Take(), expected) << what;
  }
}

TEST(Usage, WhatHasNoBlocksIsFineAndWhatGoesHasEnded) {
  EXPECT_EQ(PercentUsed({0, 0, 0}), 0u);
  EXPECT_EQ(PercentUsed({UINT64_MAX, UINT64_MAX / 2, UINT64_MAX / 2}), 51u);
  EXPECT_EQ(PercentUsed({1000, 60, 10}), 99u) << "what root alone may use does not count as left";
  EXPECT_EQ(PercentLeft({0, 0, 0}), 100u);
  Recorder told;
  UsageModel model(&told);
  model.Take(At("/unlimited", MountKind::kRamdisk), {0, 0, 0}, "");
  model.Take(At("/efi", MountKind::kDisk, "vfat"), {100, 0, 0}, "AB-CD");
  model.TakeAnswer(At("/net", MountKind::kRemote), true);
  EXPECT_EQ(told.Take(),
            "external.error file system /efi man:rynlinuxd(8) it is nearly full: 100 % of it is in use\n"
            "vfat.filesystem.full /efi AB-CD\n");
  model.TakeAnswer(At("/net", MountKind::kRemote), false);
  EXPECT_EQ(told.Take(), "external.warning file system /net man:rynlinuxd(8) /dev/x does not answer\n");
  model.Keep({At("/net", MountKind::kRemote)});
  EXPECT_EQ(told.Take(), "external.info file system /efi man:rynlinuxd(8) it is not mounted any more\n") << "once";
  model.TakeAnswer(At("/net", MountKind::kRemote), true);
  EXPECT_EQ(told.Take(), "external.info file system /net man:rynlinuxd(8) it answers again\n");
  // A later run goes on where this one was: what was mounted then has gone, is sealed, or as it was.
  for (const char *point : {"/efi", "/sealed", "/same"}) model.Take(At(point, MountKind::kDisk, "vfat"), {9, 0, 0}, "");
  model.TakeAnswer(At("/net", MountKind::kRemote), false);
  told.Take();
  UsageModel next(&told);
  next.Restore(told.ledger);
  Mount sealed = At("/sealed", MountKind::kDisk, "vfat");
  sealed.isReadOnly = true;
  for (int i = 0; i < 2; ++i) next.Keep({sealed, At("/same", MountKind::kDisk, "vfat")});
  const std::string gone = " man:rynlinuxd(8) it is not mounted any more\n";
  EXPECT_EQ(told.Take(), "external.info file system /efi" + gone + "external.info file system /net" + gone +
                             "external.info file system /sealed man:rynlinuxd(8) it cannot be written any more\n");
  next.Take(At("/efi", MountKind::kDisk, "vfat"), {9, 0, 0}, "");
  EXPECT_EQ(told.CountOf("vfat.filesystem.full /efi"), 1u) << "mounted again, and as full";
}

std::vector<std::byte> ErrorEvent(int32_t error) {
  const uint32_t words[] = {// a file system's id and its error, as the kernel wrote them
                            0x00140001, 0x11, 0x22, 8, 0, 0x000c0005, static_cast<uint32_t>(error), 3};
  fanotify_event_metadata event{};
  event.event_len = sizeof event + sizeof words;
  event.metadata_len = sizeof event;
  event.mask = 0x8000;
  std::vector<std::byte> bytes(event.event_len);
  std::memcpy(bytes.data(), &event, sizeof event);
  std::memcpy(bytes.data() + sizeof event, words, sizeof words);
  return bytes;
}

TEST(FsErrors, DamageIsToldWithTheVolumeUntilItIsRepaired) {
  const auto bytes = ErrorEvent(EUCLEAN);
  const auto errors = ParseFsErrors(bytes);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors[0].fsid == std::make_pair(0x11, 0x22) && errors[0].error == EUCLEAN && errors[0].count == 3);
  for (size_t size = 0; size < bytes.size(); ++size) EXPECT_TRUE(ParseFsErrors({bytes.data(), size}).empty());
  ReadDamaged(bytes, ParseFsErrors);
  Recorder told;
  FsErrorModel model(&told);
  WatchedFs fs{"/data", "8:1", "vol one", {}};
  for (uint8_t i = 0; i < 16; ++i) fs.uuid[i] = static_cast<uint8_t>(0xe0 + i);
  EXPECT_EQ(UuidText(fs.uuid), "e0e1e2e3-e4e5-e6e7-e8e9-eaebecedeeef");
  model.Take(errors[0]);  // of one that is not watched
  model.Watch({{{0x11, 0x22}, fs}});
  model.TakeRecorded(fs, 0);
  model.TakeReadOnly(fs, false);
  EXPECT_EQ(told.Take(), "");
  for (int i = 0; i < 3; ++i) model.Take(errors[0]);
  EXPECT_EQ(told.Take(), "hyfs.metadata.corruptondisk 3772900067 3840272103 59625 234 235 236 237 238 239 vol one\n");
  model.Take(ParseFsErrors(ErrorEvent(EIO))[0]);
  model.TakeRecorded(fs, 7);
  model.TakeReadOnly(fs, true);
  EXPECT_EQ(
      told.Take(),
      "external.error file system /data man:rynlinuxd(8) it reports an error: Input/output error\n"
      "external.warning file system /data man:rynlinuxd(8) errors stand in its record: check it (fsck) while it is "
      "not mounted\nexternal.error file system /data man:rynlinuxd(8) it has turned read-only after an error\n");
  model.TakeRecorded(fs, 0);
  EXPECT_EQ(told.CountOf("external.info"), 3u);
}

TEST(KernelLog, OnlyTheKernelsOwnWordOfAKillCounts) {
  const auto kill = ParseOomKill(
      "3,1123,9134122362,-;Out of memory: Killed process 4711 (a (b) \\x0ac) total-vm:10kB, anon-rss:1kB, UID:0\n "
      "SUBSYSTEM=x\n");
  ASSERT_TRUE(kill);
  EXPECT_TRUE(kill->process == 4711 && kill->name == "a (b) \nc" && !kill->isOfGroup);
  const auto ofGroup = ParseOomKill("4,1,1,-;Memory cgroup out of memory: Killed process 5 (x) total-vm:1kB\n");
  EXPECT_TRUE(ofGroup && ofGroup->isOfGroup);
  for (const char *other : {"11,1,1,-;Out of memory: Killed process 5 (x) total-vm:1kB\n", "", "3", "3,1,1,-",
                            "3,1,1,-;usb: Out of memory: Killed process 5 (x) total-vm:1kB\n",
                            "3,1,1,-;Out of memory: Killed process x (x)", "3,1,1,-;Out of memory: Killed process 5 (x",
                            "3,1,1,-;oom_reaper: reaped process 5 (x)"}) {
    EXPECT_FALSE(ParseOomKill(other)) << other;
  }
}

TEST(Raid, AnArrayThatLacksDevicesIsToldUntilItHasThem) {
  const testing_support::TestRoot root;
  Recorder told;
  RaidModel model(root.Path(), &told);
  testing_support::WriteFile(root / "/sda/md/degraded", "1\n");
  testing_support::WriteFile(root / "/md1/md/level", "raid0\n");
  testing_support::WriteFile(root / "/md0/md/degraded", "0\n");
  testing_support::WriteFile(root / "/md0/md/uuid", "a-b\n");
  model.Look();
  EXPECT_EQ(told.Take(), "");
  for (const char *missing : {"1\n", "1\n", "2\n", "0\n", "x\n"}) {
    testing_support::WriteFile(root / "/md0/md/degraded", missing);
    model.Look();
  }
  EXPECT_EQ(told.Take(),
            "external.error array md0 man:rynlinuxd(8) it is degraded: 1 of its devices are missing\n"
            "external.error array md0 man:rynlinuxd(8) it is degraded: 2 of its devices are missing\n"
            "external.info array md0 man:rynlinuxd(8) none of its devices is missing any more\n");
  RaidModel("/no/such", &told).Look();
}

}  // namespace
}  // namespace rynlinuxd
