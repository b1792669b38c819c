// Which files that no package installed have been reported as run. One thread at a time.
#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace rynd {

/// The first nine files are reported by their paths, the tenth as many, later ones not at all: for the whole run.
class ExecReports {
 public:
  static constexpr size_t kMaxFiles = 10;

  /// What to report for `path` (null counts as "(null)"): itself, "Multiple files", or null for nothing.
  const char *Report(const char *path);

 private:
  std::set<std::string> reportedExecFiles_;
  bool execReportsCapped_ = false;
};

}  // namespace rynd
