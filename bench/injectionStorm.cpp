// What one observation costs the page-retirement correlator while machine checks are injected into thousands of virtual
// machines at once. The argument is the number of pages that a minute's injections touch.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>

#include "correlators/hardware/injectionTable.h"

namespace rynd {
namespace {

constexpr int64_t kMachines = 10'000;
constexpr int64_t kSecondsHeld = 60;

/// Injections that go round all machines and pages once a minute.
class Storm {
 public:
  Storm(int64_t pages, InjectionTable::Kill kill) : pages_(pages), table_(kill) {
    for (int64_t i = 0; i < pages_; ++i) Next();
  }
  void Next() {
    const int64_t now = 1000 + at_ * kSecondsHeld / pages_;
    const int64_t place = at_++ % pages_;
    table_.Observe(now, Injection{static_cast<int32_t>(place % kMachines), static_cast<uint64_t>(place / kMachines)});
  }
  /// An observation after so long a silence that everything has expired.
  void Silence() { table_.Observe(at_ = at_ + 1'000'000'000, std::nullopt); }
  size_t HeldPages() const { return table_.HeldPages(); }

 private:
  const int64_t pages_;
  int64_t at_ = 0;
  InjectionTable table_;
};

bool NeverFound(int32_t /*worldId*/, int32_t /*count*/, uint64_t /*page*/, bool /*repeated*/) {
  return false;
}

double MicrosecondsOf(const auto &operation) {
  const auto start = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

void InjectionStorm(benchmark::State &state) {
  Storm storm(state.range(0), NeverFound);
  double worst = 0;
  for ([[maybe_unused]] auto _ : state) worst = std::max(worst, MicrosecondsOf([&storm] { storm.Next(); }));
  state.counters["worst_us"] = worst;
  state.counters["held_pages"] = static_cast<double>(storm.HeldPages());
  state.counters["after_silence_us"] = MicrosecondsOf([&storm] { storm.Silence(); });
}
BENCHMARK(InjectionStorm)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Arg(4'000'000);

/// All injections into one page of one machine that can't be found, which is then tried at every one.
void InjectionsIntoOnePage(benchmark::State &state) {
  InjectionTable table(NeverFound);
  int64_t at = 0;
  for ([[maybe_unused]] auto _ : state) {
    table.Observe(1000 + at++ * kSecondsHeld / state.range(0), Injection{1, 1});
  }
}
BENCHMARK(InjectionsIntoOnePage)->Arg(1'000'000);

/// Every machine is to be killed and can't be found: the first observation of each second tries them all.
void FurtherSecond(benchmark::State &state) {
  InjectionTable table(NeverFound);
  for (int64_t i = 0; i < 50 * state.range(0); ++i) {
    table.Observe(i < 25 * state.range(0) ? 1000 : 1002, Injection{static_cast<int32_t>(i % state.range(0)), 1});
  }
  int64_t now = 1010;
  for ([[maybe_unused]] auto _ : state) table.Observe(now = now == 1010 ? 1011 : 1010, std::nullopt);
}
BENCHMARK(FurtherSecond)->Arg(100)->Arg(10'000);

}  // namespace
}  // namespace rynd
