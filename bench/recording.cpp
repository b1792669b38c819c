#include "bench/recording.h"

#include <filesystem>
#include <fstream>

#include "bench/records.h"
#include "bench/systemCalls.h"
#include "hosted/paths.h"

namespace bench {

void SetRecorder(bool isOn) {
  const std::string folder = hosted::RootPath(hosted::kHostTree) + "/sysinfo/config/intOpts/Flight";
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/Megabytes") << (isOn ? 64 : 0) << '\n';
}

double MeasureSystemCalls(int count, Setting *setting) {
  const Program program({RYND_PROGRAM}, "rynd setup completed. Start polling loop.", &setting->log);
  const base::UniqueFd kernel = ConnectKernel();
  const std::vector<std::byte> record =
      MakeRecord("ryn.storage.apd.timeout", "a message", {Text("naa.600508b1001c4d")});
  const long calls = CountSystemCalls(program.Pid(), [&] {
    for (int i = 0; i < count; ++i) {
      Submit(kernel, record);
      for (size_t left = setting->silentLogs.size(); left > 0; --left) {
        if (!setting->log.Skip()) Fail("no log record");
      }
    }
  });
  return static_cast<double>(calls) / count;
}

}  // namespace bench
