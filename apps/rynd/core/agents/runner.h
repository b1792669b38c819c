// The loop of every correlator: wait for an observation, look its id up, call its handler. Agent's thread.
#pragma once

#include <utility>
#include <vector>

#include "core/agents/handlerTable.h"

namespace rynd {

/// Serve the observations under `prefixes` (without "ryn.") and those of `exactIds` with `table`, those without a row
/// with `defaultHandler`. The thread is called `name` + "Correlator". Returns only when the agent cannot go on.
void RunCorrelatorFiltered(const char *name, const std::vector<const char *> &prefixes,
                           const std::vector<const char *> &exactIds, Handler defaultHandler, HandlerTable table);
/// The same for several prefixes alone.
inline void RunCorrelatorPrefixes(const char *name, const std::vector<const char *> &prefixes, Handler defaultHandler,
                                  HandlerTable table) {
  RunCorrelatorFiltered(name, prefixes, {}, defaultHandler, std::move(table));
}
/// The same for one prefix alone.
inline void RunCorrelator(const char *name, const char *prefix, Handler defaultHandler, HandlerTable table) {
  RunCorrelatorFiltered(name, {prefix}, {}, defaultHandler, std::move(table));
}
/// The same for one prefix, calling `timerCallback` whenever one of the `extraFdCount` descriptors of `extraFds` is
/// readable, after up to 10 bytes have been read from the first of them. The descriptors are borrowed.
void RunCorrelatorWithTimer(const char *name, const char *prefix, Handler defaultHandler, HandlerTable table,
                            void (*timerCallback)(), const int *extraFds, int extraFdCount);

/// Hand one observation to the handler of its id, logging it first, or to `defaultHandler`. A standard exception that
/// either throws is caught and ignored. `table` may gain a row for the id.
void DispatchObservation(Handler defaultHandler, HandlerTable *table, Observation *observation);

}  // namespace rynd
