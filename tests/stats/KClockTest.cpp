// KClock and the rounding helpers behind it: conversion of counter ticks to
// reference time (halves away from zero, no overflow on long runs), strictly
// increasing readings, elapsed marks and the scale rate.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <thread>

#include "FakeCounter.h"
#include "KClock.h"
#include "KStatsMath.h"

namespace {

using vc::KClock;
using vctest::CFakeCounter;

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();

TEST(KStatsMathTest, RoundHalfAway_RoundsHalvesAwayFromZeroBothSigns) {
  EXPECT_EQ(vc::RoundHalfAway(2.5), 3);
  EXPECT_EQ(vc::RoundHalfAway(-2.5), -3);
  EXPECT_EQ(vc::RoundHalfAway(0.5), 1);
  EXPECT_EQ(vc::RoundHalfAway(-0.5), -1);
  EXPECT_EQ(vc::RoundHalfAway(2.4999), 2);
  EXPECT_EQ(vc::RoundHalfAway(-2.4999), -2);
  EXPECT_EQ(vc::RoundHalfAway(1e30), kInt64Max);
  EXPECT_EQ(vc::RoundHalfAway(-1e30), kInt64Min);
}

TEST(KStatsMathTest, MulDivRound_RoundsHalvesAwayExactlyAndSaturates) {
  EXPECT_EQ(vc::MulDivRound(5, 1, 2), 3);
  EXPECT_EQ(vc::MulDivRound(-5, 1, 2), -3);
  EXPECT_EQ(vc::MulDivRound(5, -1, 2), -3);
  EXPECT_EQ(vc::MulDivRound(5, 1, -2), -3);
  EXPECT_EQ(vc::MulDivRound(-5, 1, -2), 3);
  EXPECT_EQ(vc::MulDivRound(7, 1, 3), 2);    // 2.33
  EXPECT_EQ(vc::MulDivRound(-8, 1, 3), -3);  // -2.67
  EXPECT_EQ(vc::MulDivRound(6, 1, 4), 2);    // 1.5
  // 10^12 * 10^12 / 10^12 needs 80 bits in the middle.
  EXPECT_EQ(vc::MulDivRound(1000000000000LL, 1000000000000LL, 1000000000000LL), 1000000000000LL);
  EXPECT_EQ(vc::MulDivRound(kInt64Max, 2, 1), kInt64Max);
  EXPECT_EQ(vc::MulDivRound(kInt64Min, 2, 1), kInt64Min);
  EXPECT_EQ(vc::MulDivRound(12345, 10, 0), 0);
}

TEST(KClockTest, TicksToRefTime_RoundsHalvesAwayFromZero) {
  // 20 MHz: one tick is half a reference-time unit.
  EXPECT_EQ(KClock::TicksToRefTime(1, 20000000), 1);
  EXPECT_EQ(KClock::TicksToRefTime(-1, 20000000), -1);
  EXPECT_EQ(KClock::TicksToRefTime(3, 20000000), 2);
  EXPECT_EQ(KClock::TicksToRefTime(-3, 20000000), -2);
  // 3 Hz: thirds of a second.
  EXPECT_EQ(KClock::TicksToRefTime(1, 3), 3333333);
  EXPECT_EQ(KClock::TicksToRefTime(2, 3), 6666667);
}

TEST(KClockTest, TicksToRefTime_DoesNotOverflowOnLongRuns) {
  // A year of a nanosecond counter; ticks * 10^7 alone is far beyond int64.
  const int64_t llYearNs = 365LL * 24 * 3600 * 1000000000LL;
  EXPECT_EQ(KClock::TicksToRefTime(llYearNs, 1000000000), 365LL * 24 * 3600 * 10000000LL);
}

TEST(KClockTest, ScaleTicks_RoundsTheScaledDistanceHalfAwayAndAddsTheOffset) {
  EXPECT_EQ(KClock::ScaleTicks(105, 100, 0, 0.5), 3);      // 2.5
  EXPECT_EQ(KClock::ScaleTicks(95, 100, 0, 0.5), -3);      // -2.5
  EXPECT_EQ(KClock::ScaleTicks(105, 100, 1000, 0.5), 1003);
  EXPECT_EQ(KClock::ScaleTicks(110, 100, 7, 2.0), 27);
}

TEST(KClockTest, Now_CountsFromConstructionInReferenceTime) {
  CFakeCounter counter(5000000);
  KClock clock(counter.Fn(), 1000);  // a millisecond counter
  counter.Advance(1500);
  EXPECT_EQ(clock.Now(), 15000000);  // 1.5 s
}

TEST(KClockTest, Now_IsStrictlyIncreasingWhenTheCounterStandsStill) {
  CFakeCounter counter;
  KClock clock(counter.Fn(), CFakeCounter::kFrequency);
  const int64_t llFirst = clock.Now();
  const int64_t llSecond = clock.Now();
  const int64_t llThird = clock.Now();
  EXPECT_EQ(llFirst, 1);
  EXPECT_EQ(llSecond, 2);
  EXPECT_EQ(llThird, 3);
  // A counter that catches up is followed again, not the extra ticks.
  counter.Advance(100);
  EXPECT_EQ(clock.Now(), 100);
}

TEST(KClockTest, Elapsed_MeasuresFromTheLastRestartOnly) {
  CFakeCounter counter;
  KClock clock(counter.Fn(), CFakeCounter::kFrequency);
  counter.Advance(1000);
  int64_t llNow = 0;
  EXPECT_EQ(clock.Elapsed(false, &llNow), 1000);  // the mark starts at 0
  EXPECT_EQ(llNow, 1000);
  counter.Advance(500);
  EXPECT_EQ(clock.Elapsed(true), 1500);           // restarts at 1500
  counter.Advance(200);
  EXPECT_EQ(clock.Elapsed(false), 200);
  counter.Advance(300);
  EXPECT_EQ(clock.Elapsed(false), 500);           // the mark did not move
}

TEST(KClockTest, SetScale_RunsAtTheRateFromTheCurrentReadingOn) {
  CFakeCounter counter;
  KClock clock(counter.Fn(), CFakeCounter::kFrequency);
  counter.Advance(1000);
  clock.SetScale(2.0);  // pivot at raw 1000, continuing from 1000
  counter.Advance(500);
  EXPECT_EQ(clock.Now(), 2000);  // 1000 + 500 * 2
  counter.Advance(100);
  clock.SetScale(0.5);  // pivot at raw 1600, continuing from 2200
  counter.Advance(1001);
  EXPECT_EQ(clock.Now(), 2701);  // 2200 + round(500.5)
  counter.Advance(10);
  clock.SetScale(0.0);  // back to the counter's own time line
  EXPECT_EQ(clock.Now(), 2611);
}

TEST(KClockTest, SteadyClock_MeasuresASleepInReferenceTime) {
  KClock clock;
  ASSERT_GE(clock.Frequency(), 10000000);
  clock.Elapsed(true);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const int64_t llElapsed = clock.Elapsed(false);
  EXPECT_GE(llElapsed, 200000);     // at least 20 ms
  EXPECT_LT(llElapsed, 600000000);  // and not in nanoseconds (60 s)
}

}  // namespace
