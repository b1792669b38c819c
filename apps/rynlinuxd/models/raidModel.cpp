#include "models/raidModel.h"

#include <cerrno>
#include <vector>

#include "sink/textFile.h"

namespace rynlinuxd {

void RaidModel::Look() {
  std::vector<std::string> names;
  ListFolder(blocks_, &names);
  for (const std::string &name : names) {
    if (!name.starts_with("md")) continue;
    const std::string array = blocks_ + '/' + name + "/md/";
    constexpr size_t kMost = 4096;
    std::string uuid;
    uint64_t missing = 0;
    // Older kernels do not say it, and kinds without redundancy lack the other. Of an array that is stopped the other
    // goes first: with it, what was read of the name was whole.
    const int error = ReadTextFile(array + "uuid", kMost, &uuid);
    if ((error != 0 && error != ENOENT) || !ReadNumber(array + "degraded", &missing)) continue;
    uuid = uuid.substr(0, uuid.find('\n'));
    Report report = missing > 0 ? External(Severity::kError, "array " + name,
                                           "it is degraded: " + std::to_string(missing) + " of its devices are missing")
                                : External(Severity::kInfo, "array " + name, "none of its devices is missing any more");
    report.key = "array " + (uuid.empty() ? name : uuid);
    report.state = missing > 0 ? std::to_string(missing) : "";
    report.isOpen = missing > 0;
    reporter_->Tell(std::move(report));
  }
}

}  // namespace rynlinuxd
