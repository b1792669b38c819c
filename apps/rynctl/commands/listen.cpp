// The command "listen".
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "hosted/contexts/folderLock.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/commands/commands.h"
#include "rynctl/eventPrinter.h"
#include "rynctl/eventReceiver.h"
#include "rynctl/stopSignals.h"

namespace rynctl {
namespace {

constexpr mode_t kSocketMode = 0660;
constexpr mode_t kFolderMode = 0755;
constexpr std::chrono::milliseconds kSilence(5000);

/// Holds the listening socket and removes its file at the end, unless another agent has put its own there.
class EventSocket {
 public:
  explicit EventSocket(std::string path) : path_(std::move(path)) {}
  ~EventSocket() {
    if (!fd_) return;
    hosted::FolderLock lock;  // best effort; without it another agent could start between the look and the removal
    lock.Take(path_);
    struct stat now {};
    if (lstat(path_.c_str(), &now) == 0 && now.st_dev == own_.st_dev && now.st_ino == own_.st_ino) {
      unlink(path_.c_str());
    }
  }
  EventSocket(const EventSocket &) = delete;
  EventSocket &operator=(const EventSocket &) = delete;

  /// 0 or an errno value.
  int Open() {
    const std::string folder = std::filesystem::path(path_).parent_path();
    if (const int error = folder.empty() ? 0 : hosted::MakeFolders(folder, kFolderMode)) return error;
    if (const int error = hosted::ServeUnixSocket(path_, SOCK_STREAM, kSocketMode, &fd_)) return error;
    if (fcntl(fd_.Get(), F_SETFL, O_NONBLOCK) != 0 || lstat(path_.c_str(), &own_) != 0) return errno;
    return 0;
  }
  int Fd() const { return fd_.Get(); }

 private:
  const std::string path_;
  base::UniqueFd fd_;
  struct stat own_ {};
};

std::string OpenError(const std::string &path, int error) {
  switch (error) {
    case EADDRINUSE:
      return "a live management agent serves " + path + " (stop it first, or give another --socket)";
    case EACCES:
    case EPERM:
      return "no permission for " + path + " (run as root, or set CORVANE_ROOT to a folder of your own)";
    case EEXIST:
      return path + " is no socket (move it away)";
    case ENAMETOOLONG:
      return "socket path is too long: " + path + " (set CORVANE_ROOT to a shorter one)";
    default:
      return "cannot serve " + path + ": " + std::strerror(error);
  }
}

void Print(const DecodedEvent &event, const PrintOptions &options, bool color, DateLine *date, Console &console) {
  if (options.json) {
    console.out << EventJson(event) << '\n';
  } else {
    console.out << date->For(event.microseconds) << EventLine(event, color) << '\n';
  }
}

/// Receive and print until a signal, the wanted number of events, or an output that takes no more.
int Receive(int listenFd, const PrintOptions &options, const StopSignals &signals, Console &console) {
  const bool color = UseColor(options.color, console);
  DateLine date;
  uint64_t printed = 0;
  int status = kDone;
  EventReceiver receiver(listenFd, kSilence, [&](std::span<const std::byte> record, const std::string &cut) {
    DecodedEvent event = DecodeEvent(record.data(), record.size());
    if (!cut.empty()) event.problems.push_back(cut);
    Print(event, options, color, &date, console);
    status = console.Flush();
    return status == kDone && ++printed != options.count;
  });
  while (!signals.Wanted()) {
    const int error = receiver.Serve(signals.PollMask());
    if (error == ECANCELED) return status;
    if (error != 0 && error != EINTR) return console.Fail(std::string("cannot wait: ") + std::strerror(error));
  }
  receiver.Drain();
  return status;
}

}  // namespace

int ListenCommand(const Words &words, Console &console) {
  CLI::App app("Be the management agent: receive events and print them, until a signal.", "rynctl listen");
  PrintOptions options;
  std::string path = hosted::RootPath(hosted::kEventSocket);
  app.footer("Examples:\n  rynctl listen\n  rynctl listen --json --count 1 | jq .text");
  AddPrintOptions(app, &options);
  app.add_option("--socket", path, "Serve PATH, taken as it is, instead of " + path)->option_text("PATH");
  if (const std::optional<int> status = ParseCommandLine(app, words, console)) return *status;

  const StopSignals signals;
  EventSocket socket(path);
  if (const int error = socket.Open()) return console.Fail(OpenError(path, error));
  console.err << "rynctl: listening on " << path << std::endl;
  return Receive(socket.Fd(), options, signals, console);
}

}  // namespace rynctl
