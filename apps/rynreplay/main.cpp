// rynreplay: what rynctl starts for the commands that run the daemon's correlators over a recording.
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>

#include "replay/reports/commands.h"

namespace {

struct ReplayProgramCommand {
  std::string_view name;
  int (*run)(const rynctl::Words &words, rynctl::Console &console);
};
constexpr ReplayProgramCommand kCommands[] = {
    {"replay", replay::ReplayCommand}, {"why", replay::WhyCommand}, {"why-not", replay::WhyNotCommand}};

}  // namespace

int main(int argc, char **argv) {
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);
  rynctl::Console console{std::cout, std::cerr, isatty(STDOUT_FILENO) == 1};
  const std::string_view name = argc > 1 ? argv[1] : "";
  for (const ReplayProgramCommand &command : kCommands) {
    if (name != command.name) continue;
    try {
      return command.run(rynctl::Words(argv + 2, argv + argc), console);
    } catch (const std::exception &failure) {
      console.Fail(failure.what());
      return 2;
    }
  }
  console.err << "rynreplay: it is started by 'rynctl replay', 'rynctl why' and 'rynctl why-not'\n";
  return 2;
}
