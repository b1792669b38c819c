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
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/eventReceiver.h"
#include "rynctl/showing/outputQueue.h"
#include "rynctl/stopSignals.h"

namespace rynctl {
namespace {

constexpr mode_t kSocketMode = 0660;
constexpr mode_t kFolderMode = 0755;
constexpr std::chrono::milliseconds kSilence(5000);
constexpr std::chrono::milliseconds kDrainLimit(200);

/// Holds the listening socket and removes its file at the end, unless another agent has put its own there.
class EventSocket {
 public:
  explicit EventSocket(std::string path) : path_(std::move(path)) {}
  ~EventSocket() { Remove(); }
  EventSocket(const EventSocket &) = delete;
  EventSocket &operator=(const EventSocket &) = delete;

  /// Let nobody connect any more.
  void Remove() {
    if (!fd_ || removed_) return;
    removed_ = true;
    hosted::FolderLock lock;  // best effort; without it another agent could start between the look and the removal
    lock.Take(path_);
    struct stat now {};
    if (lstat(path_.c_str(), &now) == 0 && now.st_dev == own_.st_dev && now.st_ino == own_.st_ino) {
      unlink(path_.c_str());
    }
  }

  /// 0 or an errno value.
  int Open() {
    const std::string folder = std::filesystem::path(path_).parent_path();
    if (const int error = folder.empty() ? 0 : hosted::MakeFolders(folder, kFolderMode)) return error;
    if (const int error = hosted::ServeUnixSocket(path_, SOCK_STREAM, kSocketMode, &fd_)) return error;
    if (fcntl(fd_.Get(), F_SETFL, O_NONBLOCK) != 0 || lstat(path_.c_str(), &own_) != 0) return errno;
    return 0;
  }
  int Fd() const { return fd_.Get(); }
  const std::string &Path() const { return path_; }

 private:
  const std::string path_;
  bool removed_ = false;
  base::UniqueFd fd_;
  struct stat own_ {};
};

std::string OpenError(const std::string &path, int error) {
  switch (error) {
    case EADDRINUSE:
      return "a live management agent serves " + path + " (stop it first, or give another --socket)";
    case EACCES:
    case EPERM:
      return "no permission for " + path + " (run as root, or give a folder of your own with --root)";
    case EEXIST:
      return path + " is no socket (move it away)";
    case ENAMETOOLONG:
      return "socket path is too long: " + path + " (give a shorter --root)";
    default:
      return "cannot serve " + path + ": " + std::strerror(error);
  }
}

/// Where so many events are missing from what is printed.
std::string RefusedLine(const PrintOptions &options, uint64_t count) {
  if (options.json) return "{\"dropped\":" + std::to_string(count) + "}\n";
  return "              DROPPED  " + std::to_string(count) + " events: this output took nothing for too long\n";
}

/// Receive and print until a signal, the wanted number of events, or an output that takes no more. What was sent before
/// the end is taken.
int Receive(EventSocket *socket, const PrintOptions &options, const StopSignals &signals, Console &console) {
  const LineStyle style{UseColor(options.color, console), options.date};
  OutputQueue output(&console, [&](uint64_t count) { return RefusedLine(options, count); });
  uint64_t printed = 0;
  EventReceiver receiver(socket->Fd(), kSilence, [&](std::span<const std::byte> record, const std::string &cut) {
    DecodedEvent event = DecodeEvent(record.data(), record.size());
    if (!cut.empty()) event.problems.push_back(cut);
    const bool taken = output.Print((options.json ? EventJson(event) : EventLine(event, style)) + '\n');
    return !taken || ++printed != options.count;
  });
  output.Say("rynctl: listening on " + EscapeForTerminal(socket->Path()) +
             "; events that waited come within 60 seconds");
  int error = 0;
  while (!signals.Wanted() && !output.HasFailed() && (error == 0 || error == EINTR)) {
    error = receiver.Serve(signals.PollMask(), output.ChangedFd());
    output.Noticed();
  }
  socket->Remove();
  if (error == 0 || error == EINTR) receiver.Drain(kDrainLimit);
  const int status = output.Finish(signals);
  if (error == 0 || error == EINTR || error == ECANCELED) return status;
  return console.Fail(std::string("cannot wait: ") + std::strerror(error));
}

}  // namespace

int ListenCommand(const Words &words, Console &console) {
  CLI::App app("Be the management agent: receive events and print them, until a signal.", "rynctl listen");
  PrintOptions options;
  std::string path;
  app.footer(
      "Examples:\n"
      "  rynctl listen\n"
      "  rynctl listen --json --count 1 | jq .text");
  AddPrintOptions(app, &options);
  app.add_option("--socket", path, "Serve PATH, taken as it is")->option_text("PATH");
  if (const std::optional<int> status = ParseCommandLine(app, words, console)) return *status;

  if (app.count("--socket") == 0) {
    SayRoot(console);
    path = hosted::RootPath(hosted::kEventSocket);
  }
  const StopSignals signals;
  EventSocket socket(path);
  if (const int error = socket.Open()) return console.Fail(OpenError(path, error));
  return Receive(&socket, options, signals, console);
}

}  // namespace rynctl
