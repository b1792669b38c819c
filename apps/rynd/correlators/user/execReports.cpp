#include "correlators/user/execReports.h"

namespace rynd {

const char *ExecReports::Report(const char *path) {
  if (execReportsCapped_) return nullptr;
  if (path == nullptr) path = "(null)";  // as in every event
  if (!reportedExecFiles_.insert(path).second) return nullptr;
  if (reportedExecFiles_.size() < kMaxFiles) return path;
  execReportsCapped_ = true;
  return "Multiple files";
}

}  // namespace rynd
