// KAverageCalc and KAverageTime: the window that holds min(N, index) + 1
// samples, the block move that keeps it contiguous, skip and max count, the
// pending-value fold, the sample standard deviation, the report lines, and
// feeding and reading from two threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "FakeCounter.h"
#include "KAverageCalc.h"
#include "KAverageTime.h"
#include "VCComPtr.h"

namespace {

using vc::KAverageCalc;
using vc::KAverageTime;
using vctest::CFakeCounter;

struct Stats {
  int nCount = 0;
  double dblAverage = 0, dblJitter = 0, dblMin = 0, dblMax = 0;
};

class KAverageCalcTest : public ::testing::Test {
 protected:
  void FeedRange(int nFrom, int nTo) {
    for (int i = nFrom; i <= nTo; ++i) m_calc.Add(i);
  }
  Stats Read(const double* pdblPending = nullptr, int nSkip = 0, int nMaxCount = 0) const {
    Stats s;
    s.nCount = m_calc.Statistics(&s.dblAverage, &s.dblJitter, &s.dblMin, &s.dblMax, pdblPending, nSkip, nMaxCount);
    return s;
  }

  KAverageCalc m_calc{4};
};

TEST_F(KAverageCalcTest, WindowOfFourFedOneToTen_ReportsTheLastFiveValues) {
  FeedRange(1, 10);
  const Stats s = Read();
  EXPECT_EQ(s.nCount, 5);
  EXPECT_DOUBLE_EQ(s.dblAverage, 8.0);
  EXPECT_DOUBLE_EQ(s.dblMin, 6.0);
  EXPECT_DOUBLE_EQ(s.dblMax, 10.0);
  // Deviations -2..2: 10 / (5 - 1) = 2.5 (a population deviation would be sqrt(2)).
  EXPECT_DOUBLE_EQ(s.dblJitter, std::sqrt(2.5));
}

TEST_F(KAverageCalcTest, Add_ReturnsTheCountInTheWindowUpToNPlusOne) {
  std::vector<int> vecCounts;
  for (int i = 0; i < 12; ++i) vecCounts.push_back(m_calc.Add(i));
  EXPECT_EQ(vecCounts, (std::vector<int>{1, 2, 3, 4, 5, 5, 5, 5, 5, 5, 5, 5}));
}

TEST_F(KAverageCalcTest, Empty_ReturnsMinusOneAndLeavesOutputsUntouched) {
  double dblAverage = 11, dblJitter = 22, dblMin = 33, dblMax = 44;
  const double dblPending = 5;
  EXPECT_EQ(m_calc.Statistics(&dblAverage, &dblJitter, &dblMin, &dblMax, &dblPending, 1, 1), -1);
  EXPECT_EQ(dblAverage, 11);
  EXPECT_EQ(dblJitter, 22);
  EXPECT_EQ(dblMin, 33);
  EXPECT_EQ(dblMax, 44);

  m_calc.Add(3);
  m_calc.Clear();
  EXPECT_EQ(m_calc.Statistics(&dblAverage), -1);
  EXPECT_EQ(dblAverage, 11);
}

TEST_F(KAverageCalcTest, OneSample_HasZeroJitterAndItselfAsEveryFigure) {
  m_calc.Add(-7.25);
  const Stats s = Read();
  EXPECT_EQ(s.nCount, 1);
  EXPECT_EQ(s.dblAverage, -7.25);
  EXPECT_EQ(s.dblMin, -7.25);
  EXPECT_EQ(s.dblMax, -7.25);
  EXPECT_EQ(s.dblJitter, 0.0);
}

TEST_F(KAverageCalcTest, SampleDeviation_HandComputed) {
  // 2, 4, 4, 4, 5: mean 3.8, squared deviations sum 4.8, / 4 = 1.2.
  for (double v : {2.0, 4.0, 4.0, 4.0, 5.0}) m_calc.Add(v);
  const Stats s = Read();
  EXPECT_NEAR(s.dblAverage, 3.8, 1e-12);
  EXPECT_NEAR(s.dblJitter, std::sqrt(1.2), 1e-12);
}

TEST_F(KAverageCalcTest, LargeSteadyValues_KeepTheirSmallDeviation) {
  // Durations in 100 ns units are large and close together; a one-pass
  // variance (sum of squares minus square of sum) loses them entirely.
  for (double v : {1e12, 1e12 + 1, 1e12 + 2}) m_calc.Add(v);
  EXPECT_NEAR(Read().dblJitter, 1.0, 1e-6);
}

TEST_F(KAverageCalcTest, SetWindow_EmptiesOnlyWhenTheSizeChangesAndBelowTwoIsOne) {
  FeedRange(1, 3);
  m_calc.SetWindow(4);
  EXPECT_EQ(Read().nCount, 3);
  m_calc.SetWindow(0);
  EXPECT_EQ(m_calc.Window(), 1);
  EXPECT_EQ(Read().nCount, -1);
  for (double v : {3.0, 7.0, 9.0}) m_calc.Add(v);
  const Stats s = Read();  // a window of one holds two samples
  EXPECT_EQ(s.nCount, 2);
  EXPECT_DOUBLE_EQ(s.dblAverage, 8.0);
}

TEST_F(KAverageCalcTest, SkipAndMaxCount_SelectFromTheOldestSamples) {
  m_calc.SetWindow(8);
  FeedRange(1, 9);  // the window holds 1..9

  Stats s = Read(nullptr, 2);  // 3..9
  EXPECT_EQ(s.nCount, 7);
  EXPECT_DOUBLE_EQ(s.dblAverage, 6.0);
  EXPECT_DOUBLE_EQ(s.dblMin, 3.0);

  s = Read(nullptr, 2, 3);  // 3, 4, 5
  EXPECT_EQ(s.nCount, 3);
  EXPECT_DOUBLE_EQ(s.dblAverage, 4.0);
  EXPECT_DOUBLE_EQ(s.dblMax, 5.0);

  s = Read(nullptr, 100);  // skipping always leaves the newest
  EXPECT_EQ(s.nCount, 1);
  EXPECT_DOUBLE_EQ(s.dblAverage, 9.0);

  s = Read(nullptr, -3, 0);  // a negative skip skips nothing; 0 keeps all
  EXPECT_EQ(s.nCount, 9);
  EXPECT_DOUBLE_EQ(s.dblMin, 1.0);

  s = Read(nullptr, 0, 20);  // more than the window keeps the window
  EXPECT_EQ(s.nCount, 9);
}

TEST_F(KAverageCalcTest, PendingValue_IsFoldedWithoutIncreasingTheCount) {
  for (double v : {2.0, 4.0, 6.0}) m_calc.Add(v);
  const double dblHigh = 10.0;
  Stats s = Read(&dblHigh);
  EXPECT_EQ(s.nCount, 3);
  EXPECT_DOUBLE_EQ(s.dblAverage, 4.0 * 2 / 3 + 10.0 / 3);  // 6, not the 5.5 of four samples
  EXPECT_DOUBLE_EQ(s.dblMax, 10.0);
  EXPECT_DOUBLE_EQ(s.dblMin, 2.0);
  EXPECT_DOUBLE_EQ(s.dblJitter, 2.0);  // of the window alone

  const double dblLow = -1.0;
  s = Read(&dblLow);
  EXPECT_DOUBLE_EQ(s.dblMin, -1.0);
  EXPECT_DOUBLE_EQ(s.dblMax, 6.0);
}

TEST_F(KAverageCalcTest, PendingValue_WithOneSampleReplacesTheAverage) {
  m_calc.Add(100.0);
  const double dblPending = 40.0;
  const Stats s = Read(&dblPending);
  EXPECT_EQ(s.nCount, 1);
  EXPECT_DOUBLE_EQ(s.dblAverage, 40.0);
  EXPECT_DOUBLE_EQ(s.dblMin, 40.0);
  EXPECT_DOUBLE_EQ(s.dblMax, 100.0);
}

// The block move: after 3N + 1 samples (and any other count) the window must
// be exactly the newest min(N, index) + 1 values, in order, whatever N is.
class KAverageCalcBlockMoveTest : public ::testing::TestWithParam<int> {};

TEST_P(KAverageCalcBlockMoveTest, AnySampleCount_WindowIsTheNewestSamples) {
  const int nWindow = GetParam();
  KAverageCalc calc(nWindow);
  std::vector<double> vecFed;
  for (int i = 0; i < 3 * nWindow + 1 + 2 * nWindow; ++i) {
    const double v = (i * 37) % 101 - 50;  // not monotonic: extremes move around
    vecFed.push_back(v);
    calc.Add(v);

    const size_t nExpected = std::min<size_t>(vecFed.size(), nWindow + 1);
    const std::vector<double> vecWindow(vecFed.end() - nExpected, vecFed.end());
    double dblSum = 0;
    for (double w : vecWindow) dblSum += w;
    const double dblMean = dblSum / nExpected;

    double dblAverage = 0, dblMin = 0, dblMax = 0;
    ASSERT_EQ(calc.Statistics(&dblAverage, nullptr, &dblMin, &dblMax), static_cast<int>(nExpected)) << "after " << i + 1;
    ASSERT_NEAR(dblAverage, dblMean, 1e-9) << "after " << i + 1;
    ASSERT_EQ(dblMin, *std::min_element(vecWindow.begin(), vecWindow.end())) << "after " << i + 1;
    ASSERT_EQ(dblMax, *std::max_element(vecWindow.begin(), vecWindow.end())) << "after " << i + 1;
  }
}

INSTANTIATE_TEST_SUITE_P(WindowSizes, KAverageCalcBlockMoveTest, ::testing::Values(1, 2, 3, 4, 7, 64));

TEST(KAverageCalcObjectTest, Release_DestroysThroughTheVirtualDestructor) {
  static int s_nDestroyed = 0;
  struct CCounted : KAverageCalc {
    ~CCounted() override { ++s_nDestroyed; }
  };
  {
    vc::ComPtr<KAverageCalc> cp(new CCounted);
    IUnknown* pUnknown = nullptr;
    ASSERT_EQ(cp->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pUnknown)), S_OK);
    EXPECT_EQ(pUnknown->Release(), 1u);
    void* pOther = reinterpret_cast<void*>(1);
    EXPECT_EQ(cp->QueryInterface(IID_IClassFactory, &pOther), E_NOINTERFACE);
    EXPECT_EQ(pOther, nullptr);
    EXPECT_EQ(s_nDestroyed, 0);
  }
  EXPECT_EQ(s_nDestroyed, 1);
}

