// What a record costs when the tables that it goes through hold many names.
#include <filesystem>
#include <fstream>

#include "bench/measures.h"
#include "bench/records.h"
#include "hosted/paths.h"

namespace bench {
namespace {

std::vector<std::byte> OfPath(uint64_t number) {
  return MakeRecord("ryn.psastor.psastorpath.pathstate.dead", "m",
                    {Text("vmhba32:C0:T" + std::to_string(number) + ":L7"), Text("none"), Text("naa.600508b1001c4d")});
}
std::vector<std::byte> OfPage(uint64_t number) {
  return MakeRecord("ryn.cpu.mem.ce.log", "m",
                    {hosted::RawArgument{hosted::ArgumentKind::kUnsigned, 8, number << 12, {}}});
}
std::vector<std::byte> OfPort(uint64_t number) {
  return MakeRecord("ryn.net.dvport.uplink.transition.down", "m",
                    {Text("hynic0"), Text(std::to_string(number)), Text("dvs0"), Number(1), Number(2)});
}

/// A table, what enters a name into it, and how often that must be done before further records change nothing else.
struct Table {
  std::vector<std::byte> (*make)(uint64_t number);
  int rounds;
};
constexpr Table kTables[] = {{OfPath, 11}, {OfPage, 1}, {OfPort, 1}};
static_assert(std::size(kTables) == kNamedTables);

/// A threshold that no page exceeds.
void SetPageThreshold() {
  const std::string folder = hosted::RootPath(hosted::kHostTree) + "/sysinfo/config/intOpts/PageRetire";
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/PageErrorCorrThreshold") << "255\n";
}

}  // namespace

double MeasureNames(size_t table, int names, int count, Setting *setting) {
  SetPageThreshold();
  std::vector<std::vector<std::byte>> records;
  for (int i = 0; i < names; ++i) records.push_back(kTables[table].make(static_cast<uint64_t>(i) + 1));
  const Program program({RYND_PROGRAM}, "rynd setup completed. Start polling loop.", &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  // What the agent says of one record of its table, and then of all that were sent.
  const auto send = [&](int total) {
    std::thread sender([&] {
      for (int i = 0; i < total; ++i) Submit(kernel, records[static_cast<size_t>(i) % records.size()]);
    });
    for (int i = 0; i < total; ++i) {
      if (!setting->log.Skip()) Fail("log records were lost");
    }
    sender.join();
  };
  send(names * kTables[table].rounds);
  const int64_t before = program.CpuTime();
  send(count);
  return static_cast<double>(program.CpuTime() - before) / 1e3 / count;
}

}  // namespace bench
