#include "correlators/rows/defaultHandlers.h"

#include "core/basics/log.h"
#include "platform/ryn.h"

namespace rynd {

void LogNoCorrelator(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  if (id == nullptr) {
    Log("FAIL: Received NULL rynID\n");
  } else {
    Log("No correlator for %s \n", id);
  }
}

void IgnoreObservation(Observation * /*observation*/) {}

void FetchIdOnly(Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
}

void PrintObservation(Observation *observation) {
  LogObservation(observation);
}

}  // namespace rynd
