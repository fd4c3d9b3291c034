#include "KClock.h"

#include <algorithm>
#include <chrono>

#include "KStatsMath.h"
#include "VCPlatform.h"

namespace vc {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int64_t kSteadyFrequency = SteadyClock::period::den / SteadyClock::period::num;
static_assert(SteadyClock::period::num == 1, "steady clock ticks must divide a second");

int64_t ReadSteady() { return SteadyClock::now().time_since_epoch().count(); }

}  // namespace

KClock::KClock() : KClock(CounterFn(), 0) {}

KClock::KClock(CounterFn fnCounter, int64_t llFrequency)
    : m_fnCounter((fnCounter && llFrequency > 0) ? std::move(fnCounter) : CounterFn()),
      m_llFrequency(m_fnCounter ? llFrequency : kSteadyFrequency),
      m_llStartCounter(m_fnCounter ? m_fnCounter() : ReadSteady()) {
  m_llLastCounter = m_llStartCounter;
}

int64_t KClock::TicksToRefTime(int64_t llTicks, int64_t llFrequency) noexcept {
  return MulDivRound(llTicks, VC_TIME_SECOND, llFrequency);
}

int64_t KClock::ScaleTicks(int64_t llRaw, int64_t llPivot, int64_t llOffset, double dblRate) noexcept {
  return SaturatingAdd(RoundHalfAway(static_cast<double>(llRaw - llPivot) * dblRate), llOffset);
}

int64_t KClock::_RawTicks() {
  const int64_t llCounter = m_fnCounter ? m_fnCounter() : ReadSteady();
  // A counter that stands still (coarse source, or two reads within one
  // tick) still moves the clock on by one tick.
  m_llLastCounter = std::max(llCounter, m_llLastCounter + 1);
  return m_llLastCounter - m_llStartCounter;
}

int64_t KClock::_ScaledTicks(int64_t llRaw) const {
  if (m_dblScaleRate > 0.0 && m_llScalePivot != -1)
    return ScaleTicks(llRaw, m_llScalePivot, m_llScaleOffset, m_dblScaleRate);
  return llRaw;
}

int64_t KClock::_NowLocked() { return TicksToRefTime(_ScaledTicks(_RawTicks()), m_llFrequency); }

int64_t KClock::Now() {
  CKMutexLock lock(m_csLock);
  return _NowLocked();
}

int64_t KClock::Elapsed(bool bRestart, int64_t* pllNow) {
  CKMutexLock lock(m_csLock);
  const int64_t llNow = _NowLocked();
  const int64_t llElapsed = llNow - m_llMark;
  if (bRestart) m_llMark = llNow;
  if (pllNow) *pllNow = llNow;
  return llElapsed;
}

void KClock::SetScale(double dblRate) {
  CKMutexLock lock(m_csLock);
  if (!(dblRate > 0.0)) {
    m_llScalePivot = -1;
    m_llScaleOffset = 0;
    m_dblScaleRate = 0.0;
    return;
  }
  const int64_t llRaw = _RawTicks();
  m_llScaleOffset = _ScaledTicks(llRaw);
  m_llScalePivot = llRaw;
  m_dblScaleRate = dblRate;
}

}  // namespace vc
