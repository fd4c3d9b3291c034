#include "KAverageCalc.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vc {

namespace {

// The loops below are `omp simd` reductions (compiled with -fopenmp-simd):
// the pragma allows the reassociation that vectorising a floating-point sum
// or extreme needs, which the compiler will not do on its own.

double Sum(const double* p, int n) {
  double dblSum = 0.0;
#pragma omp simd reduction(+ : dblSum)
  for (int i = 0; i < n; ++i) dblSum += p[i];
  return dblSum;
}

// Sum of squared deviations from the mean, the second pass of a two-pass
// variance (the one-pass formula loses all precision on large, steady
// values such as durations in 100 ns units).
double SumSquaredDeviations(const double* p, int n, double dblMean) {
  double dblSum = 0.0;
#pragma omp simd reduction(+ : dblSum)
  for (int i = 0; i < n; ++i) {
    const double d = p[i] - dblMean;
    dblSum += d * d;
  }
  return dblSum;
}

void MinMax(const double* p, int n, double* pdblMin, double* pdblMax) {
  double dblMin = p[0];
  double dblMax = p[0];
#pragma omp simd reduction(min : dblMin) reduction(max : dblMax)
  for (int i = 1; i < n; ++i) {
    dblMin = p[i] < dblMin ? p[i] : dblMin;
    dblMax = p[i] > dblMax ? p[i] : dblMax;
  }
  *pdblMin = dblMin;
  *pdblMax = dblMax;
}

}  // namespace

KAverageCalc::KAverageCalc(int nWindow, eKStatsLocking eLocking) : m_csLock(eLocking) { SetWindow(nWindow); }

void KAverageCalc::SetWindow(int nWindow) {
  nWindow = std::max(nWindow, 1);
  CKStatsAutoLock lock(m_csLock);
  if (nWindow == m_nWindow) return;
  m_pSamples.reset();
  m_pSamples = std::make_unique<double[]>(2 * static_cast<size_t>(nWindow));
  m_nWindow = nWindow;
  m_nLastIndex = -1;
}

int KAverageCalc::Window() const {
  CKStatsAutoLock lock(m_csLock);
  return m_nWindow;
}

void KAverageCalc::Clear() {
  CKStatsAutoLock lock(m_csLock);
  m_nLastIndex = -1;
}

int KAverageCalc::Add(double dblValue) {
  CKStatsAutoLock lock(m_csLock);
  ++m_nLastIndex;
  if (m_nLastIndex == 2 * m_nWindow) {
    std::memmove(m_pSamples.get(), m_pSamples.get() + m_nWindow, sizeof(double) * m_nWindow);
    m_nLastIndex = m_nWindow;
  }
  m_pSamples[m_nLastIndex] = dblValue;
  return std::min(m_nWindow, m_nLastIndex) + 1;
}

int KAverageCalc::Statistics(double* pdblAverage, double* pdblJitter, double* pdblMin, double* pdblMax,
                             const double* pdblPending, int nSkip, int nMaxCount) const {
  CKStatsAutoLock lock(m_csLock);
  if (m_nLastIndex < 0) return -1;

  int nCount = std::min(m_nWindow, m_nLastIndex) + 1;
  const double* pRun = m_pSamples.get() + std::max(m_nLastIndex - m_nWindow, 0);
  const int nDrop = std::clamp(nSkip, 0, nCount - 1);
  pRun += nDrop;
  nCount -= nDrop;
  if (nMaxCount > 0) nCount = std::min(nCount, nMaxCount);

  double dblAverage = pRun[0];
  double dblJitter = 0.0;
  double dblMin = pRun[0];
  double dblMax = pRun[0];
  if (nCount > 1) {
    dblAverage = Sum(pRun, nCount) / nCount;
    // The rate meters read only the average: skip the passes nobody asked for.
    if (pdblJitter) dblJitter = std::sqrt(SumSquaredDeviations(pRun, nCount, dblAverage) / (nCount - 1));
    if (pdblMin || pdblMax) MinMax(pRun, nCount, &dblMin, &dblMax);
  }
  if (pdblPending) {
    const double dblPending = *pdblPending;
    dblAverage = dblAverage * (nCount - 1) / nCount + dblPending / nCount;
    dblMin = std::min(dblMin, dblPending);
    dblMax = std::max(dblMax, dblPending);
  }

  if (pdblAverage) *pdblAverage = dblAverage;
  if (pdblJitter) *pdblJitter = dblJitter;
  if (pdblMin) *pdblMin = dblMin;
  if (pdblMax) *pdblMax = dblMax;
  return nCount;
}

}  // namespace vc
