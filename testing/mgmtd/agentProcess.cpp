#include "testing/mgmtd/agentProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "testing/daemon.h"

namespace testing_support {

AgentProcess::AgentProcess(const TestRoot &root, const std::vector<std::string> &arguments) : root_(root) {
  std::vector<std::string> words = {RYNMGMTD_PROGRAM, "--root", root.Path()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::string log = root / "/mgmtd.log";
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  WaitUntil([&] {
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (ended.si_pid == pid_) return true;
    base::UniqueFd fd;
    return hosted::ConnectUnixSocket(root_ / mgmtd::kControlSocket, SOCK_STREAM, &fd) == 0;
  });
}

AgentProcess::~AgentProcess() {
  if (pid_ > 0) End(SIGKILL);
}

int AgentProcess::End(int signal) {
  kill(pid_, signal);
  return Wait();
}

int AgentProcess::Wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) continue;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string EventSocketOf(const TestRoot &root) {
  return root / hosted::kEventSocket;
}

std::string StoreOf(const TestRoot &root) {
  return root / mgmtd::kStoreFile;
}

nlohmann::json Ask(const TestRoot &root, const nlohmann::json &question) {
  base::UniqueFd fd;
  if (hosted::ConnectUnixSocket(root / mgmtd::kControlSocket, SOCK_STREAM, &fd) != 0) return nullptr;
  const std::string line = question.dump() + "\n";
  if (send(fd.Get(), line.data(), line.size(), MSG_NOSIGNAL) < 0) return nullptr;
  std::string text;
  char part[16 * 1024];
  for (ssize_t count = 0; (count = recv(fd.Get(), part, sizeof part, 0)) > 0;)
    text.append(part, static_cast<size_t>(count));
  return nlohmann::json::parse(text, nullptr, false);
}

base::UniqueFd HangingSender(const TestRoot &root, const std::vector<std::byte> &bytes) {
  base::UniqueFd fd;
  if (hosted::ConnectUnixSocket(EventSocketOf(root), SOCK_STREAM, &fd) != 0) return {};
  if (send(fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) return {};
  return fd;
}

bool SendEvent(const TestRoot &root, const std::vector<std::byte> &bytes) {
  return static_cast<bool>(HangingSender(root, bytes));
}

}  // namespace testing_support
