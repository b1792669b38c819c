// Command lines: the parser's errors and exit statuses made the tool's own.
#include "rynctl/commandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "rynctl/escape.h"

namespace rynctl {
namespace {

/// A sign would be taken for a huge number.
std::string CheckCount(const std::string &text) {
  const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
  return digits && text.find_first_not_of('0') != std::string::npos ? "" : "must be 1 or more";
}

}  // namespace

std::optional<int> ParseCommandLine(CLI::App &app, const Words &words, Console &console) {
  Words reversed;  // the order in which the parser takes them
  bool literal = false;
  for (const std::string &word : words) {
    literal = literal || word == "--";
    if (!literal && word.starts_with("--") && word.find('=') == word.size() - 1) {
      // "--message=" gives an empty value; left whole, the parser would take the next word for it.
      reversed.push_back(word.substr(0, word.size() - 1));
      reversed.emplace_back();
    } else {
      reversed.push_back(word);
    }
  }
  std::reverse(reversed.begin(), reversed.end());
  try {
    app.parse(std::move(reversed));
  } catch (const CLI::Success &success) {
    app.exit(success, console.out, console.err);
    return console.Flush();
  } catch (const CLI::ParseError &error) {
    return UsageError(app, error.what(), console);
  }
  return std::nullopt;
}

int UsageError(const CLI::App &app, const std::string &text, Console &console) {
  console.err << app.get_name() << ": " << EscapeForTerminal(text) << "\nTry '" << app.get_name() << " --help'."
              << std::endl;
  return kUsage;
}

std::optional<Words> Operands(const CLI::App &app, std::string *unknown) {
  Words operands;
  bool literal = false;
  for (const std::string &word : app.remaining()) {
    const bool dashed = word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
    if (!literal && word == "--") {
      literal = true;
    } else if (!literal && dashed) {
      *unknown = word;
      return std::nullopt;
    } else {
      operands.push_back(word);
    }
  }
  return operands;
}

void AddPrintOptions(CLI::App &app, PrintOptions *options) {
  app.add_flag("--json", options->json, "Print JSON lines");
  app.add_option("--color", options->color, "When to color: auto (default), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->option_text("WHEN");
  app.add_option("--count", options->count, "End after N lines")->check(CheckCount)->option_text("N");
}

}  // namespace rynctl
