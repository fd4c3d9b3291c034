// The light bit-rate meter each packet queue keeps: one entry per packet,
// trimmed to a time window, and a rate of bits per second over the window.
// The queue's producer thread adds while consumers and the statistics read
// the rate; every operation holds the object's lock.
#pragma once

#include <cstdint>
#include <mutex>

#include "KRefObject.h"
#include "KRing.h"
#include "KStatsLock.h"
#include "KStatsMath.h"

namespace vc {

class KBitrateCalc : public CKRefObject {
 public:
  explicit KBitrateCalc(eKStatsLocking eLocking = eKStatsLocking::Own) : m_csLock(eLocking) {}

  // Appends a packet of nBytes at llTime (kUnsetTime: the newest entry's
  // time) and drops the oldest entries that lie more than dblWindowSeconds
  // before it, never the newest. Returns Rate().
  int32_t Add(int64_t llTime, int32_t nBytes, double dblWindowSeconds);
  // The same without working out the rate, for owners that read it only
  // when they publish.
  void Push(int64_t llTime, int32_t nBytes, double dblWindowSeconds);

  // Bits per second over the entries, 0 with fewer than two or no positive
  // span. The newest packet's bytes are left out: the span ends where that
  // packet begins. Saturates at the int32 range.
  int32_t Rate() const;

  // Forgets every entry.
  void Reset();

  // Entries currently held (for the queue's own statistics).
  size_t Count() const;

 private:
  struct Entry {
    int64_t llTime;
    int32_t nBytes;
  };

  void _Push(int64_t llTime, int32_t nBytes, double dblWindowSeconds) VC_REQUIRES(m_csLock);
  int32_t _Rate() const VC_REQUIRES(m_csLock);

  mutable CKStatsLock m_csLock;
  CKRing<Entry> m_deqEntries VC_GUARDED_BY(m_csLock);  // oldest first
  int64_t m_llTotal VC_GUARDED_BY(m_csLock) = 0;  // bytes of m_deqEntries
  double m_dblWindowSeconds VC_GUARDED_BY(m_csLock) = 0.0;  // the last window asked for
  int64_t m_llWindow VC_GUARDED_BY(m_csLock) = 0;  // the same in 100 ns
};

}  // namespace vc
