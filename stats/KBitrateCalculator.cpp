#include "KBitrateCalculator.h"

#include <utility>
#include "VCPlatform.h"

namespace vc {

KBitrateCalculator::KBitrateCalculator() : m_avgRates(kDefaultAverage) {}

KBitrateCalculator::KBitrateCalculator(KClock::CounterFn fnCounter, int64_t llFrequency)
    : m_clock(std::move(fnCounter), llFrequency), m_avgRates(kDefaultAverage) {}

void KBitrateCalculator::Setup(int nMode, int nAverage, int64_t llWindow) {
  CKMutexLock lock(m_csLock);
  m_nMode = nMode;
  m_avgRates.SetWindow(nAverage);
  m_llWindow = llWindow;
  _Reset();
  m_llLastTotal = kUnsetTime;
}

// Forgets the time line and the rates; the running total survives, because
// the packet that triggers a reset has already been turned into an increment.
void KBitrateCalculator::_Reset() {
  m_deqBuckets.clear();
  m_llTotal = 0;
  m_llTimeBase = kUnsetTime;
  m_avgRates.Clear();
}

int64_t KBitrateCalculator::_PlaceInTime(int64_t llTime) {
  // The clock's mark is restarted on every feed, so this is the wall-clock
  // time since the previous packet.
  int64_t llNow = 0;
  const int64_t llSinceLastFeed = m_clock.Elapsed(true, &llNow);

  if (llTime == kUnsetTime) {
    // Clock times and caller times are different time lines: never mixed.
    if (m_llTimeBase != kUnsetTime) _Reset();
    return llNow;
  }
  if (m_llTimeBase == kUnsetTime) {
    _Reset();
    m_llTimeBase = 0;
  }
  int64_t llPlaced = llTime - m_llTimeBase;
  if (!m_deqBuckets.empty() && llPlaced < m_deqBuckets.back().llTime) {
    llPlaced = m_deqBuckets.back().llTime + llSinceLastFeed;
    m_llTimeBase = llTime - llPlaced;
  }
  return llPlaced;
}

double KBitrateCalculator::_InstantRate() const {
  if (m_deqBuckets.size() < 2) return 0.0;
  const int64_t llSpan = m_deqBuckets.back().llTime - m_deqBuckets.front().llTime;
  if (llSpan < 1) return 0.0;
  // The oldest bucket's bytes arrived at the start of the span, not within it.
  return static_cast<double>(m_llTotal - m_deqBuckets.front().llBytes) * static_cast<double>(VC_TIME_SECOND) / static_cast<double>(llSpan);
}

double KBitrateCalculator::_AverageRate() const {
  double dblAverage = 0.0;
  m_avgRates.Statistics(&dblAverage);
  return dblAverage;
}

double KBitrateCalculator::Add(int64_t llBytes, int64_t llTime, int64_t* pllTimeUsed) {
  CKMutexLock lock(m_csLock);
  if (llBytes < 1) return _AverageRate();

  if (m_nMode == kModeRunningTotal) {
    if (m_llLastTotal != kUnsetTime && llBytes < m_llLastTotal) {
      // The counter started again: so does the meter.
      _Reset();
      m_llLastTotal = kUnsetTime;
    }
    const int64_t llIncrement = m_llLastTotal == kUnsetTime ? llBytes : llBytes - m_llLastTotal;
    m_llLastTotal = llBytes;
    llBytes = llIncrement;
  }

  const int64_t llPlaced = _PlaceInTime(llTime);
  if (!m_deqBuckets.empty() && m_deqBuckets.back().llTime >= llPlaced)
    m_deqBuckets.back().llBytes += llBytes;
  else
    m_deqBuckets.push_back({llPlaced, llBytes});
  m_llTotal += llBytes;

  while (m_deqBuckets.size() >= 3 && llPlaced - m_deqBuckets.front().llTime > m_llWindow) {
    m_llTotal -= m_deqBuckets.front().llBytes;
    m_deqBuckets.pop_front();
  }

  const double dblRate = _InstantRate();
  if (dblRate > 0.0) m_avgRates.Add(dblRate);
  if (pllTimeUsed) *pllTimeUsed = llPlaced;
  return _AverageRate();
}

double KBitrateCalculator::Rate() const {
  CKMutexLock lock(m_csLock);
  return _AverageRate();
}

}  // namespace vc
