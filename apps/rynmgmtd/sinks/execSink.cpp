// A program for each event. The sink's thread.
#include "mgmtd/sinks/execSink.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/uniqueFd.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kCallAgain = 75;  // EX_TEMPFAIL
constexpr milliseconds kStopLimit(500);

/// "" or what is wrong with the file or folder `path`.
std::string CheckOwner(const std::string &path, bool isFolder) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return path + ": " + std::strerror(errno);
  if (isFolder && !S_ISDIR(status.st_mode)) return path + " is no folder";
  if (!isFolder && !S_ISREG(status.st_mode)) return path + " is no plain file";
  if (status.st_uid != 0) return path + " is not owned by root";
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return path + " may be written by others than root: chmod go-w";
  if (!isFolder && (status.st_mode & S_IXUSR) == 0) return path + " is no program: chmod +x";
  return "";
}

/// An open file that holds `text`, to be read from its start; nothing when there is no memory.
base::UniqueFd FileWith(const std::string &text) {
  base::UniqueFd fd(memfd_create("rynd-event", MFD_CLOEXEC));
  if (!fd) return fd;
  for (size_t at = 0; at < text.size();) {
    const ssize_t count = write(fd.Get(), text.data() + at, text.size() - at);
    if (count <= 0) return base::UniqueFd();
    at += static_cast<size_t>(count);
  }
  if (lseek(fd.Get(), 0, SEEK_SET) != 0) return base::UniqueFd();
  return fd;
}

/// Start `program` in a process group of its own with all signals as they are by default. 0 or an errno value.
int Spawn(const std::string &program, int in, pid_t *child) {
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_init(&actions);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  posix_spawn_file_actions_addchdir_np(&actions, "/");
  std::array<char, 80> path{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
  std::array<char, 16> language{"LANG=C.UTF-8"};
  std::array<char *, 3> environment = {path.data(), language.data(), nullptr};
  std::string name = program;
  std::array<char *, 2> words = {name.data(), nullptr};
  const int error = posix_spawn(child, program.c_str(), &actions, &attributes, words.data(), environment.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return error;
}

std::string EndOf(int status) {
  if (WIFSIGNALED(status)) return std::string("was ended by the signal ") + strsignal(WTERMSIG(status));
  return "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string CheckProgram(const std::string &path) {
  if (!path.starts_with('/')) return path + " is no absolute path";
  const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), free);
  if (real == nullptr) return path + ": " + std::strerror(errno);
  // Both: a link in a folder of somebody's may point elsewhere tomorrow.
  for (const std::string &way : {path, std::string(real.get())}) {
    for (size_t slash = 0; slash != std::string::npos; slash = way.find('/', slash + 1)) {
      const std::string folder = slash == 0 ? "/" : way.substr(0, slash);
      struct stat status {};
      const bool isLink = lstat(folder.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && status.st_uid == 0;
      if (isLink) continue;  // what it leads to is looked at on the real way
      if (std::string wrong = CheckOwner(folder, true); !wrong.empty()) return wrong;
    }
  }
  return CheckOwner(real.get(), false);
}

ExecSink::ExecSink(std::string program, milliseconds limit, const std::string &storePath, Feed *feed, Writer *writer)
    : EventSink("exec", storePath, feed, writer), program_(std::move(program)), limit_(limit) {}

Outcome ExecSink::Pass(const StoredEvent &event, std::string *error) {
  *error = CheckProgram(program_);
  if (!error->empty()) return Outcome::kRetry;
  const base::UniqueFd in = FileWith(Dump(ToJson(event)) + "\n");
  pid_t child = 0;
  const int failure = in ? Spawn(program_, in.Get(), &child) : ENOMEM;
  if (failure != 0) {
    *error = "cannot run " + program_ + ": " + std::strerror(failure);
    return Outcome::kRetry;
  }
  const Outcome outcome = Await(child, error);
  if (outcome == Outcome::kRefused) *error = program_ + " " + *error + " for event " + std::to_string(event.id);
  if (outcome == Outcome::kRetry) *error = program_ + " " + *error;
  return outcome;
}

/// Wait for the child's end, and bring it about in time.
Outcome ExecSink::Await(pid_t child, std::string *error) {
  Clock::time_point deadline = Clock::now() + limit_;
  milliseconds look(1);
  for (bool stopping = false, killed = false;;) {
    int status = 0;
    const pid_t ended = waitpid(child, &status, WNOHANG);
    if (ended == child || (ended < 0 && errno != EINTR)) {
      if (!killed && WIFEXITED(status) && WEXITSTATUS(status) == 0) return Outcome::kPassed;
      if (stopping) return Outcome::kStopped;
      *error = killed ? "was killed after " + std::to_string(limit_.count() / 1000) + " s" : EndOf(status);
      return !killed && WIFEXITED(status) && WEXITSTATUS(status) == kCallAgain ? Outcome::kRetry : Outcome::kRefused;
    }
    if (!killed && Clock::now() >= deadline) {
      killed = true;
      kill(-child, SIGKILL);
    }
    // A stop leaves it a moment; what it does not finish is done again by the next run.
    if (!stopping && Stopped()) {
      stopping = true;
      deadline = std::min(deadline, Clock::now() + kStopLimit);
    }
    if (stopping) {
      usleep(5000);
    } else {
      Pause(look);
      look = std::min(look * 2, milliseconds(50));
    }
  }
}

}  // namespace mgmtd