TEST(KAverageCalcThreadTest, FeedAndReadFromTwoThreads_StatisticsStayConsistent) {
  KAverageCalc calc(64);
  std::atomic<bool> bStop{false};
  std::thread feeder([&] {
    for (int i = 0; !bStop; ++i) calc.Add(100 + i % 50);  // always within 100..149
  });
  int nReads = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (std::chrono::steady_clock::now() < end) {
    double dblAverage = 0, dblJitter = 0, dblMin = 0, dblMax = 0;
    const int nCount = calc.Statistics(&dblAverage, &dblJitter, &dblMin, &dblMax);
    if (nCount < 0) continue;
    ++nReads;
    ASSERT_LE(nCount, 65);
    ASSERT_GE(dblMin, 100.0);
    ASSERT_LE(dblMax, 149.0);
    ASSERT_LE(dblMin, dblAverage);
    ASSERT_LE(dblAverage, dblMax);
    ASSERT_GE(dblJitter, 0.0);
  }
  bStop = true;
  feeder.join();
  EXPECT_GT(nReads, 0);
}

TEST(KAverageTimeTest, StopWithCountZero_CountsAsOne) {
  CFakeCounter counter;
  KAverageTime avg(4, counter.Fn(), CFakeCounter::kFrequency);
  avg.Start();
  counter.Advance(3000);
  EXPECT_EQ(avg.Stop(0), 2999);  // Start read tick 1 of the standing counter
  double dblAverage = 0;
  avg.Statistics(&dblAverage);
  EXPECT_DOUBLE_EQ(dblAverage, 2999.0);
}

