#include "correlators/hardware/injectionTable.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>

namespace rynd {
namespace {

/// An attempt to kill a machine: world id, count, page, whether it only repeats one.
using Attempt = std::tuple<int32_t, int32_t, uint64_t, bool>;
using Attempts = std::vector<Attempt>;

Attempts attempts;
std::set<int32_t> unknownMachines;

bool TryToKill(int32_t worldId, int32_t count, uint64_t page, bool repeated) {
  attempts.emplace_back(worldId, count, page, repeated);
  return !unknownMachines.contains(worldId);
}

/// The decisions in the plainest form: every machine is walked through at every observation.
class PlainTable {
 public:
  void Observe(int64_t now, const std::optional<Injection> &injection) {
    const bool furtherSecond = now != lastNow_;
    lastNow_ = now;
    for (auto machine = machines_.begin(); machine != machines_.end();) {
      std::erase_if(machine->second.injections, [now](const auto &one) { return one.second + 60 < now; });
      machine = machine->second.injections.empty() ? machines_.erase(machine) : std::next(machine);
    }
    if (injection) machines_[injection->worldId].injections.emplace(injection->page, now);
    for (auto &[worldId, machine] : machines_) {
      const bool touched = injection && injection->worldId == worldId;
      if (!machine.failed || touched || furtherSecond) Walk(worldId, !touched, &machine);
    }
  }

 private:
  struct Machine {
    bool killed = false, failed = false;
    std::multimap<uint64_t, int64_t> injections;
  };

  static void Walk(int32_t worldId, bool repeated, Machine *machine) {
    uint64_t previous = 0xfffffffffffff;
    int32_t count = 0;
    int64_t earliest = 0, latest = 0;
    machine->failed = false;
    for (const auto &[page, time] : machine->injections) {
      if (page != previous) {
        count = 0;
        earliest = latest = time;
      }
      previous = page;
      ++count;
      earliest = std::min(earliest, time);
      latest = std::max(latest, time);
      if (count <= 49 || machine->killed || latest - earliest <= 1) continue;
      machine->killed = TryToKill(worldId, count, page, repeated);
      machine->failed = !machine->killed;
      if (machine->failed) return;
    }
  }

  int64_t lastNow_ = 0;
  std::map<int32_t, Machine> machines_;
};

/// `count` injections into a page at one time.
void Inject(InjectionTable *table, int64_t now, int count, int32_t worldId = 1, uint64_t page = 0x10) {
  for (int i = 0; i < count; ++i) table->Observe(now, Injection{worldId, page});
}

class InjectionTableTest : public testing::Test {
 protected:
  void SetUp() override {
    attempts.clear();
    unknownMachines.clear();
  }
  static Attempts Take() { return std::exchange(attempts, {}); }
  InjectionTable table_{TryToKill};
};

TEST_F(InjectionTableTest, TriesAgainWhatCouldNotBeFound) {
  unknownMachines = {1, 3};
  for (const int32_t machine : {3, 1, 2}) Inject(&table_, 1000, 49, machine);
  for (const int32_t machine : {3, 1, 2}) Inject(&table_, 1002, 1, machine);
  EXPECT_EQ(Take(), (Attempts{{3, 50, 0x10, false}, {1, 50, 0x10, false}, {2, 50, 0x10, false}}));
  table_.Observe(1002, std::nullopt);  // not again in the same second
  EXPECT_EQ(Take(), Attempts{});
  Inject(&table_, 1002, 1, 3, 0x9);
  EXPECT_EQ(Take(), (Attempts{{3, 50, 0x10, false}}));
  unknownMachines = {1};
  table_.Observe(1003, std::nullopt);
  EXPECT_EQ(Take(), (Attempts{{1, 50, 0x10, true}, {3, 50, 0x10, true}}));
}

TEST_F(InjectionTableTest, DecidesAsThePlainAlgorithmDoes) {
  size_t decided = 0, failed = 0;
  for (unsigned seed = 0; seed < 15; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](unsigned end) { return static_cast<unsigned>(random() % end); };
    unknownMachines.clear();
    InjectionTable table(TryToKill);
    PlainTable plain;
    int64_t now = 1000;
    for (int step = 0; step < 600; ++step) {
      // Mostly a second or none; at times a long silence.
      const unsigned kind = below(100);
      now += kind < 60 ? 0 : kind < 90 ? 1 : kind < 94 ? below(70) : kind < 96 ? 61 : 3;
      if (below(20) == 0) unknownMachines.insert(static_cast<int32_t>(below(4)) - 2);
      if (below(20) == 0) unknownMachines.erase(static_cast<int32_t>(below(4)) - 2);
      std::optional<Injection> injection;
      if (below(20) != 0) injection = Injection{static_cast<int32_t>(below(4)) - 2, below(3)};
      for (unsigned times = below(25); times > 0; --times) {
        table.Observe(now, injection);
        const Attempts actual = Take();
        plain.Observe(now, injection);
        const Attempts expected = Take();
        ASSERT_EQ(actual, expected) << "seed " << seed << " step " << step << " at " << now;
        decided += actual.size();
        for (const Attempt &attempt : actual) failed += unknownMachines.contains(std::get<0>(attempt)) ? 1u : 0u;
      }
    }
  }
  EXPECT_GT(decided - failed, 150u);  // the run means something
  EXPECT_GT(failed, 150u);
}

TEST_F(InjectionTableTest, HoldsWhatAMinuteHolds) {
  uint64_t page = 0;
  size_t most = 0;
  for (int64_t now = 1000; now < 1400; ++now) {
    for (int i = 0; i < 50; ++i, ++page) Inject(&table_, now, 1, static_cast<int32_t>(page % 10), page);
    most = std::max(most, table_.HeldPages());
  }
  EXPECT_LE(most, 50u * 62);
  // A silence leaves them; what comes then sweeps up more than it adds.
  for (int i = 0; i < 600; ++i) Inject(&table_, 5000, 1);
  EXPECT_EQ(table_.HeldPages(), 1u);
}

}  // namespace
}  // namespace rynd
