// Byte-rate meter over a time window. Packets are grouped into buckets by
// time; the instantaneous rate is the bytes of the window over its span, and
// the reported rate is the average of the last N instantaneous rates (64 by
// default), which smooths the bursts of key packets. Used for the ".kbps"
// statistics of the decoder and encoder (KPacketStats) and of the splitter.
//
// Times are reference times on the caller's time line; packets without a
// time are placed by the meter's own clock. A time line that goes backwards
// (a seek, a wrap, a new segment) is repaired: the packet is placed after
// the newest bucket by the wall-clock time since the previous packet, and
// the offset is kept so that the following times continue from there. The
// meter's time line never goes backwards, so the span is never negative.
//
// Any thread; every operation holds the object's lock for its whole run.
#pragma once

#include <cstdint>
#include <mutex>

#include "KAverageCalc.h"
#include "KClock.h"
#include "KRing.h"
#include "KStatsMath.h"
#include "VCPlatform.h"

namespace vc {

class KBitrateCalculator : public CKRefObject {
 public:
  // The values fed in are running totals (a byte counter), not increments.
  static constexpr int kModeRunningTotal = 1;
  static constexpr int kDefaultAverage = 64;
  static constexpr int64_t kDefaultWindow = VC_TIME_SECOND;

  KBitrateCalculator();
  // For tests: the clock reads fnCounter at llFrequency ticks per second.
  KBitrateCalculator(KClock::CounterFn fnCounter, int64_t llFrequency);

  // Sets the mode (0: increments, kModeRunningTotal: running totals), the
  // number of instantaneous rates averaged, and the window length in
  // reference time; then forgets everything fed before.
  void Setup(int nMode, int nAverage, int64_t llWindow);

  // Feeds llBytes at llTime (kUnsetTime: now, on the meter's clock) and
  // returns the average byte rate in bytes per second. Values below 1 feed
  // nothing. pllTimeUsed, when given, receives the packet's place on the
  // meter's time line (untouched when nothing is fed).
  double Add(int64_t llBytes, int64_t llTime, int64_t* pllTimeUsed = nullptr);
  double Add(int64_t llBytes) { return Add(llBytes, kUnsetTime); }

  // The current average byte rate without feeding; 0 before the first rate.
  double Rate() const;

 private:
  struct Bucket {
    int64_t llTime;
    int64_t llBytes;
  };

  void _Reset() VC_REQUIRES(m_csLock);
  int64_t _PlaceInTime(int64_t llTime) VC_REQUIRES(m_csLock);
  double _InstantRate() const VC_REQUIRES(m_csLock);
  double _AverageRate() const VC_REQUIRES(m_csLock);

  mutable CKMutex m_csLock;
  KClock m_clock;                 // its mark is the time of the last feed
  KAverageCalc m_avgRates;        // bytes per second, one sample per fed packet with a rate
  int m_nMode VC_GUARDED_BY(m_csLock) = 0;
  int64_t m_llWindow VC_GUARDED_BY(m_csLock) = kDefaultWindow;
  int64_t m_llLastTotal VC_GUARDED_BY(m_csLock) = kUnsetTime;  // mode 1 only
  int64_t m_llTotal VC_GUARDED_BY(m_csLock) = 0;  // bytes in m_deqBuckets
  int64_t m_llTimeBase VC_GUARDED_BY(m_csLock) = kUnsetTime;  // set once timed packets arrive
  CKRing<Bucket> m_deqBuckets VC_GUARDED_BY(m_csLock);  // oldest first, times increasing
};

}  // namespace vc
