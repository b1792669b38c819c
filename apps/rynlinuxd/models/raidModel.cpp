#include "models/raidModel.h"

#include <dirent.h>

#include <cstring>

#include "sink/textFile.h"

namespace rynlinuxd {

void RaidModel::Look() {
  DIR *folder = opendir(blocks_.c_str());
  if (folder == nullptr) return;
  while (const dirent *entry = readdir(folder)) {
    if (std::strncmp(entry->d_name, "md", 2) != 0) continue;
    const std::string name = entry->d_name, array = blocks_ + '/' + name + "/md/";
    uint64_t missing = 0;
    // Kinds without redundancy do not have it; and an array that goes while it is read is no news.
    if (!ReadNumber(array + "degraded", &missing)) continue;
    const std::string uuid = ReadLine(array + "uuid");
    Report report = missing > 0 ? External(Severity::kError, "array " + name,
                                           "it is degraded: " + std::to_string(missing) + " of its devices are missing")
                                : External(Severity::kInfo, "array " + name, "none of its devices is missing any more");
    report.key = "array " + (uuid.empty() ? name : uuid);
    report.state = missing > 0 ? std::to_string(missing) : "";
    report.isOpen = missing > 0;
    reporter_->Tell(std::move(report));
  }
  closedir(folder);
}

}  // namespace rynlinuxd
