// The two bit-rate meters. KBitrateCalculator: buckets and the time window,
// running totals, packets without time, and the repair of time lines that go
// backwards. KBitrateCalc: the per-queue meter that leaves the newest packet
// out of the rate, the unset time, the window bound and the rounding. Both
// fed and read from two threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <thread>

#include "FakeCounter.h"
#include "KBitrateCalc.h"
#include "KBitrateCalculator.h"
#include "KStatsMath.h"

namespace {

using vc::KBitrateCalc;
using vc::KBitrateCalculator;
using vc::kUnsetTime;
using vctest::CFakeCounter;

constexpr int64_t kSecond = 10000000;

class KBitrateCalculatorTest : public ::testing::Test {
 protected:
  KBitrateCalculatorTest() : m_calc(m_counter.Fn(), CFakeCounter::kFrequency) {}

  // Feeds llBytes at llTime after the wall clock moved on by llWallTicks.
  double FeedAfter(int64_t llWallTicks, int64_t llBytes, int64_t llTime, int64_t* pllUsed = nullptr) {
    m_counter.Advance(llWallTicks);
    return m_calc.Add(llBytes, llTime, pllUsed);
  }

  CFakeCounter m_counter;
  KBitrateCalculator m_calc;
};

TEST_F(KBitrateCalculatorTest, TimedPackets_RateIsBytesAfterTheOldestOverTheSpan) {
  m_calc.Setup(0, 64, kSecond);
  EXPECT_EQ(m_calc.Add(1000, 0), 0.0);  // one bucket: no span yet
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, kSecond / 10), 10000.0);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 2 * kSecond / 10), 10000.0);
  // (7000 - 1000) bytes over 0.3 s = 20000; the average of 10000, 10000, 20000.
  EXPECT_DOUBLE_EQ(m_calc.Add(4000, 3 * kSecond / 10), 40000.0 / 3);
  EXPECT_DOUBLE_EQ(m_calc.Rate(), 40000.0 / 3);
}

TEST_F(KBitrateCalculatorTest, SameTime_AddsToTheNewestBucket) {
  m_calc.Setup(0, 64, kSecond);
  m_calc.Add(1000, 0);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, kSecond / 10), 10000.0);
  // The bucket at 0.1 s now holds 2000: 20000 B/s, averaged with 10000.
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, kSecond / 10), 15000.0);
}

TEST_F(KBitrateCalculatorTest, Window_DropsBucketsOlderThanTheWindowOnly) {
  m_calc.Setup(0, 1, kSecond);  // an average of the last two rates
  m_calc.Add(1000, 0);
  EXPECT_DOUBLE_EQ(m_calc.Add(100000, kSecond / 4), 400000.0);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, kSecond / 2), (400000.0 + 202000.0) / 2);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 3 * kSecond / 4), (202000.0 + 136000.0) / 2);
  // Exactly one window after the first bucket: it stays.
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, kSecond), (136000.0 + 103000.0) / 2);
  // Past it: the first bucket goes, and the burst becomes the oldest bucket,
  // whose bytes are not counted: 4000 B/s.
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 5 * kSecond / 4), (103000.0 + 4000.0) / 2);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 6 * kSecond / 4), 4000.0);
}

TEST_F(KBitrateCalculatorTest, Window_NeverTrimsBelowTwoBuckets) {
  m_calc.Setup(0, 64, 1000);
  m_calc.Add(1000, 0);
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 10000), 1e6);
  int64_t llUsed = 0;
  // The third bucket pushes the first out; two remain with a span of 10000.
  EXPECT_DOUBLE_EQ(m_calc.Add(1000, 20000, &llUsed), 1e6);
  EXPECT_EQ(llUsed, 20000);
}

TEST_F(KBitrateCalculatorTest, BackwardsTime_ContinuesTheTimeLineByTheWallClock) {
  m_calc.Setup(0, 64, 10 * kSecond);
  int64_t llUsed = 0;
  FeedAfter(1000000, 1000, 0);
  FeedAfter(1000000, 1000, 1000000);
  FeedAfter(1000000, 1000, 2000000);
  // Back to 0.05 s, 0.03 s of wall time after the previous packet.
  const double dblRate = FeedAfter(300000, 1000, 500000, &llUsed);
  EXPECT_EQ(llUsed, 2300000);
  EXPECT_GT(dblRate, 0.0);
  // The next packet continues from the repaired place.
  FeedAfter(100000, 1000, 600000, &llUsed);
  EXPECT_EQ(llUsed, 2400000);
  // A packet at the newest bucket's time is not a step back.
  FeedAfter(50000, 1000, 600000, &llUsed);
  EXPECT_EQ(llUsed, 2400000);
}

