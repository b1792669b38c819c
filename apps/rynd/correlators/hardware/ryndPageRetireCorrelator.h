// The start and the state of the page-retirement correlator.
#pragma once

#include "correlators/hardware/injectionTable.h"

namespace rynd {

/// Read the thresholds and forget what has been reported; what can't be read ends the daemon. Agent's thread.
void StartPageRetirement();

/// The machine checks that were injected into virtual machines. Agent's thread.
InjectionTable &PageRetireInjections();

}  // namespace rynd
