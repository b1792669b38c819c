// The JSON lines of the trace feed, one object each. Any thread. Everything throws std::bad_alloc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "core/feed/traceLines.h"
#include "platform/ryn.h"

namespace rynd {

struct FreeObservation {
  void operator()(Observation *observation) const { Ryn_Free(observation); }
};
/// An Observation made from a copy of `record`, or null.
std::unique_ptr<Observation, FreeObservation> CopyToObservation(const std::byte *record, size_t length);
/// The observation's message; "" when it has none.
std::string ObservationMessage(const Observation *observation);

/// {"us","dir":"in","context","pid","uid","id","text","args","agents"}; without an observation (null), no arguments.
std::string ObservationJson(const char *id, uint64_t timeUs, const Observation *observation, const RecordSource &source,
                            std::span<const char *const> agents);
/// {"us","dir":"out","seq","agent","id","text","args","because"}.
std::string EventJson(const TracedEvent &event);
/// {"us","dir":"delivery","seq","result"}.
std::string DeliveryJson(uint64_t sequence, const char *result);
/// {"us","dir":"drop","agent","id","reason"}.
std::string DropJson(const char *name, const char *reason);
/// {"us","dir":"lost","count"}.
std::string LostJson(uint64_t count);

}  // namespace rynd
