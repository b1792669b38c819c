// The table of commands and what they have in common.
#include "rynctl/rynctl.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "rynctl/commands/commands.h"
#include "text/suggest.h"

namespace rynctl {
namespace {

constexpr Command kCommands[] = {
    {"submit", "Send observations to the daemon", SubmitCommand},
    {"listen", "Be the management agent: receive events and print them", ListenCommand},
    {"trace", "Follow what goes into the daemon and comes out", TraceCommand},
    {"explain", "Explain an event or an observation: what it means, what to do", ExplainCommand},
    {"stats", "Show what the daemon has counted: agents, and where everything went", StatsCommand},
    {"check", "Is the daemon working? One line a subject, and what to do", CheckCommand},
    {"replay", "Run a flight recording of the daemon again, and compare", ReplayCommand},
    {"why", "Why did an event come? What was observed, counted and decided", WhyCommand},
    {"why-not", "Why did it not? Which observations came, and where they stopped", WhyNotCommand},
    {"catalog", "List the events that the daemon can post, or what it handles", CatalogCommand},
};

std::vector<Command> AllCommands() {
  std::vector<Command> all(std::begin(kCommands), std::end(kCommands));
  all.insert(all.end(), AgentCommands().begin(), AgentCommands().end());
  return all;
}

std::string CommandList() {
  std::string list = "Commands:\n";
  for (const Command &command : AllCommands()) {
    const std::string name(command.name);
    list += "  " + name + std::string(10 - name.size(), ' ') + command.summary + "\n";
  }
  return list + "\n'rynctl help COMMAND' tells more. Example:\n  rynctl submit ryn.storage.apd.start naa.6001";
}

int Dispatch(const Words &words, Console &console) {
  CommandLine line("Operator's tool of rynd: send observations, receive events, follow both.", "rynctl");
  line.TakeRest("COMMAND", "One of those below, and its words");  // which are the command's own
  line.Version("rynctl " RYND_VERSION);
  line.Footer(CommandList());
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  const Words rest = line.Rest();
  if (rest.empty()) {
    console.err << line.Help() << std::flush;
    return kUsage;
  }
  if (rest == Words{"help"}) {
    console.out << line.Help();
    return console.Flush();
  }
  // "help COMMAND" is "COMMAND --help".
  const bool isHelp = rest[0] == "help";
  const std::string &name = rest[isHelp ? 1 : 0];
  const std::vector<Command> commands = AllCommands();
  for (const Command &command : commands) {
    if (name == command.name)
      return command.run(isHelp ? Words{"--help"} : Words(rest.begin() + 1, rest.end()), console);
  }
  if (name.starts_with("-")) return line.UsageError(line.UnknownOption(name), console);
  std::vector<text::Known> known;
  known.reserve(commands.size());
  for (const Command &command : commands) known.push_back({command.name, command.name});
  return line.UsageError("unknown command " + name + text::DidYouMean(text::Suggest(name, known, 2)), console);
}

}  // namespace

int Main(int argc, char **argv, std::ostream &out, std::ostream &err) {
  std::signal(SIGPIPE, SIG_IGN);
  Console console{out, err, &out == &std::cout && isatty(STDOUT_FILENO) == 1};
  int status = kFailed;
  try {
    status = Dispatch(Words(argv + (argc > 0 ? 1 : 0), argv + argc), console);
  } catch (const std::exception &error) {
    status = console.Fail(error.what());
  }
  // The way out of a process flushes its streams, which would wait for what takes nothing: with the thread sanitizer
  // even _exit() does.
  if (console.abandoned && &out == &std::cout) syscall(SYS_exit_group, status);
  return status;
}

}  // namespace rynctl
