// A monotonic clock in reference time (100 ns units) counted from its own
// construction, read from the high-resolution counter (std::chrono's steady
// clock, whose tick period gives the frequency). Two readings never return
// the same tick, so durations measured with it are never zero. A scale rate
// lets the clock run faster or slower than real time from a pivot on, without
// a jump at the pivot.
//
// The statistics classes own one each: KAverageTime to time calls,
// KBitrateCalculator for packets that come without a time. Any thread may
// read it; the lock keeps the last reading, the mark and the scaling fields
// consistent with each other.
#pragma once

#include <cstdint>
#include <functional>

#include "KRefObject.h"
#include "VCCritSec.h"

namespace vc {

class KClock : public CKRefObject {
 public:
  // A source of counter ticks; tests replace the steady clock with their own.
  using CounterFn = std::function<int64_t()>;

  KClock();
  // fnCounter returns ticks of llFrequency per second; an empty function or
  // a frequency below 1 selects the steady clock.
  KClock(CounterFn fnCounter, int64_t llFrequency);

  // Reference time since construction, scaled when a scale rate is set.
  // Unscaled readings are strictly increasing: two calls never return the
  // same value. A scale rate below 1 may repeat a value, and ending the
  // scaling returns to the unscaled time line, which may lie behind.
  int64_t Now();
  // Now minus the last mark (0 at construction); with bRestart the mark
  // becomes now. pllNow, when given, receives the reading used.
  int64_t Elapsed(bool bRestart, int64_t* pllNow = nullptr);

  // From now on the clock runs dblRate times as fast as the counter,
  // continuing from the current reading. A rate of 0 or below ends the
  // scaling: readings return to the unscaled time line.
  void SetScale(double dblRate);

  int64_t Frequency() const { return m_llFrequency; }

  // round(llTicks * 10^7 / llFrequency), halves away from zero.
  static int64_t TicksToRefTime(int64_t llTicks, int64_t llFrequency) noexcept;
  // round((llRaw - llPivot) * dblRate) + llOffset, halves away from zero.
  static int64_t ScaleTicks(int64_t llRaw, int64_t llPivot, int64_t llOffset, double dblRate) noexcept;

 private:
  // Counter ticks since construction, one more than the last at least.
  int64_t _RawTicks() VC_REQUIRES(m_csLock);
  int64_t _ScaledTicks(int64_t llRaw) const VC_REQUIRES(m_csLock);
  int64_t _NowLocked() VC_REQUIRES(m_csLock);

  CounterFn m_fnCounter;        // null: the steady clock
  const int64_t m_llFrequency;  // ticks per second, read once
  const int64_t m_llStartCounter;

  CKMutex m_csLock;
  int64_t m_llScalePivot VC_GUARDED_BY(m_csLock) = -1;  // raw ticks, -1 = no scaling
  int64_t m_llScaleOffset VC_GUARDED_BY(m_csLock) = 0;  // scaled ticks at the pivot
  double m_dblScaleRate VC_GUARDED_BY(m_csLock) = 0.0;
  int64_t m_llLastCounter VC_GUARDED_BY(m_csLock) = -1;  // absolute counter of the last reading
  int64_t m_llMark VC_GUARDED_BY(m_csLock) = 0;  // reference time of the last restart
};

}  // namespace vc
