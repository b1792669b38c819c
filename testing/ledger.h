// The daemon's statistics, and whether they add up.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "testing/testRoot.h"

namespace testing_support {

/// "" when both are equal, else a line that names them.
std::string Difference(const std::string &what, uint64_t left, uint64_t right);

/// What the daemon below `root` answers to "stats"; null when it does not answer.
nlohmann::json ReadStatistics(const TestRoot &root);

/// True when the daemon below `root` answers and every agent of it runs.
bool IsWhole(const TestRoot &root);

/// What does not add up in `statistics`, as it must when the daemon is at rest; "" when all does.
std::string LedgerGap(const nlohmann::json &statistics);

/// The records that the kernel contexts have given, discarded or lost to a reset.
uint64_t ReadFromKernel(const nlohmann::json &statistics);

/// Expect the daemon below `root` to come to rest with everything accounted for.
void ExpectLedgerCloses(const TestRoot &root);

}  // namespace testing_support
