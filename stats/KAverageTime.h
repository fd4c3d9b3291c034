// Average duration of a repeated operation: a KAverageCalc whose samples are
// reference times (100 ns units), with its own clock to measure them. The
// caller brackets the operation with Start and Stop on one thread (the
// decoding path around its inner decode call); Text may be called from any
// thread to publish the report line.
//
// The same object also serves plain series (counts, sizes) fed with Add and
// reported with Text(false).
#pragma once

#include <string>

#include "KAverageCalc.h"
#include "KClock.h"

namespace vc {

class KAverageTime : public KAverageCalc {
 public:
  explicit KAverageTime(int nWindow = 1, eKStatsLocking eLocking = eKStatsLocking::Own);
  // For tests: the clock reads fnCounter at llFrequency ticks per second.
  KAverageTime(int nWindow, KClock::CounterFn fnCounter, int64_t llFrequency);

  // Marks the start of the measured operation.
  void Start();
  // Adds (time since Start) / nCount as a sample, nCount 0 counting as 1
  // (so a call that produced several frames is spread over them). Returns
  // the whole time since Start. Start is not moved.
  int64_t Stop(int nCount = 1);

  // The report line. bMilliseconds (samples are reference times):
  //   "Avg:40.000 (25.000 fps) Min:40.000 Max:40.000 Jitter:0.000 (msec)"
  // otherwise the raw values:
  //   "Avg:12.500 Min:12.000 Max:13.000 Jitter:0.707"
  // An empty window reports zeros.
  std::string Text(bool bMilliseconds) const;

 private:
  KClock m_clock;
};

}  // namespace vc
