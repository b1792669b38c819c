#include "testing/processState.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace testing_support {

ProcessState ReadProcessState(pid_t pid) {
  ProcessState state;
  const std::filesystem::path folder = "/proc/" + std::to_string(pid);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    ++state.descriptors;
  }
  std::ifstream lines(folder / "status");
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key == "VmRSS:") words >> state.residentKib;
    if (key == "Threads:") words >> state.threads;
  }
  return state;
}

}  // namespace testing_support
