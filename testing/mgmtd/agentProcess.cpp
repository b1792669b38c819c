#include "testing/mgmtd/agentProcess.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "testing/daemon.h"

namespace testing_support {

namespace {

std::vector<std::string> CommandLine(const TestRoot &root, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {RYNMGMTD_PROGRAM, "--root", root.Path()});
  return arguments;
}

}  // namespace

AgentProcess::AgentProcess(const TestRoot &root, const std::vector<std::string> &arguments)
    : Process(CommandLine(root, arguments), [log = root / "/mgmtd.log"] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) RedirectTo(fd, log);
      }) {
  base::UniqueFd fd;
  WaitUntil(
      [&] { return HasEnded() || hosted::ConnectUnixSocket(root / mgmtd::kControlSocket, SOCK_STREAM, &fd) == 0; });
}

int AgentProcess::End(int signal) {
  Signal(signal);
  return WaitForExit(600);
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
  return nlohmann::json::parse(ReadToEnd(fd.Get()), nullptr, false);
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
