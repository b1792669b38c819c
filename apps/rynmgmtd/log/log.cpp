// Lines of at most a pipe's atomic size, each in one write.
#include "mgmtd/log/log.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "text/escape.h"

namespace mgmtd {
namespace {

constexpr size_t kMostBytes = 4000;  ///< of a line: a pipe that polls writable takes 4096 at once

std::atomic<uint64_t> dropped = 0;

bool WriteLine(const std::string &line) {
  pollfd writable{STDERR_FILENO, POLLOUT, 0};
  if (poll(&writable, 1, 0) != 1 || (writable.revents & POLLOUT) == 0) return false;
  return write(STDERR_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

std::string Line(LogLevel level, const std::string &text) {
  static const bool journal = getenv("JOURNAL_STREAM") != nullptr;
  std::string line = text::EscapeForTerminal(text);
  if (line.size() > kMostBytes) line.resize(kMostBytes);
  if (journal) return "<" + std::to_string(static_cast<int>(level)) + ">" + line + "\n";
  return "rynmgmtd: " + line + "\n";
}

}  // namespace

void Log(LogLevel level, const std::string &text) {
  if (const uint64_t count = dropped.exchange(0); count != 0) {
    const std::string said = std::to_string(count) + " lines of this log were dropped: nothing took them";
    if (!WriteLine(Line(LogLevel::kWarning, said))) dropped += count;
  }
  if (!WriteLine(Line(level, text))) ++dropped;
}

}  // namespace mgmtd
