// rynlinuxd: watches a Linux host's own interfaces and submits what goes wrong to rynd. One thread.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"
#include "loop/capabilities.h"
#include "loop/eventLoop.h"
#include "loop/options.h"
#include "platform/system.h"
#include "sink/textFile.h"
#include "smartd.h"
#include "sourceTable.h"
#include "statusFile.h"

namespace rynlinuxd {
namespace {

enum ExitStatus : int { kDone = 0, kFailed = 1, kUsage = 2 };

int Fail(int status, const std::string &text) {
  std::fprintf(stderr, "rynlinuxd: %s\n", text.c_str());
  return status;
}

/// Say of each source whether it can watch. kFailed when one can't.
int Check(EventLoop *loop, std::vector<std::unique_ptr<Source>> sources) {
  int status = kDone;
  for (const SourceState &state : loop->Start(std::move(sources))) {
    std::printf("%-14s %s\n", state.name, StateText(state).c_str());
    if (state.error != 0) status = kFailed;
  }
  return status;
}

int Watch(const Options &options, EventLoop *loop, Ledger *ledger, std::vector<std::unique_ptr<Source>> sources) {
  ledger->SetRun(Ledger::Run::kRunning);
  const std::vector<SourceState> states = loop->Start(std::move(sources));
  for (const SourceState &state : states) hosted::Log("%s: %s", state.name, StateText(state).c_str());
  if (!options.dryRun) WriteStatus(states);
  if (const int error = DropCapabilities(); error != 0) {
    hosted::Log("Cannot give up rights: %s", std::strerror(error));
    return kFailed;
  }
  hosted::Log("rynlinuxd watches.");
  const int error = loop->Run();
  ledger->SetRun(Ledger::Run::kEnded);
  loop->Finish();
  hosted::Log("rynlinuxd ends.");
  return error == 0 ? kDone : kFailed;
}

int Main(int argc, char **argv) {
  std::string error;
  const Options options = ParseOptions(argc, argv, &error);
  if (options.action == Options::Action::kWrong) return Fail(kUsage, error);
  if (options.action == Options::Action::kHelp) return std::fputs(Usage(), stdout) < 0 ? kFailed : kDone;
  if (options.action == Options::Action::kVersion) return std::puts("rynlinuxd " RYND_VERSION) < 0 ? kFailed : kDone;
  if (options.action == Options::Action::kSmartd)
    return TellSmartWarning(options.dryRun, &error) == 0 ? kDone : Fail(kFailed, error);
  auto sources = MakeSources(options, &error);
  if (sources.empty()) return Fail(kUsage, error);

  Hyk_SetThreadName("rynlinuxd");
  LowerCapabilities();
  const bool isCheck = options.action == Options::Action::kCheck;
  const bool writes = !isCheck && !options.dryRun;
  RunLock lock;
  if (writes) {
    const int refused = lock.Take();
    if (refused == EWOULDBLOCK) return Fail(kFailed, "another one runs below " + hosted::RootPath(kFolder));
    if (refused != 0) return Fail(kFailed, hosted::RootPath(kFolder) + ": " + std::strerror(refused));
  }
  Ledger ledger;
  ledger.Load(writes ? hosted::RootPath(kFolder) + "/ledger.json" : "", ReadLine("/proc/sys/kernel/random/boot_id"));
  EventLoop loop(options, &ledger);
  return isCheck ? Check(&loop, std::move(sources)) : Watch(options, &loop, &ledger, std::move(sources));
}

}  // namespace
}  // namespace rynlinuxd

int main(int argc, char **argv) {
  return rynlinuxd::Main(argc, argv);
}
