#include "bench/systemCalls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench/peers.h"

namespace bench {
namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;

/// Let one stopped thread go on up to its next system call's beginning or end. True when it stands at one.
bool GoOn(pid_t thread, int status) {
  const int signal = WSTOPSIG(status);
  const bool isCall = signal == kSystemCallStop;
  const bool isOurs = isCall || status >> 16 == PTRACE_EVENT_STOP;
  ptrace(PTRACE_SYSCALL, thread, nullptr, isOurs ? 0L : long{signal});
  return isCall;
}

void Detach(pid_t thread) {
  int status = 0;
  ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  if (waitpid(thread, &status, __WALL) == thread) ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
}

}  // namespace

long CountSystemCalls(pid_t pid, const std::function<void()> &action) {
  std::vector<pid_t> threads;
  for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    threads.push_back(std::stoi(task.path().filename()));
  }
  for (const pid_t thread : threads) {
    if (ptrace(PTRACE_SEIZE, thread, nullptr, PTRACE_O_TRACESYSGOOD) != 0) Fail("trace the daemon");
    ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  }
  std::atomic<bool> isOver = false;
  std::thread acting([&] {
    action();
    isOver = true;
  });
  long stops = 0;
  while (!isOver) {
    int status = 0;
    const pid_t thread = waitpid(-1, &status, __WALL | WNOHANG);
    if (thread <= 0) {
      usleep(20);
    } else if (WIFSTOPPED(status) && GoOn(thread, status)) {
      ++stops;
    }
  }
  acting.join();
  for (const pid_t thread : threads) Detach(thread);
  return stops / 2;  // each call stops at its beginning and at its end
}

}  // namespace bench
