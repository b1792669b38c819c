// The migration correlator: reports that virtual machines may no longer move to or from this host. It keeps no state.
#include "core/agents/runner.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/rows/defaultHandlers.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

constexpr EventMessage kListenSocketShutdown = {
    kProblem,
    "@&!*@*@(amb.problem.migrate.zmove.server.pending.cnx.listen.socket.shutdown)The Ambi host's zMove network server "
    "encountered an error while monitoring incoming network connections. Shutting down listener socket. zMoves may no "
    "longer be possible with this host until zMove is manually re-enabled. Failure status: %s"};
constexpr EventMessage kDefaultHeapCreateFailed = {
    kProblem,
    "@&!*@*@(amb.problem.migrate.zmove.default.heap.create.failed)Failed to create default migration heap. This may be "
    "a result of severe host memory pressure, or virtual address space exhaustion. Migration may still be possible, "
    "but will be unreliable in cases of extreme host memory pressure."};
constexpr EventMessage kMessages[] = {kListenSocketShutdown, kDefaultHeapCreateFailed};

void OnListenSocketShutdown(Observation *observation) {
  const char *status = nullptr;
  if (Ryn_GetArgs(observation, "%p", &status) != 0) return;
  if (status == nullptr) status = "unknown";
  PostMessage<kListenSocketShutdown>(status);
}

void OnDefaultHeapCreateFailed(Observation * /*observation*/) {
  PostMessage<kDefaultHeapCreateFailed>();
}

}  // namespace

std::span<const EventMessage> MigrateMessages() {
  return kMessages;
}

HandlerTable MigrateHandlers() {
  HandlerTable table;
  table["ryn.migrate.zmove.server.pending.cnx.listen.socket.shutdown"] = OnListenSocketShutdown;
  table["ryn.migrate.zmove.default.heap.create.failed"] = OnDefaultHeapCreateFailed;
  return table;
}

void RyndMigrateCorrelator() {
  RunCorrelator("migrate", "migrate", LogNoCorrelator, MigrateHandlers());
}

}  // namespace rynd
