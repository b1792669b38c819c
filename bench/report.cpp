#include "bench/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench {
namespace {

std::vector<double> Ratios(const Measure &measure) {
  std::vector<double> ratios;
  for (size_t i = 0; i < measure.bare.size(); ++i) ratios.push_back(measure.daemon[i] / measure.bare[i]);
  return ratios;
}

}  // namespace

double Percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(values.size())));
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(std::clamp(rank, size_t{1}, values.size()) - 1);
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

void Measure::Add(double daemonValue, double bareValue) {
  daemon.push_back(daemonValue);
  bare.push_back(bareValue);
}

double Measure::Ratio() const {
  return Percentile(Ratios(*this), 0.5);
}

std::pair<double, double> Measure::Spread() const {
  return {Percentile(Ratios(*this), 0), Percentile(Ratios(*this), 1)};
}

bool Measure::WithinLimit() const {
  if (limit == 0) return true;
  const double value = absolute ? Percentile(daemon, 0.5) : Ratio();
  return atLeast ? value >= limit : value <= limit;
}

void PrintTable(const std::vector<const Measure *> &measures) {
  printf("%-26s %11s %11s %6s %14s %10s\n", "measure", "daemon", "bare", "ratio", "(rounds)", "limit");
  for (const Measure *measure : measures) {
    printf("%-26s %11.1f", measure->name.c_str(), Percentile(measure->daemon, 0.5));
    if (measure->bare.empty()) {
      printf(" %11s %6s %14s", "", "", "");
    } else {
      const auto [least, most] = measure->Spread();
      printf(" %11.1f %6.3f (%.2f to %.2f)", Percentile(measure->bare, 0.5), measure->Ratio(), least, most);
    }
    if (measure->limit != 0) {
      printf(" %2s %7g  %s", measure->atLeast ? ">=" : "<=", measure->limit, measure->WithinLimit() ? "ok" : "NOT ok");
    }
    putchar('\n');
  }
}

bool WriteCsv(const std::string &path, const std::vector<const Measure *> &measures) {
  FILE *file = fopen(path.c_str(), "we");
  if (file == nullptr) return false;
  fputs("measure,round,daemon,bare,ratio\n", file);
  for (const Measure *measure : measures) {
    const std::vector<double> ratios = Ratios(*measure);
    for (size_t i = 0; i < measure->daemon.size(); ++i) {
      fprintf(file, "%s,%zu,%.3f", measure->name.c_str(), i + 1, measure->daemon[i]);
      if (measure->bare.empty()) {
        fputs(",,\n", file);
      } else {
        fprintf(file, ",%.3f,%.4f\n", measure->bare[i], ratios[i]);
      }
    }
  }
  return fclose(file) == 0;
}

}  // namespace bench