TEST(KAverageTimeTest, StopWithCount_SpreadsTheTimeAndLeavesStartInPlace) {
  CFakeCounter counter;
  KAverageTime avg(4, counter.Fn(), CFakeCounter::kFrequency);
  counter.Advance(100);
  avg.Start();  // mark at 100
  counter.Advance(4000);
  EXPECT_EQ(avg.Stop(4), 4000);
  counter.Advance(4000);
  EXPECT_EQ(avg.Stop(1), 8000);  // still measured from the same start
  double dblMin = 0, dblMax = 0;
  EXPECT_EQ(avg.Statistics(nullptr, nullptr, &dblMin, &dblMax), 2);
  EXPECT_DOUBLE_EQ(dblMin, 1000.0);
  EXPECT_DOUBLE_EQ(dblMax, 8000.0);
}

TEST(KAverageTimeTest, Text_MillisecondsWithFrameRateOrRawValues) {
  // Mean 300000 (33.333 fps); deviations +-100000 over n - 1 = 1: 141421.36.
  // An empty meter or a zero average has no frame rate.
  const struct {
    std::vector<double> vecSamples;
    bool bMsec;
    const char* pszText;
  } kCases[] = {
      {{}, true, "Avg:0.000 (0.000 fps) Min:0.000 Max:0.000 Jitter:0.000 (msec)"},
      {{0}, true, "Avg:0.000 (0.000 fps) Min:0.000 Max:0.000 Jitter:0.000 (msec)"},
      {{0}, false, "Avg:0.000 Min:0.000 Max:0.000 Jitter:0.000"},
      {{400000}, true, "Avg:40.000 (25.000 fps) Min:40.000 Max:40.000 Jitter:0.000 (msec)"},
      {{400000, 200000}, true, "Avg:30.000 (33.333 fps) Min:20.000 Max:40.000 Jitter:14.142 (msec)"},
      {{12, 13}, false, "Avg:12.500 Min:12.000 Max:13.000 Jitter:0.707"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.pszText);
    KAverageTime avg(8);
    for (double dbl : c.vecSamples) avg.Add(dbl);
    EXPECT_EQ(avg.Text(c.bMsec), c.pszText);
  }
}

}  // namespace
