// How every command reads its command line, so that help, usage errors and exit statuses are the same everywhere.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rynctl/console.h"

namespace CLI {
class App;
}

namespace rynctl {

/// The words behind the command's name.
using Words = std::vector<std::string>;

/// Parse `words` with `app`, --root among its options, which counts from then on. Nothing when the command shall go on,
/// or the exit status: kDone after --help or --version, which it prints, kUsage after a mistake, which it reports.
std::optional<int> ParseCommandLine(CLI::App &app, const Words &words, Console &console);

/// Name the root that the command works below on `console.err`, when it is not the default.
void SayRoot(Console &console);

/// Report a mistake on the command line of `app`. Returns kUsage.
int UsageError(const CLI::App &app, const std::string &text, Console &console);

/// What is said of `word`, an option that `app` does not know: with what may have been meant.
std::string UnknownOption(const CLI::App &app, const std::string &word);

/// The operands that `app` declared no name for, in order. An unknown option among them, unless it stands behind "--",
/// gives nothing and is left in `unknown`. Words such as "-5" are operands.
std::optional<Words> Operands(const CLI::App &app, std::string *unknown);

/// What the commands that print a stream of lines have in common.
struct PrintOptions {
  bool json = false;
  bool date = false;
  std::string color = "auto";
  uint64_t count = 0;  ///< lines until the end; 0: no end
};

/// Declare --wait: how many seconds a daemon that is starting may take.
void AddWaitOption(CLI::App &app, double *seconds);
/// A number of seconds that CheckSeconds passes, rounded up.
std::chrono::milliseconds SecondsOf(double seconds);
/// "", or what is wrong with `text` as a number of seconds, 0.001 to 1000000.
std::string CheckSeconds(const std::string &text);

/// Declare --json, --date, --color and --count.
void AddPrintOptions(CLI::App &app, PrintOptions *options);

}  // namespace rynctl
