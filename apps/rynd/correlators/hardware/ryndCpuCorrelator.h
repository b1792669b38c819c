// The parts of the CPU correlator that its agent and the timers call.
#pragma once

#include "correlators/hardware/pageErrors.h"

namespace rynd {

/// Register and arm the correlator's two timers and read its options. Agent's thread.
void StartCpuTimers();
/// Read the options again; a new period re-arms the timer of the counts. What can't be read stays. Timer thread.
void RefreshCpuOptions();
/// Forget the errors of all pages. Timer thread.
void ResetPageErrorCounts();

/// What is known of the pages that are too bad. Agent's thread.
PageStates &CpuPageStates();

}  // namespace rynd
