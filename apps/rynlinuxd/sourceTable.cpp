#include "sourceTable.h"

#include <algorithm>
#include <array>

#include "sources/sources.h"

namespace rynlinuxd {
namespace {

struct SourceRow {
  const char *name;
  std::unique_ptr<Source> (*make)();
};

constexpr auto kSources = std::to_array<SourceRow>({
    {"links", MakeLinks},
    {"bonds", MakeBonds},
    {"tx-timeouts", MakeTxTimeouts},
    {"addresses", MakeAddresses},
    {"crashes", MakeCrashes},
    {"filesystems", MakeFileSystems},
    {"fs-errors", MakeFsErrors},
    {"oom", MakeOutOfMemory},
    {"raid", MakeRaid},
    {"disks", MakeDisks},
    {"multipath", MakeMultipath},
    {"machine-checks", MakeMachineChecks},
    {"pages", MakePages},
    {"boot", MakeBoot},
    {"clock", MakeHostClock},
    {"stop", MakeHostStop},
});

}  // namespace

std::vector<std::unique_ptr<Source>> MakeSources(const Options &options, std::string *error) {
  const auto isWanted = [&](const std::string &name) {
    return options.sources.empty() ||
           std::find(options.sources.begin(), options.sources.end(), name) != options.sources.end();
  };
  for (const std::string &name : options.sources) {
    if (std::any_of(kSources.begin(), kSources.end(), [&](const SourceRow &row) { return name == row.name; })) continue;
    *error = "sources: there is none called '" + name + "'; there are";
    for (const SourceRow &row : kSources) *error += std::string(" ") + row.name;
    return {};
  }
  std::vector<std::unique_ptr<Source>> sources;
  for (const SourceRow &row : kSources) {
    if (isWanted(row.name)) sources.push_back(row.make());
  }
  return sources;
}

}  // namespace rynlinuxd
