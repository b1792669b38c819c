// Command lines: the parser's errors and exit statuses made the tool's own.
#include "rynctl/commandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/system.h"
#include "rynctl/escape.h"
#include "text/suggest.h"

namespace rynctl {
namespace {

/// Leaves out which options exclude each other: they would stand in any order.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(kDescriptionColumn); }
  std::string make_option_opts(const CLI::Option *option) const override {
    if (!option->get_option_text().empty()) return " " + option->get_option_text();
    return option->get_expected_max() > 1 ? " ..." : "";
  }

 private:
  static constexpr size_t kDescriptionColumn = 24;
};

/// A sign would be taken for a huge number.
std::string CheckCount(const std::string &text) {
  const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
  return digits && text.find_first_not_of('0') != std::string::npos ? "" : "must be 1 or more";
}

std::string NameOf(const std::string &word) {
  return word.substr(0, word.find('='));
}

bool IsKnown(const CLI::App &app, const std::string &name) {
  return app.get_option_no_throw(name) != nullptr;
}

}  // namespace

std::string UnknownOption(const CLI::App &app, const std::string &word) {
  std::vector<std::string> names;
  for (const CLI::Option *option : app.get_options()) {
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
  }
  std::vector<text::Known> known;
  known.reserve(names.size());
  for (const std::string &name : names) known.push_back({name, name});
  const std::string name = NameOf(word);
  return "unknown option " + name + text::DidYouMean(text::Suggest(name, known, 2));
}

std::optional<int> ParseCommandLine(CLI::App &app, const Words &words, Console &console) {
  std::string root;
  app.add_option("--root", root, "Work below DIR instead of $CORVANE_ROOT")->option_text("DIR");
  app.formatter(std::make_shared<HelpFormatter>());
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
    const auto unknown = std::ranges::find_if(words, [&](const std::string &word) {
      return word.starts_with("--") && word != "--" && !IsKnown(app, NameOf(word));
    });
    return UsageError(app, unknown == words.end() ? error.what() : UnknownOption(app, *unknown), console);
  }
  // The platform asks the environment, at its first use.
  if (app.count("--root") != 0) setenv("CORVANE_ROOT", std::filesystem::absolute(root).c_str(), 1);
  return std::nullopt;
}

void SayRoot(Console &console) {
  if (*Hyk_Root() != '\0') console.err << "rynctl: root " + EscapeForTerminal(Hyk_Root()) + "\n" << std::flush;
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

std::string CheckSeconds(const std::string &text) {
  double seconds = 0;
  if (CLI::detail::lexical_cast(text, seconds) && seconds >= 0.001 && seconds <= 1e6) return "";
  return "must be 0.001 to 1000000 seconds";
}

std::chrono::milliseconds SecondsOf(double seconds) {
  return std::chrono::milliseconds(std::lround(std::ceil(seconds * 1000)));
}

void AddWaitOption(CLI::App &app, double *seconds) {
  app.add_option("--wait", *seconds, "Let a daemon take SECONDS to start")->check(CheckSeconds)->option_text("SECONDS");
}

void AddPrintOptions(CLI::App &app, PrintOptions *options) {
  CLI::Option *json = app.add_flag("--json", options->json, "Print JSON lines");
  app.add_flag("--date", options->date, "Print the date in front of the time")->excludes(json);
  app.add_option("--color", options->color, "When to color: auto (default), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->option_text("WHEN");
  app.add_option("--count", options->count, "End after N lines")->check(CheckCount)->option_text("N");
}

}  // namespace rynctl
