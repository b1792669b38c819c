#include "replay/reports/runs.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <memory>

#include "replay/recording/stepReader.h"

namespace replay {
namespace {

constexpr int kNoSuchRun = 100;  ///< of a child alone

int PlayHere(const OpenSource &open, size_t run, rynctl::Console *console, const Play &play) {
  std::string error;
  const std::unique_ptr<StepSource> steps = open(run, &error);
  if (steps != nullptr) return play(steps.get(), run);
  if (error.empty()) return kNoSuchRun;
  console->Fail(error);
  return kUnusable;
}

}  // namespace

OpenSource RunsOf(const std::string &path) {
  return [path](size_t run, std::string *error) -> std::unique_ptr<StepSource> {
    return StepReader::Open(path, run, error);
  };
}

int PlayRun(const OpenSource &open, size_t run, rynctl::Console *console, const Play &play) {
  console->out.flush();
  const pid_t child = fork();
  if (child < 0) {
    console->Fail(std::string("cannot fork: ") + std::strerror(errno));
    return kUnusable;
  }
  if (child == 0) {
    int status = kUnusable;
    try {
      status = PlayHere(open, run, console, play);
    } catch (const std::exception &failure) {
      console->Fail(failure.what());
    }
    if (console->Flush() != rynctl::kDone) status = kUnusable;
    console->err.flush();
    _exit(status);
  }
  int ended = 0;
  while (waitpid(child, &ended, 0) < 0 && errno == EINTR) continue;
  if (WIFEXITED(ended)) return WEXITSTATUS(ended);
  console->Fail("the replay of run " + std::to_string(run + 1) + " was ended by signal " +
                std::to_string(WTERMSIG(ended)));
  return kUnusable;
}

int PlayRuns(const std::string &path, rynctl::Console *console, const Play &play) {
  int worst = kEqual;
  for (size_t run = 0;; ++run) {
    const int status = PlayRun(RunsOf(path), run, console, play);
    if (status != kNoSuchRun) {
      worst = std::max(worst, status);
      if (status == kUnusable) return worst;
      continue;
    }
    if (run > 0) return worst;
    console->Fail(path + ": it holds no entry");
    return kUnusable;
  }
}

}  // namespace replay