TEST_F(KBitrateCalculatorTest, RandomJumpsBack_NeverANegativeRateOrAShrinkingTimeLine) {
  m_calc.Setup(0, 64, kSecond);
  std::mt19937 rng(20240607);
  std::uniform_int_distribution<int64_t> step(-3 * kSecond, kSecond / 10);
  std::uniform_int_distribution<int64_t> wall(1, 200000);
  int64_t llTime = 0, llPrevUsed = std::numeric_limits<int64_t>::min();
  for (int i = 0; i < 500; ++i) {
    llTime += step(rng);
    int64_t llUsed = 0;
    const double dblRate = FeedAfter(wall(rng), 1 + i % 1500, llTime, &llUsed);
    ASSERT_GE(llUsed, llPrevUsed) << "packet " << i;
    ASSERT_TRUE(std::isfinite(dblRate)) << "packet " << i;
    ASSERT_GE(dblRate, 0.0) << "packet " << i;
    llPrevUsed = llUsed;
  }
  EXPECT_GT(m_calc.Rate(), 0.0);
}

TEST_F(KBitrateCalculatorTest, PacketsWithoutTime_ArePlacedByTheClock) {
  m_calc.Setup(0, 64, kSecond);
  int64_t llUsed = 0;
  FeedAfter(400000, 5000, kUnsetTime, &llUsed);
  EXPECT_EQ(llUsed, 400000);
  for (int i = 0; i < 4; ++i) EXPECT_DOUBLE_EQ(FeedAfter(400000, 5000, kUnsetTime), 125000.0);
}

TEST_F(KBitrateCalculatorTest, SwitchFromTimedToUntimed_StartsAgain) {
  m_calc.Setup(0, 64, kSecond);
  FeedAfter(1000, 1000, 0);
  EXPECT_DOUBLE_EQ(FeedAfter(1000, 1000, kSecond / 10), 10000.0);
  EXPECT_EQ(FeedAfter(1000, 1000, kUnsetTime), 0.0);
  EXPECT_EQ(m_calc.Rate(), 0.0);
}

TEST_F(KBitrateCalculatorTest, RunningTotals_FeedIncrementsAndRestartWithTheCounter) {
  m_calc.Setup(KBitrateCalculator::kModeRunningTotal, 64, kSecond);
  EXPECT_EQ(m_calc.Add(1000, 0), 0.0);
  EXPECT_DOUBLE_EQ(m_calc.Add(3000, kSecond / 10), 20000.0);   // +2000 over 0.1 s
  EXPECT_DOUBLE_EQ(m_calc.Add(6000, 2 * kSecond / 10), 22500.0);  // 5000 over 0.2 s: 25000
  // The counter went back: a fresh start with 500 as the first increment.
  EXPECT_EQ(m_calc.Add(500, 3 * kSecond / 10), 0.0);
  EXPECT_DOUBLE_EQ(m_calc.Add(1500, 4 * kSecond / 10), 10000.0);  // +1000 over 0.1 s
}

TEST_F(KBitrateCalculatorTest, BytesBelowOne_FeedNothing) {
  m_calc.Setup(0, 64, kSecond);
  m_calc.Add(1000, 0);
  m_calc.Add(1000, kSecond / 10);
  int64_t llUsed = -5;
  EXPECT_DOUBLE_EQ(m_calc.Add(0, 5 * kSecond, &llUsed), 10000.0);
  EXPECT_DOUBLE_EQ(m_calc.Add(-20, 6 * kSecond, &llUsed), 10000.0);
  EXPECT_EQ(llUsed, -5);
  // No bucket at 5 s or 6 s: 0.2 s is not a step back.
  m_calc.Add(1000, 2 * kSecond / 10, &llUsed);
  EXPECT_EQ(llUsed, 2 * kSecond / 10);
}

class KBitrateCalcTest : public ::testing::Test {
 protected:
  KBitrateCalc m_calc;
};

TEST_F(KBitrateCalcTest, Rate_LeavesOutTheNewestPacketsBytes) {
  EXPECT_EQ(m_calc.Add(0, 1000, 10), 0);  // one entry
  EXPECT_EQ(m_calc.Add(kSecond, 5000, 10), 8000);  // 1000 bytes in 1 s, not 6000
  EXPECT_EQ(m_calc.Rate(), 8000);
}

