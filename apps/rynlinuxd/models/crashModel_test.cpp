// Crashes: events as bytes, and every way in which a program may leave a core or none.
#include "models/crashModel.h"

#include <gtest/gtest.h>
#include <linux/connector.h>
#include <linux/netlink.h>

#include <cstring>

#include "models/recorder.h"
#include "models/testSupport.h"

namespace rynlinuxd {
namespace {

/// Thread 12 of process 10 has ended, as the kernel says it.
constexpr char kExited[] =
    "4c0000000300000005000000000000000100000001000000050000000000000028000000000000800100000015cd5b07000000000c000000"
    "0a0000008b000000110000000900000009000000";

TEST(ProcessEvents, OnlyWholeOnesOfTheTwoKindsAreRead) {
  const Bytes bytes = FromHex(kExited);
  const auto exit = ParseProcessEvent(bytes);
  ASSERT_TRUE(exit && exit->isExit);
  EXPECT_TRUE(exit->thread == 12 && exit->process == 10 && exit->exitCode == 0x8b);
  const auto parseAs = [&](uint32_t what) {
    Bytes changed = bytes;
    std::memcpy(changed.data() + sizeof(nlmsghdr) + sizeof(cn_msg), &what, sizeof what);
    return ParseProcessEvent(changed);
  };
  const auto dump = parseAs(0x40000000);
  ASSERT_TRUE(dump && !dump->isExit);
  EXPECT_TRUE(dump->thread == 12 && dump->process == 10);
  for (const uint32_t other : {0u, 1u, 2u, 0x20000000u}) EXPECT_FALSE(parseAs(other));
  for (size_t size = 0; size < 60; ++size) EXPECT_FALSE(ParseProcessEvent(std::span(bytes).first(size)));
  Bytes foreign = bytes;
  foreign[sizeof(nlmsghdr)] = std::byte{9};
  EXPECT_FALSE(ParseProcessEvent(foreign));
}

struct CrashCase {
  const char *what;
  CrashFacts facts;
  uint32_t exitCode;
  const char *told;
};

CrashFacts Facts(std::optional<uint64_t> limit, const char *pattern, bool usesPid = false) {
  return {.name = "my prog",
          .coreLimit = limit,
          .corePattern = pattern,
          .usesPid = usesPid,
          .folder = "/srv/a b",
          .executable = "/opt/x/my prog",
          .host = "host1",
          .user = 1000,
          .atS = 1795000000};
}

TEST(Crashes, EachIsToldAsWhatItIs) {
  CrashFacts hidden = Facts(UINT64_MAX, "core");
  hidden.isDumpable = false;
  CrashFacts nameless = Facts(std::nullopt, "core");
  nameless.name = "";
  CrashFacts unread = Facts(1, "/c/%e.%u.%g.%p");
  unread.name = "";
  unread.user = unread.group = std::nullopt;
  CrashFacts rooted = Facts(1, "core");
  rooted.folder = "/";
  CrashFacts elsewhere = Facts(1, "core");
  elsewhere.folder = "";
  constexpr char kNoCore[] =
      "external.warning my prog man:rynlinuxd(8) my prog crashed by signal 11 (Segmentation fault) and left no core\n";
  const CrashCase cases[] = {
      {"in a folder that was not read", elsewhere, 0x8b, "uw.core.dumped my prog 1 core in its working directory\n"},
      {"relative", Facts(1, "core"), 0x8b, "uw.core.dumped my prog 1 /srv/a b/core\n"},
      {"in the root", rooted, 0x8b, "uw.core.dumped my prog 1 /core\n"},
      {"with pid", Facts(1, "core", true), 0x8b, "uw.core.dumped my prog 1 /srv/a b/core.77\n"},
      {"with pid twice", Facts(1, "c.%p", true), 0x8b, "uw.core.dumped my prog 1 /srv/a b/c.77\n"},
      {"all letters", Facts(1, "/c/%e.%u.%s.%i.%t.%h.%f.%E.%%%", false), 0x86,
       "uw.core.dumped my prog 1 /c/my prog.1000.6.78.1795000000.host1.my prog.!opt!x!my prog.%%\n"},
      {"letters unknown", Facts(1, "/c/%C-%d"), 0x86, "uw.core.dumped my prog 1 /c/%C-%d\n"},
      {"piped, whatever the limit", Facts(0, "|/usr/lib/coredump %P %u"), 0x8b,
       "uw.core.dumped my prog 1 /usr/lib/coredump, to which it was given\n"},
      {"failed", Facts(UINT64_MAX, "/full/core"), 0x0b,
       "uw.core.dumpFailed my prog 1 ended by signal 11 (Segmentation fault)\n"},
      {"not wanted", Facts(0, "core"), 0x06,
       "external.warning my prog man:rynlinuxd(8) my prog crashed by signal 6 (Aborted) and left no core: its limit "
       "for "
       "one is 0 bytes\n"},
      {"limit not read", Facts(std::nullopt, "core"), 0x0b, kNoCore},
      {"not to be looked into", hidden, 0x0b, kNoCore},
      {"cores switched off", Facts(1, ""), 0x0b, kNoCore},
      {"a file whose name was not read", unread, 0x8b, "uw.core.dumped process 77 1 /c/%e.%u.%g.77\n"},
      {"gone too soon", nameless, 0x8b, "uw.core.dumped process 77 1 /srv/a b/core\n"},
  };
  for (const CrashCase &one : cases) {
    Recorder told;
    CrashModel model(&told);
    model.Exit({true, 78, 77, one.exitCode});  // of somebody who never began
    model.Dumping({false, 78, 77, 0}, one.facts);
    model.Exit({true, 77, 77, 9});  // the thread that waited for the dump
    model.Exit({true, 78, 77, one.exitCode});
    model.Exit({true, 78, 77, one.exitCode});
    EXPECT_EQ(told.Take(), one.told) << one.what;
  }
}

TEST(Crashes, LimitsAreReadAndTheTableIsBounded) {
  EXPECT_EQ(ParseCoreLimit("Limit  Soft\nMax core file size        0                    unlimited            bytes\n"),
            0u);
  EXPECT_EQ(ParseCoreLimit("Max core file size        unlimited            unlimited            bytes\n"), UINT64_MAX);
  for (const char *text : {"", "Max core file size", "Max core file size   ?", "Max open files 5"})
    EXPECT_FALSE(ParseCoreLimit(text)) << text;
  Recorder told;
  CrashModel model(&told);
  for (int32_t i = 1; i <= 5000; ++i) model.Dumping({false, i, i, 0}, Facts(1, "core"));
  for (int32_t i = 1; i <= 5000; ++i) model.Exit({true, i, i, 0x8b});
  EXPECT_EQ(told.reports.size(), CrashModel::kMostDumping);
}

}  // namespace
}  // namespace rynlinuxd
