// The command "listen".
#include <cerrno>
#include <cstring>

#include "eventRecord/eventReceiver.h"
#include "eventRecord/eventSocket.h"
#include "hosted/paths.h"
#include "rynctl/commands/commands.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/outputQueue.h"
#include "rynctl/stopSignals.h"

namespace rynctl {
namespace {

constexpr std::chrono::milliseconds kSilence(5000);
constexpr std::chrono::milliseconds kDrainLimit(200);

/// Where so many events are missing from what is printed.
std::string RefusedLine(const PrintOptions &options, uint64_t count) {
  if (options.json) return "{\"dropped\":" + std::to_string(count) + "}\n";
  return "              DROPPED  " + std::to_string(count) + " events: this output took nothing for too long\n";
}

/// Receive and print until a signal, the wanted number of events, or an output that takes no more. What was sent before
/// the end is taken.
int Receive(eventrecord::EventSocket *socket, const PrintOptions &options, const StopSignals &signals,
            Console &console) {
  const LineStyle style{UseColor(options.color, console), options.date};
  OutputQueue output(&console, [&](uint64_t count) { return RefusedLine(options, count); });
  uint64_t printed = 0;
  eventrecord::EventReceiver receiver(
      socket->Fd(), kSilence, [&](std::span<const std::byte> record, const std::string &cut) {
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
  CommandLine line("Be the management agent: receive events and print them, until a signal.", "rynctl listen");
  PrintOptions options;
  std::string path;
  line.Footer(
      "Examples:\n"
      "  rynctl listen\n"
      "  rynctl listen --json --count 1 | jq .text");
  AddPrintOptions(&line, &options);
  line.Take("--socket", &path, "Serve PATH, taken as it is").Shown("PATH");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  if (!line.Has("--socket")) {
    SayRoot(console);
    path = hosted::RootPath(hosted::kEventSocket);
  }
  const StopSignals signals;
  eventrecord::EventSocket socket(path);
  if (const int error = socket.Open())
    return console.Fail(eventrecord::WhyNotServed(path, error, ", or give another --socket"));
  return Receive(&socket, options, signals, console);
}

}  // namespace rynctl
