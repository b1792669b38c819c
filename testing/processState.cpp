#include "testing/processState.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace testing_support {

Process::Process(std::vector<std::string> words, const std::function<void()> &inChild) {
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) {
    perror("fork");
    abort();
  }
  if (pid_ > 0) return;
  inChild();
  execvp(argv[0], argv.data());
  _exit(127);
}

Process::~Process() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Process::Signal(int number) const {
  if (pid_ > 0) kill(pid_, number);  // never the whole session of one that has ended
}

bool Process::HasEnded() const {
  siginfo_t ended{};
  return pid_ < 0 || waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         ended.si_pid == pid_;
}

int Process::WaitForExit(double seconds) {
  int status = 0;
  if (!WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, seconds)) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Output RunShell(const std::string &command) {
  Output output;
  FILE *const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  char part[4096];
  for (size_t got = 0; (got = fread(part, 1, sizeof part, pipe)) > 0;) output.text.append(part, got);
  output.status = WEXITSTATUS(pclose(pipe));
  return output;
}

void RedirectTo(int fd, const std::string &path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (file < 0 || dup2(file, fd) < 0) _exit(126);
  close(file);
}

long StatusValue(const std::string &task, const std::string &key) {
  for (const std::string &line : Lines(ReadFile(task + "/status"))) {
    if (line.starts_with(key + ":")) return std::stol(line.substr(key.size() + 1));
  }
  return 0;
}

ProcessState ReadProcessState(pid_t pid) {
  ProcessState state;
  const std::filesystem::path folder = "/proc/" + std::to_string(pid);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    ++state.descriptors;
  }
  state.residentKib = StatusValue(folder, "VmRSS");
  state.threads = StatusValue(folder, "Threads");
  return state;
}

}  // namespace testing_support
