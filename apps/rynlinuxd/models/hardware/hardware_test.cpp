// Machine checks and memory errors from trace pages: two that a Linux 6.1 has written, and changes of them.
#include <gtest/gtest.h>

#include <cstring>

#include "models/hardware/machineCheckModel.h"
#include "models/hardware/poisonedPages.h"
#include "models/recorder.h"
#include "models/testSupport.h"

namespace rynlinuxd {
namespace {

constexpr char kMachineCheckFormat[] =
    "name: mce_record\nID: 113\nformat:\n\tfield:unsigned short common_type;\toffset:0;\tsize:2;\tsigned:0;\n\n"
    "\tfield:u64 mcgcap;\toffset:8;\tsize:8;\tsigned:0;\n\tfield:u64 status;\toffset:24;\tsize:8;\tsigned:0;\n"
    "\tfield:u64 addr;\toffset:32;\tsize:8;\tsigned:0;\n\tfield:u32 cpu;\toffset:88;\tsize:4;\tsigned:0;\n"
    "\tfield:u8 bank;\toffset:105;\tsize:1;\tsigned:0;\n\tfield:u8 cpuvendor;\toffset:106;\tsize:1;\tsigned:0;\n\n"
    "print fmt: \"CPU: %d, field:u8 status;\", REC->cpu\n";
constexpr char kMemoryErrorFormat[] =
    "name: mc_event\nID: 1227\nformat:\n\tfield:unsigned int error_type;\toffset:8;\tsize:4;\tsigned:0;\n"
    "\tfield:__data_loc char[] msg;\toffset:12;\tsize:4;\tsigned:1;\n"
    "\tfield:u16 error_count;\toffset:20;\tsize:2;\tsigned:0;\n\tfield:long address;\toffset:32;\tsize:8;\tsigned:1;\n";

Bytes PageFromHex(std::string_view hex) {
  Bytes page = FromHex(hex);
  page.resize(4096);
  return page;
}

/// Bank 1, status 9c00004000010150, address 12345678; behind a head of the page.
const Bytes &Recorded() {
  static const Bytes bytes = PageFromHex(
      "cdc5f5dd0800000074000000000000001c00000071000000110000000a010001000000000000000000000000500101004000009c78563412"
      "0000000000000000000000000000000000000000000000000000000000000000000000000000000000000000ea09026b00000000000000"
      "00b10f06000000000000000000000102");
  return bytes;
}

/// The same with an extended time in front.
const Bytes &RecordedLater() {
  static const Bytes bytes = PageFromHex(
      "cdc5f5dd080000007c000000000000009e26289d070000001c00000071000000110000000a01000100000000000000000000000051010100"
      "c000009c785634220000000000000000000000000000000000000000000000000000000000000000000000000000000000000000eb09026b"
      "0000000000000000b10f06000000000000000000000202");
  return bytes;
}

/// A page of one record of machine checks, as `change` makes it.
template <typename T>
Bytes With(std::initializer_list<std::pair<size_t, T>> changes) {
  constexpr size_t kRecordAt = 20;
  Bytes page = Recorded();
  for (const auto &[offset, value] : changes) std::memcpy(page.data() + kRecordAt + offset, &value, sizeof value);
  return page;
}

std::string Told(std::initializer_list<Bytes> pages, bool isMemory = false) {
  Recorder recorder;
  MachineCheckModel model(&recorder);
  EXPECT_TRUE(isMemory ? model.ReadMemoryErrors(kMemoryErrorFormat) : model.ReadMachineChecks(kMachineCheckFormat));
  for (const Bytes &page : pages) model.Take(page);
  return recorder.Take();
}

constexpr uint64_t kStatus = 0x9c00004000010150;
constexpr size_t kStatusAt = 24, kVendorAt = 106;
constexpr uint64_t kIntelOne = 0;

TEST(MachineChecks, CorrectedErrorsAreCountedAndOthersAreNot) {
  EXPECT_EQ(Told({Recorded(), RecordedLater()}),
            "cpu.mce.log4 0 11240984944794730832 0 0 0 305419896 0 1\n"
            "cpu.mce.log4 0 11240985494550544721 0 0 0 573855352 0 1\n");
  // Only one maker's processors count there.
  const Bytes three = With<uint64_t>({{kStatusAt, kStatus + (uint64_t{2} << 38)}, {kVendorAt, kIntelOne}});
  EXPECT_NE(Told({three}).find(" 305419896 0 3\n"), std::string::npos) << Told({three});
  EXPECT_NE(Told({With<uint64_t>({{kStatusAt, kStatus & ~(uint64_t{3} << 38)}, {kVendorAt, kIntelOne}})})
                .find(" 305419896 0 1\n"),
            std::string::npos)
      << "there was at least one";
  EXPECT_NE(Told({With<uint64_t>({{kStatusAt, kStatus & ~(uint64_t{1} << 58)}})}).find(" 0 0 1\n"), std::string::npos)
      << "an address that is none";
  for (const int bit : {61, 44}) {
    const std::string told = Told({With<uint64_t>({{kStatusAt, kStatus | uint64_t{1} << bit}})});
    EXPECT_TRUE(told.starts_with("external.error CPU 0 man:rynlinuxd(8) an error was not corrected: bank 1, status "))
        << told;
  }
}

TEST(MachineChecks, PagesAreReadToTheirEndAndNoFurther) {
  // Cut anywhere, or full of whatever.
  for (size_t size = 0; size < 140; ++size) {
    Recorder recorder;
    MachineCheckModel model(&recorder);
    ASSERT_TRUE(model.ReadMachineChecks(kMachineCheckFormat));
    model.Take(std::span(Recorded()).first(size));
    EXPECT_EQ(recorder.reports.size(), size < 132 ? 0u : 1u) << size;
  }
  for (uint32_t kind = 0; kind < 256; ++kind) {
    Bytes page = Recorded();
    std::memcpy(page.data() + 16, &kind, sizeof kind);
    std::memset(page.data() + 8, 0xff, 3);
    Told({page});
  }
  EXPECT_EQ(Told({With<uint16_t>({{0, uint16_t{114}}})}), "") << "another kind of record";
  Bytes lossy = Recorded();
  lossy[11] = std::byte{0x80};
  EXPECT_NE(Told({lossy}).find("the kernel reported more than could be read"), std::string::npos);
  Recorder recorder;
  MachineCheckModel model(&recorder);
  EXPECT_FALSE(model.ReadMachineChecks(kMemoryErrorFormat));
  EXPECT_FALSE(model.ReadMachineChecks("name: mce_record\nID: 113\n"));
  model.Take(Recorded());
  EXPECT_EQ(recorder.Take(), "");
}

TEST(MemoryErrors, AreToldOneByOneWithTheirAddress) {
  const auto page = [](uint16_t type, uint16_t count, uint16_t address) {
    return With<uint16_t>({{0, 1227}, {8, type}, {10, 0}, {20, count}, {32, address}, {34, 0}, {36, 0}, {38, 0}});
  };
  EXPECT_EQ(Told({page(0, 2, 0x1000)}, true), "cpu.mem.ce.log 4096\ncpu.mem.ce.log 4096\n");
  EXPECT_EQ(Told({page(0, 2, 0)}, true),
            "external.warning memory man:rynlinuxd(8) 2 corrected errors at an address unknown\n");
  EXPECT_EQ(Told({page(1, 1, 0x1000)}, true),
            "external.error memory man:rynlinuxd(8) an error was not corrected, at address 0x1000\n");
  EXPECT_EQ(Told({page(4, 1, 0x1000)}, true), "");
  const std::string many = Told({page(0, 60'000, 0x1000)}, true);
  EXPECT_EQ(static_cast<uint64_t>(std::count(many.begin(), many.end(), '\n')), MachineCheckModel::kMostErrors);
}

TEST(PoisonedPages, EachNumberAboveTheThresholdIsToldOnceABoot) {
  Recorder recorder;
  PoisonedPages first("boot1", &recorder);
  for (const uint64_t pages : {0UL, 2UL, 3UL, 3UL, 4UL}) first.Take(pages, 2);
  EXPECT_EQ(recorder.Take(),
            "pageretire.selectedmpnthreshold.host.exceeded 3\npageretire.selectedmpnthreshold.host.exceeded 4\n");
  PoisonedPages second("boot2", &recorder);
  second.Take(4, 2);
  EXPECT_EQ(recorder.Take(), "pageretire.selectedmpnthreshold.host.exceeded 4\n");
  EXPECT_EQ(ParseCorruptedKib("MemTotal: 1 kB\nHardwareCorrupted:    12 kB\n"), 12u);
  EXPECT_FALSE(ParseCorruptedKib("MemTotal: 1 kB\nNotHardwareCorrupted: 12 kB\n"));
  EXPECT_FALSE(ParseCorruptedKib("HardwareCorrupted:"));
}

}  // namespace
}  // namespace rynlinuxd
