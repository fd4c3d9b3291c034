// Statistics over a sliding window of the most recent samples: average,
// jitter (standard deviation), minimum and maximum. The facades feed it per
// packet or per frame (key distances, packet sizes, call durations, rates)
// and read it when they publish; Add and Statistics may run on different
// threads, each operation holding the object's lock for its whole run.
//
// Storage is 2 x N doubles: samples are appended until the buffer is full,
// then the newest N are moved to the front in one block. The window is
// therefore always one contiguous run, which the statistics scan with vector
// loops and no wrap-around, at the cost of one block move every N samples.
// Once full, the window holds N + 1 samples (min(N, last index) + 1).
//
// Jitter is the sample standard deviation, sqrt(sum((x - mean)^2) / (n - 1)):
// the window is a sample of an ongoing series, not the whole population,
// and this is the estimator that Intel IPP's ippsMeanStdDev_64f / ippsStdDev
// compute, the primitive these figures have always been read against. With a
// single sample the jitter is 0.
#pragma once

#include <memory>
#include <mutex>

#include "KRefObject.h"
#include "KStatsLock.h"

namespace vc {

class KAverageCalc : public CKRefObject {
 public:
  explicit KAverageCalc(int nWindow = 1, eKStatsLocking eLocking = eKStatsLocking::Own);

  // Sizes below 2 become 1. A different size empties the window; the same
  // size keeps it.
  void SetWindow(int nWindow);
  int Window() const;
  // Forgets every sample, keeping the size.
  void Clear();

  // Appends a sample; returns the number of samples now in the window.
  int Add(double dblValue);

  // Statistics of the window. nSkip drops that many of the oldest samples
  // (always leaving one); nMaxCount above 0 then keeps only that many from
  // the oldest remaining on. pdblPending, when given, is folded in as one
  // more sample: the average becomes avg * (n - 1) / n + pending / n with n
  // the count of window samples used, and minimum and maximum widen to
  // include it; the jitter and the returned count leave it out.
  // Returns the count of window samples used, or -1 when the window is empty,
  // in which case no output is written. Any output pointer may be null.
  int Statistics(double* pdblAverage, double* pdblJitter = nullptr, double* pdblMin = nullptr,
                 double* pdblMax = nullptr, const double* pdblPending = nullptr, int nSkip = 0,
                 int nMaxCount = 0) const;

 private:
  mutable CKStatsLock m_csLock;
  std::unique_ptr<double[]> m_pSamples VC_GUARDED_BY(m_csLock);  // 2 * m_nWindow doubles
  int m_nWindow VC_GUARDED_BY(m_csLock) = 0;
  int m_nLastIndex VC_GUARDED_BY(m_csLock) = -1;  // -1 when empty
};

}  // namespace vc
