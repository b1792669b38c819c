// How every command reads its command line, so that help, usage errors and exit statuses are the same everywhere.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rynctl/console.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace rynctl {

/// The words behind the command's name.
using Words = std::vector<std::string>;

/// One option or operand of a command line, for as long as that is there.
class Declared {
 public:
  explicit Declared(CLI::Option *option) : option_(option) {}
  /// What its help shows in place of a value.
  const Declared &Shown(const std::string &as) const;
  /// It may stand several times, each with one value.
  const Declared &Repeated() const;
  /// Values of which `check` says what is wrong, or "".
  const Declared &Checked(const std::function<std::string(const std::string &)> &check) const;
  const Declared &OneOf(const std::vector<std::string> &values) const;
  const Declared &Between(int least, int most) const;
  const Declared &Excludes(const Declared &other) const;
  const Declared &Needs(const Declared &other) const;

 private:
  CLI::Option *option_;
};

/// The command line of one command, --help and --root included: declared first, then parsed once. The parser's own
/// headers take longer to compile than a command: they are included in one source only.
class CommandLine {
 public:
  CommandLine(const std::string &description, const std::string &name);
  ~CommandLine();
  CommandLine(const CommandLine &) = delete;
  CommandLine &operator=(const CommandLine &) = delete;

  /// An option without a value.
  Declared Flag(const std::string &name, bool *is, const std::string &help);
  /// An option with a value, or without dashes an operand. `value` holds the default, and must stay until the parse.
  template <typename Value>
  Declared Take(const std::string &name, Value *value, const std::string &help);
  /// Operands that only the help text tells of: the command asks Operands() for them, which finds unknown options, too.
  void TakeOperands(const std::string &name, const std::string &help);
  /// The same, but from the first operand on everything is left in Rest(), options included.
  void TakeRest(const std::string &name, const std::string &help);
  void Version(const std::string &text);
  /// What stands below the options.
  void Footer(const std::string &text);

  /// Parse `words`; --root counts from then on. Nothing when the command shall go on, or the exit status: kDone after
  /// --help or --version, which it prints, kUsage after a mistake, which it reports.
  std::optional<int> Parse(const Words &words, Console &console);
  bool Has(const std::string &name) const;
  Words Rest() const;
  /// The rest but "--". An unknown option among them, unless it stands behind "--", gives nothing and is left in
  /// `unknown`. Words such as "-5" are operands.
  std::optional<Words> Operands(std::string *unknown) const;
  std::string Help() const;
  /// What is said of `word`, an option that is not known: with what may have been meant.
  std::string UnknownOption(const std::string &word) const;
  /// Report a mistake. Returns kUsage.
  int UsageError(const std::string &text, Console &console) const;

 private:
  std::unique_ptr<CLI::App> app_;
};

/// Name the root that the command works below on `console.err`, when it is not the default.
void SayRoot(Console &console);

/// What the commands that print a stream of lines have in common.
struct PrintOptions {
  bool json = false;
  bool date = false;
  std::string color = "auto";
  uint64_t count = 0;  ///< lines until the end; 0: no end
};

/// Declare --wait: how many seconds a daemon that is starting may take.
void AddWaitOption(CommandLine *line, double *seconds);
/// A number of seconds that CheckSeconds passes, rounded up.
std::chrono::milliseconds SecondsOf(double seconds);
/// "", or what is wrong with `text` as a number of seconds, 0.001 to 1000000.
std::string CheckSeconds(const std::string &text);

/// Declare --json, --date, --color and --count.
void AddPrintOptions(CommandLine *line, PrintOptions *options);

}  // namespace rynctl