TEST_F(KBitrateCalcTest, Rate_ZeroWithoutAPositiveSpan) {
  EXPECT_EQ(m_calc.Rate(), 0);
  m_calc.Add(5, 100, 1);
  EXPECT_EQ(m_calc.Add(5, 100, 1), 0);
  EXPECT_EQ(m_calc.Count(), 2u);
}

TEST_F(KBitrateCalcTest, UnsetTime_TakesTheNewestEntrysTime) {
  m_calc.Add(0, 100, 10);
  EXPECT_EQ(m_calc.Add(kSecond, 100, 10), 800);
  EXPECT_EQ(m_calc.Add(kUnsetTime, 100, 10), 1600);  // at 1 s: 200 bytes over 1 s
}

TEST_F(KBitrateCalcTest, UnsetTimeOnAnEmptyQueue_IsDroppedByTheFirstRealTime) {
  EXPECT_EQ(m_calc.Add(kUnsetTime, 100, 1.0), 0);
  EXPECT_EQ(m_calc.Add(kSecond, 100, 1.0), 0);
  EXPECT_EQ(m_calc.Count(), 1u);
  EXPECT_EQ(m_calc.Add(2 * kSecond, 300, 1.0), 800);
}

TEST_F(KBitrateCalcTest, Window_KeepsEntriesUpToExactlyTheWindowBeforeTheNewest) {
  for (int64_t t : {int64_t{0}, kSecond / 2, kSecond}) m_calc.Add(t, 1000, 1.0);
  EXPECT_EQ(m_calc.Count(), 3u);
  // At 1.5 s the entry at 0 goes; the one at 0.5 s is exactly one window back.
  EXPECT_EQ(m_calc.Add(3 * kSecond / 2, 1000, 1.0), 16000);
  EXPECT_EQ(m_calc.Count(), 3u);
}

TEST_F(KBitrateCalcTest, Window_IsRoundedHalfAwayFromZero) {
  // 2.5e-7 s is 2.5 units: 3, so an entry 3 units back stays.
  m_calc.Add(0, 100, 2.5e-7);
  m_calc.Add(3, 100, 2.5e-7);
  EXPECT_EQ(m_calc.Count(), 2u);
  // At 6 the entry at 0 goes; the one at 3 stays, 3 units back.
  m_calc.Add(6, 100, 2.5e-7);
  EXPECT_EQ(m_calc.Count(), 2u);
}

TEST_F(KBitrateCalcTest, Rate_IsRoundedHalfAwayFromZeroAndSaturates) {
  m_calc.Add(0, 1, 10);
  EXPECT_EQ(m_calc.Add(32000000, 7, 10), 3);  // 8 bits over 3.2 s = 2.5

  KBitrateCalc below;
  below.Add(0, 1, 10);
  EXPECT_EQ(below.Add(32100000, 7, 10), 2);  // 2.49

  KBitrateCalc huge;
  huge.Add(0, std::numeric_limits<int32_t>::max(), 10);
  EXPECT_EQ(huge.Add(1, 1, 10), std::numeric_limits<int32_t>::max());
}

TEST(KBitrateThreadTest, FeedAndReadFromTwoThreads_RatesStayPositive) {
  KBitrateCalculator calculator;
  calculator.Setup(0, 64, kSecond);
  KBitrateCalc calc;
  std::atomic<bool> bStop{false};
  std::thread feeder([&] {
    for (int64_t i = 0; !bStop; ++i) {
      calculator.Add(1000 + i % 7, i * 400000);
      calc.Add(i * 400000, static_cast<int32_t>(1000 + i % 7), 2.0);
    }
  });
  int nRates = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (std::chrono::steady_clock::now() < end) {
    const double dblRate = calculator.Rate();
    const int32_t nBits = calc.Rate();
    ASSERT_GE(dblRate, 0.0);
    ASSERT_GE(nBits, 0);
    if (dblRate > 0 && nBits > 0) ++nRates;
  }
  bStop = true;
  feeder.join();
  EXPECT_GT(nRates, 0);
  // Packets of about 1003 bytes every 0.04 s.
  EXPECT_NEAR(calculator.Rate(), 25075.0, 200.0);
  EXPECT_NEAR(calc.Rate(), 200600, 1700);
}

}  // namespace
