// What the campaigns share: how long, from which seed. A campaign is a test that goes on for as long as it is given,
// and in its short form looks at a few rounds. Environment: RYND_SEED (1), RYND_CAMPAIGN_SECONDS (0: the short form).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <random>
#include <string>

#include "testing/testRoot.h"

namespace testing_support {

/// The rounds of one campaign: `for (Rounds rounds(20); rounds.Next();)`.
class Rounds {
 public:
  /// At least `shortForm` rounds, and more until the campaign's time is over.
  explicit Rounds(int shortForm) : atLeast_(shortForm) {}
  ~Rounds() { std::cout << done_ << " rounds from seed " << seed_ << std::endl; }
  Rounds(const Rounds &) = delete;
  Rounds &operator=(const Rounds &) = delete;

  /// True when there is a next round, which a failure prevents; its random numbers depend on the seed and its number
  /// alone.
  bool Next() {
    if (testing::Test::HasFailure()) return false;
    if (done_ >= atLeast_ && std::chrono::steady_clock::now() >= end_) return false;
    random_.seed(seed_ * 1'000'003 + static_cast<uint64_t>(done_));
    ++done_;
    return true;
  }
  /// This round's, from 0.
  uint64_t Number() const { return static_cast<uint64_t>(done_) - 1; }
  /// What to say of a failure.
  std::string Name() const { return "round " + std::to_string(done_ - 1) + " of RYND_SEED=" + std::to_string(seed_); }
  /// A number from 0 to `below` - 1.
  uint64_t Draw(uint64_t below) { return std::uniform_int_distribution<uint64_t>(0, below - 1)(random_); }
  std::mt19937_64 &Random() { return random_; }

 private:
  const uint64_t seed_ = EnvironmentNumber("RYND_SEED", 1);
  const int atLeast_;
  const std::chrono::steady_clock::time_point end_ =
      std::chrono::steady_clock::now() + std::chrono::seconds(EnvironmentNumber("RYND_CAMPAIGN_SECONDS", 0));
  int done_ = 0;
  std::mt19937_64 random_;
};

}  // namespace testing_support
