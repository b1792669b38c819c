// The command "submit".
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>

#include "rynctl/commands/commands.h"
#include "rynctl/sending/argument.h"
#include "rynctl/sending/observationCheck.h"
#include "rynctl/sending/observationSender.h"
#include "rynctl/sending/submitFile.h"

namespace rynctl {
namespace {

constexpr char kExamples[] =
    "An ARG is text, or typed as i32:5, u64:0x10, u8:7, s:text or null (types i8 to\n"
    "i64, u8 to u64); a bare number is the first of i32, i64 and u64 that it fits.\n"
    "Behind -- nothing is an option. A line of a file, of which only id is needed:\n"
    "  {\"id\":\"ryn.a.b\",\"args\":[\"text\",5,null,{\"u64\":16}],\"message\":\"m\",\n"
    "   \"offset\":0.5,\"context\":3,\"user\":false}\n"
    "offset counts seconds from the start.\n"
    "Examples:\n"
    "  rynctl submit ryn.storage.apd.start naa.6001\n"
    "  rynctl submit --user ryn.user.ambcli.host.reboot.reason 'why: a disk' root\n"
    "  echo '{\"id\":\"ryn.storage.apd.exit\",\"args\":[\"naa.6001\"]}' |\n"
    "    rynctl submit --file -";

struct SubmitOptions {
  std::string id;
  Target target;
  std::string message;
  std::string file;
  std::string speed = "1";
  double timeout = 0;
  double wait = 0;
  bool force = false;
};

void Declare(CommandLine &line, SubmitOptions *options) {
  line.Footer(kExamples);
  const Declared id = line.Take("ID", &options->id, "Observation id, such as ryn.storage.apd.start");
  line.TakeOperands("ARG", "Arguments");  // as they stand, brackets and dashes included
  const Declared context = line.Take("--context", &options->target.context, "Kernel context (default 0)");
  context.Between(0, 28).Shown("N");
  line.Flag("--user", &options->target.user, "User context; ids must begin with ryn.user.").Excludes(context);
  const Declared message = line.Take("--message", &options->message, "The observation's message").Shown("TEXT");
  const Declared file = line.Take("--file", &options->file, "Send the JSON lines of PATH (- is standard input)");
  file.Shown("PATH").Excludes(message).Excludes(id);
  line.Take("--speed", &options->speed, "Divide the waits of --file by X; 0 or max: no waiting").Shown("X").Needs(file);
  line.Take("--timeout", &options->timeout, "Fail when the daemon takes nothing for so long")
      .Checked(CheckSeconds)
      .Shown("SECONDS");
  AddWaitOption(&line, &options->wait);
  line.Flag("--force", &options->force, "Send also what no correlator handles");
}

/// The number that --speed says, 0 for "max". Negative when it is none.
double SpeedOf(const std::string &text) {
  if (text == "max") return 0;
  char *end = nullptr;
  const double speed = std::strtod(text.c_str(), &end);
  return end != text.c_str() && *end == '\0' && std::isfinite(speed) ? speed : -1;
}

int SubmitFile(const SubmitOptions &options, double speed, ObservationSender *sender, Console &console) {
  if (options.file == "-") {
    return SubmitLines(std::cin, {"standard input", options.target, speed, options.force}, sender, console);
  }
  errno = 0;
  std::ifstream file(options.file, std::ios::binary);
  if (!file) return console.Fail("cannot open " + options.file + ": " + std::strerror(errno));
  return SubmitLines(file, {options.file, options.target, speed, options.force}, sender, console);
}

}  // namespace

int SubmitCommand(const Words &words, Console &console) {
  CommandLine line("Send an observation, or those of a file, to the daemon.", "rynctl submit");
  SubmitOptions options;
  Declare(line, &options);
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  std::string error;
  const std::optional<Words> operands = line.Operands(&error);
  if (!operands) return line.UsageError(line.UnknownOption(error) + " (-- in front makes it an argument)", console);
  const double speed = SpeedOf(options.speed);
  if (!(speed >= 0)) return line.UsageError("--speed must be a number from 0, or max: " + options.speed, console);
  if (options.file.empty() && !line.Has("ID")) return line.UsageError("ID is required, or --file", console);
  if (!options.file.empty() && !operands->empty()) return line.UsageError("--file excludes arguments", console);

  Submission submission{options.target, {}};
  submission.record.id = options.id;
  submission.record.message = options.message;
  for (const std::string &word : *operands) {
    std::optional<hosted::RawArgument> argument = ParseArgument(word, &error);
    if (!argument) return line.UsageError(error, console);
    submission.record.arguments.push_back(std::move(*argument));
  }

  SayRoot(console);
  Patience patience{console.err, std::nullopt};
  patience.start = SecondsOf(options.wait);
  if (options.timeout > 0) patience.limit = SecondsOf(options.timeout);
  ObservationSender sender(&patience);
  if (!options.file.empty()) return SubmitFile(options, speed, &sender, console);
  // An observation that can't be sent as it was written is a mistake on the command line.
  error = CheckSubmission(submission);
  if (error.empty() && !options.force) error = CheckAgainstCatalog(submission.record);
  if (!error.empty()) return line.UsageError(error, console);
  error = sender.Send(std::move(submission));
  return error.empty() ? kDone : console.Fail(error);
}

}  // namespace rynctl
