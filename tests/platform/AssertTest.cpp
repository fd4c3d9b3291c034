// Assertions report the condition, path and line and let execution go on;
// the default report is a level-4 log line; handlers nest and are thread-safe.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "VCAssert.h"
#include "VCLog.h"

namespace {

TEST(AssertTest, FailedCheck_CountedAndExecutionContinues) {
  vc::CAssertCounter counter;
  bool bReachedAfter = false;
  const int nLine = __LINE__; VC_ASSERT(1 + 1 == 3);
  bReachedAfter = true;

  EXPECT_TRUE(bReachedAfter);
  EXPECT_EQ(counter.Count(), 1);
  EXPECT_EQ(counter.LastCondition(), "1 + 1 == 3");
  EXPECT_EQ(counter.LastPath(), "tests/platform/AssertTest.cpp");
  EXPECT_EQ(counter.LastLine(), nLine);
}

TEST(AssertTest, PassingCheck_EvaluatedOnceAndNotReported) {
  vc::CAssertCounter counter;
  int nEvaluated = 0;
  VC_ASSERT(++nEvaluated == 1);
  EXPECT_EQ(nEvaluated, 1);
  EXPECT_EQ(counter.Count(), 0);
  EXPECT_EQ(counter.LastCondition(), "");
}

TEST(AssertTest, ExplicitPath_IsReportedAsGiven) {
  vc::CAssertCounter counter;
  const void* pPacket = nullptr;
  const int nLine = __LINE__; VC_ASSERT_AT(pPacket != nullptr, "Include/VCCodecs/VCPackets");
  EXPECT_EQ(counter.Count(), 1);
  EXPECT_EQ(counter.LastCondition(), "pPacket != nullptr");
  EXPECT_EQ(counter.LastPath(), "Include/VCCodecs/VCPackets");
  EXPECT_EQ(counter.LastLine(), nLine);
}

TEST(AssertTest, DefaultReport_IsALevelFourLogLine) {
  vc::CLogCapture capture(vc::eVCLL_Error);
  const int nLine = __LINE__; VC_ASSERT_AT(2 < 1, "Include/VCCodecs/VCPackets");

  const std::vector<vc::LogRecord> records = capture.Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].nLevel, vc::eVCLL_Error);
  EXPECT_STREQ(records[0].pszFile, "Include/VCCodecs/VCPackets");
  EXPECT_EQ(records[0].nLine, nLine);
  EXPECT_EQ(records[0].strMessage,
            "ASSERT FAILED: 2 < 1 at Include/VCCodecs/VCPackets(" + std::to_string(nLine) + ")\n");
}

TEST(AssertTest, NestedCounters_RestoreTheOuterOnDestruction) {
  vc::CAssertCounter outer;
  {
    vc::CAssertCounter inner;
    VC_ASSERT(false);
    EXPECT_EQ(inner.Count(), 1);
  }
  EXPECT_EQ(outer.Count(), 0);
  VC_ASSERT(false);
  VC_ASSERT(false);
  EXPECT_EQ(outer.Count(), 2);
}

TEST(AssertTest, SetHandler_ReturnsPreviousAndEmptyMeansDefault) {
  vc::AssertHandler original = vc::AssertSetHandler(nullptr);  // whatever ran before: put back at the end
  int nCalls = 0;
  EXPECT_FALSE(vc::AssertSetHandler([&](const vc::AssertRecord& rec) {
    ++nCalls;
    EXPECT_STREQ(rec.pszCondition, "0");
  }));
  VC_ASSERT(0);
  EXPECT_EQ(nCalls, 1);

  vc::AssertHandler mine = vc::AssertSetHandler(nullptr);
  ASSERT_TRUE(mine);
  {
    vc::CLogCapture capture(vc::eVCLL_Error);
    VC_ASSERT(0);
    EXPECT_EQ(capture.Records().size(), 1u);  // the default report again
  }
  EXPECT_EQ(nCalls, 1);
  vc::AssertSetHandler(std::move(original));
}

TEST(AssertTest, ConcurrentFailures_AllCounted) {
  vc::CAssertCounter counter;
  constexpr int kThreads = 4;
  constexpr int kEach = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < kEach; ++i) VC_ASSERT(i < 0);
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(counter.Count(), kThreads * kEach);
  EXPECT_EQ(counter.LastCondition(), "i < 0");
}

}  // namespace
