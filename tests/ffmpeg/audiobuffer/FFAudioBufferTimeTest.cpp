// Line times: the start time moving on with every take, without rounding
// drift, and timed puts against the gap and overlap window.
#include "FFAudioBufferTestHelpers.h"

namespace vc::fftest {
namespace {

using std::vector;

constexpr LONGLONG kMs = 10000;  // reference time units per millisecond

std::pair<LONGLONG, LONGLONG> Span(LONGLONG rtStart, LONGLONG rtEnd) { return {rtStart, rtEnd}; }

class FFAudioBufferTimeTest : public AudioBufferFixture {
 protected:
  // 10 ms of mono 48 kHz audio at one level.
  static vector<int16_t> Block(int16_t nLevel) { return vector<int16_t>(480, nLevel); }

  void EnableTimes(LONGLONG rtMin, LONGLONG rtMax) {
    ASSERT_EQ(m_cpBuf->BufferTimesEnable(CBstr("a"), TRUE, rtMin, rtMax), S_OK);
  }
  std::pair<LONGLONG, LONGLONG> Times() {
    LONGLONG rtStart = 0, rtEnd = 0;
    m_cpBuf->BufferTimesGet(CBstr("a"), &rtStart, &rtEnd);
    return {rtStart, rtEnd};
  }
  // Runs of equal values in the line, taken out whole: {value, count}...
  vector<std::pair<int16_t, size_t>> Runs() {
    vector<std::pair<int16_t, size_t>> vecRuns;
    for (int16_t v : Get<int16_t>("a", 100000, 1)) {
      if (vecRuns.empty() || vecRuns.back().first != v) vecRuns.push_back({v, 0});
      ++vecRuns.back().second;
    }
    return vecRuns;
  }
  using Runs_t = vector<std::pair<int16_t, size_t>>;
};

TEST_F(FFAudioBufferTimeTest, Takes_MoveTheStartWithoutDrift) {
  ASSERT_EQ(PutAt("a", 1000 * kMs, Aud(1, 16), vector<int16_t>(4800, 1)), S_OK);
  EXPECT_EQ(Times(), Span(1000 * kMs, 1100 * kMs));
  // A sample at 48 kHz is 208.33 units: three single-sample gets move the
  // start by 625, not by 3 x 208.
  for (int k = 0; k < 3; ++k) ASSERT_EQ(Get<int16_t>("a", 1, 1).size(), 1u);
  EXPECT_EQ(Times(), Span(1000 * kMs + 625, 1100 * kMs));
  LONG lSamples = 1197;
  ASSERT_EQ(m_cpBuf->BufferRemove(CBstr("a"), &lSamples), S_OK);
  EXPECT_EQ(Times(), Span(1025 * kMs, 1100 * kMs));
}

TEST_F(FFAudioBufferTimeTest, NoTime_AnswersUnset) {
  LONGLONG rtStart = 0, rtEnd = 0;
  EXPECT_EQ(m_cpBuf->BufferTimesGet(CBstr("a"), &rtStart, &rtEnd), S_FALSE);
  EXPECT_EQ(rtStart, VC_TIME_UNSET);
  ASSERT_EQ(Put("a", Aud(1, 16), Block(1)), S_OK);
  EXPECT_EQ(m_cpBuf->BufferTimesGet(CBstr("a"), &rtStart, &rtEnd), S_FALSE);
  EXPECT_EQ(rtEnd, VC_TIME_UNSET);

  BOOL bEnabled = TRUE;
  LONGLONG rtMin = 1, rtMax = 1;
  EXPECT_EQ(m_cpBuf->BufferTimesIsEnabled(CBstr("a"), &bEnabled, &rtMin, &rtMax), S_OK);
  EXPECT_EQ(bEnabled, FALSE);
  EnableTimes(-3 * kMs, 4 * kMs);
  EXPECT_EQ(m_cpBuf->BufferTimesIsEnabled(CBstr("a"), &bEnabled, &rtMin, &rtMax), S_OK);
  EXPECT_EQ(bEnabled, TRUE);
  EXPECT_EQ(rtMin, -3 * kMs);
  EXPECT_EQ(rtMax, 4 * kMs);
}

TEST_F(FFAudioBufferTimeTest, Gap_BeyondTheWindowIsFilledWithSilence) {
  EnableTimes(-1 * kMs, 1 * kMs);
  ASSERT_EQ(PutAt("a", 0, Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(PutAt("a", 20 * kMs, Aud(1, 16), Block(2)), S_OK);
  EXPECT_EQ(Times(), Span(0, 30 * kMs));
  EXPECT_EQ(Runs(), (Runs_t{{1, 480}, {0, 480}, {2, 480}}));
}

TEST_F(FFAudioBufferTimeTest, Jitter_InsideTheWindowIsAppendedAsItIs) {
  EnableTimes(-1 * kMs, 1 * kMs);
  ASSERT_EQ(PutAt("a", 0, Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(PutAt("a", 10 * kMs + 5000, Aud(1, 16), Block(2)), S_OK);
  ASSERT_EQ(PutAt("a", 20 * kMs - 5000, Aud(1, 16), Block(3)), S_OK);
  EXPECT_EQ(Times(), Span(0, 30 * kMs));
  EXPECT_EQ(Runs(), (Runs_t{{1, 480}, {2, 480}, {3, 480}}));
}

TEST_F(FFAudioBufferTimeTest, Overlap_BeyondTheWindowDropsTheOverlappingStartOfThePut) {
  EnableTimes(-1 * kMs, 1 * kMs);
  ASSERT_EQ(PutAt("a", 0, Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(PutAt("a", 5 * kMs, Aud(1, 16), Block(2)), S_OK);
  EXPECT_EQ(Times(), Span(0, 15 * kMs));
  // A put wholly inside what the line already covers adds nothing.
  EXPECT_EQ(PutAt("a", 2 * kMs, Aud(1, 16), Block(3)), S_FALSE);
  EXPECT_EQ(Runs(), (Runs_t{{1, 480}, {2, 240}}));
}

TEST_F(FFAudioBufferTimeTest, Jump_MovesTheTimesInsteadOfFilling) {
  EnableTimes(-1 * kMs, 1 * kMs);
  ASSERT_EQ(PutAt("a", 0, Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(PutAt("a", 60000 * kMs, Aud(1, 16), Block(2)), S_OK);
  EXPECT_EQ(Count("a"), 960);
  EXPECT_EQ(Times(), Span(59990 * kMs, 60010 * kMs));
}

TEST_F(FFAudioBufferTimeTest, Disabled_PutTimesOnlyPlaceAnEmptyLine) {
  ASSERT_EQ(PutAt("a", 0, Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(PutAt("a", 50 * kMs, Aud(1, 16), Block(2)), S_OK);
  EXPECT_EQ(Times(), Span(0, 20 * kMs));
  EXPECT_EQ(Runs(), (Runs_t{{1, 480}, {2, 480}}));
  ASSERT_EQ(PutAt("a", 70 * kMs, Aud(1, 16), Block(3)), S_OK);
  EXPECT_EQ(Times(), Span(70 * kMs, 80 * kMs));
}

TEST_F(FFAudioBufferTimeTest, TimesSet_PlacesTheLineAndPadsToTheMinimumEnd) {
  ASSERT_EQ(Put("a", Aud(1, 16), Block(1)), S_OK);
  ASSERT_EQ(m_cpBuf->BufferTimesSet(CBstr("a"), 1000 * kMs, VC_TIME_UNSET), S_OK);
  EXPECT_EQ(Times(), Span(1000 * kMs, 1010 * kMs));
  ASSERT_EQ(m_cpBuf->BufferTimesSet(CBstr("a"), VC_TIME_UNSET, 1030 * kMs), S_OK);
  EXPECT_EQ(Times(), Span(1000 * kMs, 1030 * kMs));
  // An end already reached changes nothing; one far beyond is refused.
  ASSERT_EQ(m_cpBuf->BufferTimesSet(CBstr("a"), VC_TIME_UNSET, 1020 * kMs), S_OK);
  EXPECT_EQ(m_cpBuf->BufferTimesSet(CBstr("a"), VC_TIME_UNSET, 20000 * kMs), E_INVALIDARG);
  EXPECT_EQ(Runs(), (Runs_t{{1, 480}, {0, 960}}));
}

TEST_F(FFAudioBufferTimeTest, TimesSet_EndWithoutATimeIsRefused) {
  ASSERT_EQ(Put("a", Aud(1, 16), Block(1)), S_OK);
  EXPECT_EQ(m_cpBuf->BufferTimesSet(CBstr("a"), VC_TIME_UNSET, 30 * kMs), E_INVALIDARG);
  EXPECT_EQ(Count("a"), 480);
}

}  // namespace
}  // namespace vc::fftest
