// The initial thread receives; everything that may wait has a thread of its own.
#include "mgmtd/agent.h"

#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include "base/serviceNotify.h"
#include "base/wallClock.h"
#include "eventRecord/eventReceiver.h"
#include "eventRecord/eventSocket.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "mgmtd/control/controlServer.h"
#include "mgmtd/log/log.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {
namespace {

constexpr int kFailed = 1;
constexpr int kRefused = 2;
constexpr rlim_t kWantedFiles = 8192;
constexpr size_t kMostConnections = 1024;
constexpr std::chrono::seconds kSilence(5);
// Together below the two seconds that a stop may take.
constexpr std::chrono::milliseconds kDrainLimit(700);
constexpr std::chrono::milliseconds kCommitLimit(700);

/// Signals that end the agent, blocked in every thread from now on and readable here.
base::UniqueFd StopSignals() {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error of the write
  return base::UniqueFd(signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK));
}

void RaiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kWantedFiles) return;
  limit.rlim_cur = std::min(limit.rlim_max, kWantedFiles);
  setrlimit(RLIMIT_NOFILE, &limit);
}

void NotifyService(const char *state) {
  if (const int error = base::NotifyService(state); error != 0) {
    Log(LogLevel::kWarning, std::string("Cannot tell the service manager: ") + std::strerror(error));
  }
}

/// Until a stop is wanted. 0, or why nothing can be received.
int Receive(eventrecord::EventReceiver *receiver, int stopFd) {
  while (true) {
    const int error = receiver->Serve(nullptr, stopFd);
    if (error != 0 && error != EINTR) return error;
    signalfd_siginfo info{};
    if (read(stopFd, &info, sizeof info) == sizeof info) return 0;
  }
}

/// What is said of the end.
std::string Summary(const StoreHealth &health) {
  std::string text = "Ended: " + std::to_string(health.received) + " records received, " +
                     std::to_string(health.stored) + " events stored";
  const std::pair<uint64_t, const char *> others[] = {
      {health.doubles, " doubles"}, {health.damaged, " damaged"}, {health.queueFull + health.memoryFull, " dropped"}};
  for (const auto &[count, what] : others) {
    if (count != 0) text += ", " + std::to_string(count) + what;
  }
  return text;
}

}  // namespace

int RunAgent(const Options &options) {
  const base::UniqueFd stop = StopSignals();
  RaiseFileLimit();
  umask(0027);

  eventrecord::EventSocket socket(hosted::RootPath(hosted::kEventSocket));
  if (const int error = socket.Open(); error != 0) {
    Log(LogLevel::kError, eventrecord::WhyNotServed(socket.Path(), error));
    return kFailed;
  }
  Feed feed;
  Writer writer({hosted::RootPath(kStoreFile), options.retentionDays, options.retentionBytes}, &feed);
  if (const std::string refusal = writer.Start(); !refusal.empty()) {
    Log(LogLevel::kError, refusal);
    return kRefused;
  }
  ControlServer control(&feed, &writer);
  if (const std::string error = control.Start(hosted::RootPath(kControlSocket)); !error.empty()) {
    Log(LogLevel::kError, error);
    return kFailed;
  }
  const std::string store = hosted::RootPath(kStoreFile);
  Sinks sinks(options.sinks, store, &feed, &writer);
  HttpServer http(options.http, {store, &feed, &writer, [&sinks] { return sinks.Statuses(); }});
  std::string refusal = sinks.Start();
  if (refusal.empty() && !options.http.address.empty()) refusal = http.Start();
  if (!refusal.empty()) {
    Log(LogLevel::kError, refusal);
    sinks.Stop();
    writer.Stop(kCommitLimit);
    feed.Stop();
    control.Stop();
    return kRefused;
  }
  if (!options.http.address.empty()) Log(LogLevel::kInfo, "Serving " + http.Url());
  eventrecord::EventReceiver receiver(
      socket.Fd(), kSilence,
      [&](std::span<const std::byte> record, const std::string &cut) {
        writer.Add({{record.begin(), record.end()}, cut, base::WallClockUs()});
        return true;
      },
      kMostConnections);
  Log(LogLevel::kInfo, "Receiving events on " + socket.Path());
  NotifyService("READY=1");
  const int error = Receive(&receiver, stop.Get());
  NotifyService("STOPPING=1");

  socket.Remove();
  receiver.Drain(kDrainLimit);
  sinks.Stop();  // in front of the writer, which commits how far they came
  writer.Stop(kCommitLimit);
  feed.Stop();
  http.Stop();
  control.Stop();
  Log(LogLevel::kInfo, Summary(writer.Health()));
  if (error != 0) Log(LogLevel::kError, std::string("Cannot wait for events: ") + std::strerror(error));
  return error == 0 ? 0 : kFailed;
}

}  // namespace mgmtd
