// Mistakes are named, with what would be right.
#include "mgmtd/options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "text/escape.h"

namespace mgmtd {
namespace {

constexpr int kUsage = 2;
constexpr int64_t kLeastBytes = int64_t{32} << 20;  ///< open problems, which always stay, take up to 20 of them

std::string CheckSize(const std::string &text) {
  return ParseSize(text) ? "" : text + " is no size of 32M or more, such as 512M or 1G";
}

}  // namespace

std::optional<int64_t> ParseSize(const std::string &text) {
  size_t end = 0;
  double number = 0;
  try {
    number = std::stod(text, &end);
  } catch (const std::exception &) {
    return std::nullopt;
  }
  std::string unit = text.substr(
      text.find_first_not_of(' ', end) == std::string::npos ? text.size() : text.find_first_not_of(' ', end));
  for (const char *tail : {"iB", "B"}) {
    if (unit.ends_with(tail)) unit.resize(unit.size() - std::string_view(tail).size());
  }
  static const std::string kUnits = "KMGT";
  if (unit.size() > 1 || (!unit.empty() && kUnits.find(unit) == std::string::npos)) return std::nullopt;
  const double bytes = number * (unit.empty() ? 1.0 : std::pow(1024.0, static_cast<double>(kUnits.find(unit)) + 1));
  if (!(bytes >= static_cast<double>(kLeastBytes)) || bytes > 1e15) return std::nullopt;
  return static_cast<int64_t>(bytes);
}

std::optional<int> ParseOptions(int argc, char **argv, Options *options) {
  CLI::App app("Keep the events of rynd, know what is wrong now, and pass both on.", "rynmgmtd");
  std::string root;
  std::string size = "1G";
  app.set_version_flag("-V,--version", "rynmgmtd " RYND_VERSION);
  app.add_option("--root", root, "Work below DIR instead of $CORVANE_ROOT")->option_text("DIR");
  app.add_option("--retention-days", options->retentionDays, "Keep events for N days (90)")
      ->check(CLI::Range(int64_t{1}, int64_t{36'500}))
      ->option_text("N");
  app.add_option("--retention-size", size, "Keep no more than SIZE, such as 512M (1G)")
      ->check(CheckSize)
      ->option_text("SIZE");
  auto *http = app.add_option("--http", options->http.address, "Serve the web page on ADDRESS:PORT or a socket's PATH");
  http->option_text("WHERE");
  app.add_option("--http-token-file", options->http.tokenFile, "Show it only to who has the token in FILE")
      ->option_text("FILE")
      ->needs(http);
  app.add_flag("--journal", options->sinks.journal, "Write events to the journal");
  app.add_option("--alertmanager", options->sinks.alertmanagers, "Send problems to an Alertmanager; several times")
      ->option_text("URL")
      ->allow_extra_args(false);
  app.add_option("--exec", options->sinks.exec, "Run PROGRAM for each event, its JSON on standard input")
      ->option_text("PROGRAM");
  app.footer("'rynctl problems' and 'rynctl history' show what it knows; see rynmgmtd(8).");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &success) {
    return app.exit(success);
  } catch (const CLI::ParseError &error) {
    std::cerr << "rynmgmtd: " << text::EscapeForTerminal(error.what()) << "\nTry 'rynmgmtd --help'.\n";
    return kUsage;
  }
  options->retentionBytes = *ParseSize(size);
  if (app.count("--root") != 0) setenv("CORVANE_ROOT", std::filesystem::absolute(root).c_str(), 1);
  return std::nullopt;
}

}  // namespace mgmtd
