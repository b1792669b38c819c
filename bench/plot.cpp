// Draws latencies by percentile: each step of the horizontal axis leaves a tenth of the samples above it.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "bench/report.h"

namespace bench {
namespace {

constexpr double kLeft = 60, kTop = 20, kWidth = 560, kHeight = 300;
constexpr double kFirst = 0.5, kLast = 0.9999;

/// From the left edge (0) to the right one (1).
double Place(double share) {
  return std::log10((1 - kFirst) / (1 - share)) / std::log10((1 - kFirst) / (1 - kLast));
}

void DrawLine(FILE *file, const std::vector<double> &values, double most, const char *color, const char *dashes) {
  fprintf(file, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"2\" stroke-dasharray=\"%s\" points=\"", color,
          dashes);
  constexpr int kSteps = 200;
  for (int i = 0; i <= kSteps; ++i) {
    const double share = 1 - (1 - kFirst) * std::pow((1 - kLast) / (1 - kFirst), static_cast<double>(i) / kSteps);
    fprintf(file, "%.1f,%.1f ", kLeft + kWidth * Place(share), kTop + kHeight * (1 - Percentile(values, share) / most));
  }
  fputs("\"/>\n", file);
}

void DrawText(FILE *file, double x, double y, const char *anchor, const char *text) {
  fprintf(file, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, text);
}

/// A round distance between marks that gives some five to ten of them.
double Step(double most) {
  const double decade = std::pow(10, std::floor(std::log10(most)));
  return most < 3 * decade ? decade / 4 : decade;
}

}  // namespace

bool WriteSvg(const std::string &path, const std::vector<double> &daemon, const std::vector<double> &bare) {
  FILE *file = fopen(path.c_str(), "we");
  if (file == nullptr) return false;
  const double most = std::max(Percentile(daemon, kLast), Percentile(bare, kLast)) * 1.05;
  fprintf(file,
          "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 660 390\" font-family=\"sans-serif\" "
          "font-size=\"12\">\n<rect width=\"660\" height=\"390\" fill=\"white\"/>\n");
  constexpr std::array<std::pair<double, const char *>, 5> kMarks = {
      {{0.5, "50"}, {0.9, "90"}, {0.99, "99"}, {0.999, "99.9"}, {0.9999, "99.99"}}};
  for (const auto &[share, text] : kMarks) {
    const double x = kLeft + kWidth * Place(share);
    fprintf(file, "<path d=\"M%.1f %.1fV%.1f\" stroke=\"#ddd\"/>\n", x, kTop, kTop + kHeight);
    DrawText(file, x, kTop + kHeight + 18, "middle", text);
  }
  for (int i = 0; i * Step(most) < most; ++i) {
    const double y = kTop + kHeight * (1 - i * Step(most) / most);
    fprintf(file, "<path d=\"M%.1f %.1fH%.1f\" stroke=\"#ddd\"/>\n", kLeft, y, kLeft + kWidth);
    DrawText(file, kLeft - 6, y + 4, "end", std::to_string(static_cast<int>(i * Step(most))).c_str());
  }
  DrawLine(file, bare, most, "#888", "6 4");
  DrawLine(file, daemon, most, "#1f5fbf", "none");
  DrawText(file, kLeft + kWidth / 2, 370, "middle", "percentile of the events");
  DrawText(file, kLeft + 12, kTop + 18, "start", "microseconds from submission to arrival");
  DrawText(file, kLeft + 12, kTop + 36, "start", "solid: rynd; dashed: the bare program");
  fputs("</svg>\n", file);
  return fclose(file) == 0;
}

}  // namespace bench
