// Collects the figures of every round and prints them: a table for people, CSV for plots.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace bench {

/// The value below which `share` (0 to 1) of `values` lie. 0 of none.
double Percentile(std::vector<double> values, double share);

/// One figure, round by round. A ratio is the daemon's value by the bare one's of the same round.
struct Measure {
  std::string name;       ///< with its unit, such as "latency_median_us"
  double limit = 0;       ///< of the ratio; or of the daemon's own value, in `name`'s unit, when `absolute`; 0 for none
  bool atLeast = false;   ///< the limit is a lower one
  bool absolute = false;  ///< the limit is not one of the ratio
  std::vector<double> daemon{};
  std::vector<double> bare{};  ///< empty when only the daemon has it

  void Add(double daemonValue, double bareValue);
  /// The median of the rounds' ratios, which one disturbed round does not move.
  double Ratio() const;
  /// The lowest and the highest of them.
  std::pair<double, double> Spread() const;
  bool WithinLimit() const;
};

/// Print the medians over all rounds, the ratios with the lowest and the highest of a round, and the limits.
void PrintTable(const std::vector<const Measure *> &measures);
/// Write "measure,round,daemon,bare,ratio" to `path`. False, with errno, when that fails.
bool WriteCsv(const std::string &path, const std::vector<const Measure *> &measures);

/// Write a plot of the percentiles from 50 to 99.99 of the daemon's and of the bare program's `microseconds` to `path`.
/// False, with errno, when that fails.
bool WriteSvg(const std::string &path, const std::vector<double> &daemon, const std::vector<double> &bare);

}  // namespace bench
