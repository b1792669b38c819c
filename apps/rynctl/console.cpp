// Errors, flushing and colors of a run. One thread.
#include "rynctl/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "rynctl/escape.h"

namespace rynctl {

int Console::Fail(std::string_view text) {
  err << "rynctl: " + EscapeForTerminal(text) + "\n" << std::flush;  // in one write
  return kFailed;
}

int Console::TryToFail(std::string_view text) {
  pollfd writable{STDERR_FILENO, POLLOUT, 0};
  if (&err == &std::cerr && poll(&writable, 1, 0) != 1) return kFailed;
  return Fail(text);
}

int Console::Flush() {
  if (out.good()) {
    errno = 0;
    out.flush();
  }
  if (out.good()) return kDone;
  if (errno == EPIPE) return kFailed;
  return Fail(std::string("cannot write to standard output: ") + std::strerror(errno));
}

bool UseColor(std::string_view mode, const Console &console) {
  if (mode != "auto") return mode == "always";
  const char *noColor = std::getenv("NO_COLOR");
  const char *terminal = std::getenv("TERM");
  return console.terminal && (noColor == nullptr || *noColor == '\0') &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

std::string Colored(std::string_view text, std::string_view code, bool enabled) {
  std::string result(text);
  if (enabled) result = "\x1b[" + std::string(code) + "m" + result + "\x1b[0m";
  return result;
}

}  // namespace rynctl
