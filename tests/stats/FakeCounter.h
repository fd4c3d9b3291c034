// A hand-driven performance counter for the statistics tests: the clocks
// under test read it instead of the steady clock, so every duration and
// every packet time is exact. Reads and advances are atomic, so a feeding
// thread and a reading thread may share one.
#pragma once

#include <atomic>
#include <cstdint>

#include "KClock.h"

namespace vctest {

class CFakeCounter {
 public:
  // Ticks per second; 10^7 makes one tick one reference-time unit.
  static constexpr int64_t kFrequency = 10000000;

  explicit CFakeCounter(int64_t llStart = 1000) : m_llTicks(llStart) {}

  vc::KClock::CounterFn Fn() {
    return [this] { return m_llTicks.load(); };
  }
  void Advance(int64_t llTicks) { m_llTicks += llTicks; }

 private:
  std::atomic<int64_t> m_llTicks;
};

}  // namespace vctest
