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

}  // namespace

const Declared &Declared::Shown(const std::string &as) const {
  option_->option_text(as);
  return *this;
}

const Declared &Declared::Repeated() const {
  option_->expected(1)->take_all();
  return *this;
}

const Declared &Declared::Checked(const std::function<std::string(const std::string &)> &check) const {
  option_->check(check);
  return *this;
}

const Declared &Declared::OneOf(const std::vector<std::string> &values) const {
  option_->check(CLI::IsMember(values));
  return *this;
}

const Declared &Declared::Between(int least, int most) const {
  option_->check(CLI::Range(least, most));
  return *this;
}

const Declared &Declared::Excludes(const Declared &other) const {
  option_->excludes(other.option_);
  return *this;
}

const Declared &Declared::Needs(const Declared &other) const {
  option_->needs(other.option_);
  return *this;
}

CommandLine::CommandLine(const std::string &description, const std::string &name)
    : app_(std::make_unique<CLI::App>(description, name)) {}

CommandLine::~CommandLine() = default;

Declared CommandLine::Flag(const std::string &name, bool *is, const std::string &help) {
  return Declared(app_->add_flag(name, *is, help));
}

template <typename Value>
Declared CommandLine::Take(const std::string &name, Value *value, const std::string &help) {
  return Declared(app_->add_option(name, *value, help));
}
template Declared CommandLine::Take(const std::string &, std::string *, const std::string &);
template Declared CommandLine::Take(const std::string &, std::vector<std::string> *, const std::string &);
template Declared CommandLine::Take(const std::string &, double *, const std::string &);
template Declared CommandLine::Take(const std::string &, unsigned *, const std::string &);
template Declared CommandLine::Take(const std::string &, uint64_t *, const std::string &);

void CommandLine::TakeOperands(const std::string &name, const std::string &help) {
  app_->allow_extras();
  app_->add_option(name)->expected(0, -1)->description(help);
}

void CommandLine::TakeRest(const std::string &name, const std::string &help) {
  app_->prefix_command();
  app_->add_option(name)->expected(0, -1)->description(help);
}

void CommandLine::Version(const std::string &text) {
  app_->set_version_flag("-V,--version", text);
}

void CommandLine::Footer(const std::string &text) {
  app_->footer(text);
}

std::optional<int> CommandLine::Parse(const Words &words, Console &console) {
  std::string root;
  app_->add_option("--root", root, "Work below DIR instead of $CORVANE_ROOT")->option_text("DIR");
  app_->formatter(std::make_shared<HelpFormatter>());
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
    app_->parse(std::move(reversed));
  } catch (const CLI::Success &success) {
    app_->exit(success, console.out, console.err);
    return console.Flush();
  } catch (const CLI::ParseError &error) {
    const auto unknown = std::ranges::find_if(words, [&](const std::string &word) {
      return word.starts_with("--") && word != "--" && app_->get_option_no_throw(NameOf(word)) == nullptr;
    });
    return UsageError(unknown == words.end() ? error.what() : UnknownOption(*unknown), console);
  }
  // The platform asks the environment, at its first use.
  if (Has("--root")) setenv("CORVANE_ROOT", std::filesystem::absolute(root).c_str(), 1);
  return std::nullopt;
}

bool CommandLine::Has(const std::string &name) const {
  return app_->count(name) != 0;
}

Words CommandLine::Rest() const {
  return app_->remaining();
}

std::optional<Words> CommandLine::Operands(std::string *unknown) const {
  Words operands;
  bool literal = false;
  for (const std::string &word : Rest()) {
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

std::string CommandLine::Help() const {
  return app_->help();
}

std::string CommandLine::UnknownOption(const std::string &word) const {
  std::vector<std::string> names;
  for (const CLI::Option *option : app_->get_options()) {
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
  }
  std::vector<text::Known> known;
  known.reserve(names.size());
  for (const std::string &name : names) known.push_back({name, name});
  const std::string name = NameOf(word);
  return "unknown option " + name + text::DidYouMean(text::Suggest(name, known, 2));
}

int CommandLine::UsageError(const std::string &text, Console &console) const {
  console.err << app_->get_name() << ": " << EscapeForTerminal(text) << "\nTry '" << app_->get_name() << " --help'."
              << std::endl;
  return kUsage;
}

void SayRoot(Console &console) {
  if (*Hyk_Root() != '\0') console.err << "rynctl: root " + EscapeForTerminal(Hyk_Root()) + "\n" << std::flush;
}

std::string CheckSeconds(const std::string &text) {
  double seconds = 0;
  if (CLI::detail::lexical_cast(text, seconds) && seconds >= 0.001 && seconds <= 1e6) return "";
  return "must be 0.001 to 1000000 seconds";
}

std::chrono::milliseconds SecondsOf(double seconds) {
  return std::chrono::milliseconds(std::lround(std::ceil(seconds * 1000)));
}

void AddWaitOption(CommandLine *line, double *seconds) {
  line->Take("--wait", seconds, "Let a daemon take SECONDS to start").Checked(CheckSeconds).Shown("SECONDS");
}

void AddPrintOptions(CommandLine *line, PrintOptions *options) {
  const Declared json = line->Flag("--json", &options->json, "Print JSON lines");
  line->Flag("--date", &options->date, "Print the date in front of the time").Excludes(json);
  line->Take("--color", &options->color, "When to color: auto (default), always, never")
      .OneOf({"auto", "always", "never"})
      .Shown("WHEN");
  line->Take("--count", &options->count, "End after N lines").Checked(CheckCount).Shown("N");
}

}  // namespace rynctl
