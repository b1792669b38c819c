#include "testing/replay/randomHost.h"

#include <array>

#include "catalog/catalog.h"

namespace testing_support {
namespace {

using hosted::ArgumentKind;
using hosted::RawArgument;

constexpr auto kStates = std::to_array<const char *>({"on", "standby", "dead", "off"});
constexpr auto kOptions = std::to_array<const char *>({"Net/LinkFlappingThreshold", "PageRetire/PageErrorCorrThreshold",
                                                       "PageRetire/PageErrorCorrPeriod",
                                                       "PageRetire/ApeiLoggingEnabled", "Cpu/CPUOfflineThreshold"});

}  // namespace

std::vector<HostChange> RandomHost::Begin() {
  std::vector<HostChange> all = {{"sysinfo/hardware/cpu/vendor", "GenuineIntel"},
                                 {"sysinfo/hardware/cpu/cpuInfo", "8 16"},
                                 {"sysinfo/sched/offline/enabled", "1"},
                                 {"sysinfo/system/systemUuid", "00112233-4455-6677-8899-aabbccddeeff"},
                                 {"sysinfo/config/intOpts/Cpu/CPUOfflineThreshold", "3"},
                                 {"sysinfo/config/intOpts/Net/LinkFlappingThreshold", "5"},
                                 {"sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "1"}};
  for (size_t i = 0; i < std::min<size_t>(names_, 100); ++i) {
    const std::string name = "n" + std::to_string(i);
    all.push_back({"storage/devices/" + name + "/redundancy", std::to_string(i % 4)});
    all.push_back({"storage/devices/" + name + "/partitions/1", "volume" + name});
    all.push_back({"storage/paths/" + name, "n" + std::to_string(i / 2)});
    all.push_back({"net/portgroups/" + name, "vSwitch" + std::to_string(i % 3)});
    all.push_back({"net/dvports/" + name + "/" + name, ""});
    all.push_back({"vms/" + std::to_string(i), "machine " + name});
    all.push_back({"sysinfo/vm/vmmGroupInfo/" + std::to_string(i), "machine " + name});
  }
  return all;
}

HostChange RandomHost::NextChange() {
  switch (Draw(4)) {
    case 0:
      return {"sysinfo/config/intOpts/" + std::string(kOptions[Draw(kOptions.size())]), std::to_string(Draw(60))};
    case 1:
      return {"storage/paths/" + Name(), Draw(5) == 0 ? std::nullopt : std::optional<std::string>(Name())};
    case 2:
      return {"net/portgroups/" + Name(), Draw(5) == 0 ? std::nullopt : std::optional<std::string>("vSwitch0")};
    default:
      return {"storage/devices/" + Name() + "/redundancy", std::to_string(Draw(4))};
  }
}

RawArgument RandomHost::Argument(const std::string &name, const std::string &type) {
  if (Draw(100) == 0) return {ArgumentKind::kNullString, 0, 0, ""};
  if (type == "s") {
    if (name.find("state") != std::string::npos) return {ArgumentKind::kString, 0, 0, kStates[Draw(kStates.size())]};
    if (name.find("reason") != std::string::npos) return {ArgumentKind::kString, 0, 0, "why: " + Name()};
    return {ArgumentKind::kString, 0, 0, Draw(200) == 0 ? std::string(Draw(3000), '"') : Name()};
  }
  uint64_t bits = Draw(4);
  if (name.find("address") != std::string::npos) bits = Draw(names_) << 12;
  if (name.find("status") != std::string::npos) bits = Draw(2) == 0 ? 0x10 : uint64_t{1} << 58 | 0x0100;
  if (Draw(50) == 0) bits = random_();
  const auto width = static_cast<uint8_t>(std::stoi(type.substr(1)) / 8);
  const ArgumentKind kind = type[0] == 'u' ? ArgumentKind::kUnsigned : ArgumentKind::kSigned;
  if (width < 8) bits &= (uint64_t{1} << (8 * width - 1)) - 1;  // fits either sign
  return {kind, width, bits, ""};
}

std::string RandomHost::NextRecord(uint64_t us) {
  const std::vector<catalog::Observation> &all = catalog::Observations();
  static const std::vector<size_t> stateful = [&] {
    std::vector<size_t> places;
    for (size_t i = 0; i < all.size(); ++i) {
      for (const char *front : {"ryn.net.", "ryn.scsi.scsipath.", "ryn.psastor.", "ryn.cpu.m", "ryn.velfs.",
                                "ryn.vfat.", "ryn.clock.", "ryn.pageretire.", "ryn.uw."}) {
        if (all[i].id.starts_with(front)) places.push_back(i);
      }
    }
    return places;
  }();
  const catalog::Observation &known = all[Draw(3) == 0 ? Draw(all.size()) : stateful[Draw(stateful.size())]];
  hosted::RawRecord record{Draw(1'000'000), us, known.id, "It happened", {}};
  if (Draw(100) == 0) record.id = "ryn.net.nobody.knows." + Name();
  for (const catalog::Argument &argument : known.arguments) {
    record.arguments.push_back(Argument(argument.name, argument.type));
  }
  if (Draw(100) == 0 && !record.arguments.empty()) record.arguments.pop_back();
  const std::vector<std::byte> bytes = hosted::EncodeRecord(record);
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

}  // namespace testing_support
