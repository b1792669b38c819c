// The Fabra (distributed storage) correlator: it subscribes to its observations and reports none of them yet.
#include "core/agents/runner.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"

namespace rynd {

void RyndFabraCorrelator() {
  RunCorrelator("Fabra", "fabra", LogNoCorrelator, HandlerTable());
}

}  // namespace rynd
