// What the flight recorder costs the daemon.
#pragma once

#include "bench/measures.h"

namespace bench {

/// Have the daemons that are started from now on record, or not.
void SetRecorder(bool isOn);
/// System calls of the daemon for each of `count` observations that are handled and post nothing.
double MeasureSystemCalls(int count, Setting *setting);

}  // namespace bench
