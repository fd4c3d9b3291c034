#include "KBitrateCalc.h"

#include <algorithm>
#include <limits>
#include "VCPlatform.h"

namespace vc {

int32_t KBitrateCalc::Add(int64_t llTime, int32_t nBytes, double dblWindowSeconds) {
  CKStatsAutoLock lock(m_csLock);
  _Push(llTime, nBytes, dblWindowSeconds);
  return _Rate();
}

void KBitrateCalc::Push(int64_t llTime, int32_t nBytes, double dblWindowSeconds) {
  CKStatsAutoLock lock(m_csLock);
  _Push(llTime, nBytes, dblWindowSeconds);
}

void KBitrateCalc::_Push(int64_t llTime, int32_t nBytes, double dblWindowSeconds) {
  if (llTime == kUnsetTime && !m_deqEntries.empty()) llTime = m_deqEntries.back().llTime;
  m_deqEntries.push_back({llTime, nBytes});
  m_llTotal += nBytes;

  // Callers pass the same window every time: round it once.
  if (dblWindowSeconds != m_dblWindowSeconds) {
    m_dblWindowSeconds = dblWindowSeconds;
    m_llWindow = RoundHalfAway(dblWindowSeconds * static_cast<double>(VC_TIME_SECOND));
  }
  const int64_t llWindow = m_llWindow;
  while (m_deqEntries.size() >= 2) {
    // Saturating: the oldest entry may carry the unset time.
    if (SaturatingAdd(m_deqEntries.front().llTime, llWindow) >= llTime) break;
    m_llTotal -= m_deqEntries.front().nBytes;
    m_deqEntries.pop_front();
  }
}

int32_t KBitrateCalc::Rate() const {
  CKStatsAutoLock lock(m_csLock);
  return _Rate();
}

void KBitrateCalc::Reset() {
  CKStatsAutoLock lock(m_csLock);
  m_deqEntries.clear();
  m_llTotal = 0;
}

size_t KBitrateCalc::Count() const {
  CKStatsAutoLock lock(m_csLock);
  return m_deqEntries.size();
}

int32_t KBitrateCalc::_Rate() const {
  if (m_deqEntries.size() < 2) return 0;
  int64_t llSpan = 0;
  if (__builtin_sub_overflow(m_deqEntries.back().llTime, m_deqEntries.front().llTime, &llSpan)) {
    // Only an unset oldest time gets this far apart; a span beyond the int64
    // range leaves no measurable rate.
    return 0;
  }
  if (llSpan <= 0) return 0;
  const int64_t llBits = MulDivRound(m_llTotal - m_deqEntries.back().nBytes, 8 * 10000000LL, llSpan);
  return static_cast<int32_t>(std::clamp<int64_t>(llBits, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

}  // namespace vc
