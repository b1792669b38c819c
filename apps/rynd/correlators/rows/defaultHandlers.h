// What correlators do with an observation of theirs that has no handler.
#pragma once

struct Observation;

namespace rynd {

/// Log "No correlator for %s \n" with the id, or that there is none.
void LogNoCorrelator(Observation *observation);

/// Do nothing.
void IgnoreObservation(Observation *observation);
/// Fetch the id and do nothing else.
void FetchIdOnly(Observation *observation);
/// Log the observation's time, id and message.
void PrintObservation(Observation *observation);

}  // namespace rynd
