// What correlators do with an observation of theirs that has no handler.
#pragma once

struct Observation;

namespace rynd {

/// Log "No correlator for %s \n" with the id, or that there is none.
void LogNoCorrelator(Observation *observation);

}  // namespace rynd
