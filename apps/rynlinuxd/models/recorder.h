// For tests of models: takes what is told and shows it as lines.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "sink/ledger.h"

namespace rynlinuxd {

/// Decides what is told as the sink does.
class Recorder : public Reporter {
 public:
  std::vector<Report> reports;
  Ledger ledger;

  void Tell(Report report) override {
    constexpr int64_t kNow = 1;
    if (!ledger.Admit(report, kNow)) return;
    ledger.RecordTold(report, kNow);
    reports.push_back(std::move(report));
  }
  /// The lines of all that was told since the last call: id without "ryn.", then the arguments.
  std::string Take() {
    std::string lines;
    for (const Report &report : reports) lines += Line(report) + '\n';
    reports.clear();
    return lines;
  }
  size_t CountOf(const std::string &start) const {
    return static_cast<size_t>(std::count_if(reports.begin(), reports.end(), [&](const Report &report) {
      return Line(report).starts_with(start) || report.id.find(start) != std::string::npos;
    }));
  }

 private:
  static std::string Line(const Report &report) {
    std::string line = report.id.substr(4);
    for (const hosted::RawArgument &argument : report.arguments) {
      const bool isText = argument.kind == hosted::ArgumentKind::kString;
      const bool isUnsigned = argument.kind == hosted::ArgumentKind::kUnsigned;
      line += ' ' + (isText       ? argument.text
                     : isUnsigned ? std::to_string(argument.bits)
                                  : std::to_string(static_cast<int64_t>(argument.bits)));
    }
    return line + (report.isLastWord ? " again" : "");
  }
};

}  // namespace rynlinuxd
