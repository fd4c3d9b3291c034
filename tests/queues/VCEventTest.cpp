// The manual-reset event the queues hand out: stays set for every waiter
// until reset, timed waits, and waits on several events at once, including
// a set from another thread while the waiter sleeps.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "VCEvent.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(VCEventTest, ManualReset_StaysSetForEveryWaitUntilReset) {
  vc::CKEvent event;
  EXPECT_FALSE(event.IsSet());
  EXPECT_FALSE(event.Wait(0));
  event.Set();
  EXPECT_TRUE(event.Wait(0));
  EXPECT_TRUE(event.Wait(10));
  EXPECT_TRUE(event.Wait());
  event.Reset();
  EXPECT_FALSE(event.IsSet());
  EXPECT_TRUE(vc::CKEvent(true).IsSet());
}

TEST(VCEventTest, TimedWait_ReturnsFalseAfterTheTimeout) {
  vc::CKEvent event;
  const auto start = steady_clock::now();
  EXPECT_FALSE(event.Wait(30));
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
}

TEST(VCEventTest, SetFromOtherThread_ReleasesAllWaiters) {
  vc::CKEvent event;
  std::atomic<int> nReleased{0};
  std::vector<std::thread> vecWaiters;
  for (int i = 0; i < 3; ++i) {
    vecWaiters.emplace_back([&] {
      if (event.Wait()) ++nReleased;
    });
  }
  std::this_thread::sleep_for(milliseconds(20));
  event.Set();
  for (std::thread& t : vecWaiters) t.join();
  EXPECT_EQ(nReleased, 3);
}

TEST(VCEventTest, WaitAny_GivesLowestSetIndexOrMinusOne) {
  auto a = std::make_shared<vc::CKEvent>();
  auto b = std::make_shared<vc::CKEvent>();
  auto c = std::make_shared<vc::CKEvent>();
  const std::vector<vc::CKEventPtr> events = {a, nullptr, b, c};
  EXPECT_EQ(vc::CKEvent::WaitAny(events, 0), -1);
  EXPECT_EQ(vc::CKEvent::WaitAny(events, 20), -1);
  c->Set();
  EXPECT_EQ(vc::CKEvent::WaitAny(events, 0), 3);
  b->Set();
  EXPECT_EQ(vc::CKEvent::WaitAny(events), 2);
  EXPECT_EQ(vc::CKEvent::WaitAny(std::vector<vc::CKEventPtr>{}), -1);
  EXPECT_EQ(vc::CKEvent::WaitAny(std::vector<vc::CKEventPtr>{nullptr}), -1);
}

TEST(VCEventTest, WaitAny_WakesWhenOneIsSetWhileWaiting) {
  vc::CKEvent first;
  vc::CKEvent second;
  std::vector<vc::CKEvent*> events = {&first, &second};
  std::atomic<int> nIndex{-2};
  std::thread waiter([&] { nIndex = vc::CKEvent::WaitAny(events); });
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(nIndex, -2);
  second.Set();
  waiter.join();
  EXPECT_EQ(nIndex, 1);
}

TEST(VCEventTest, WaitAny_ManyRoundsOfSetAndReset) {
  // A waiter that misses a wake-up would hang here (the test would time out).
  vc::CKEvent events[2];
  std::vector<vc::CKEvent*> vecEvents = {&events[0], &events[1]};
  for (int nRound = 0; nRound < 300; ++nRound) {
    std::thread waiter([&] { EXPECT_EQ(vc::CKEvent::WaitAny(vecEvents), nRound % 2); });
    events[nRound % 2].Set();
    waiter.join();
    events[nRound % 2].Reset();
  }
}

}  // namespace
