// The decoder facade's repair of frame times at 25 frames per second: small
// gaps closed, near repeats moved on by one frame, real jumps marked as
// breaks, and the cases where nothing may be touched. The scripted decoder
// hands out each frame with the times the test gives it.
#include <gtest/gtest.h>

#include "ScriptedDecoderFixture.h"
#include "VCLog.h"

namespace vctest {
namespace {

class DecoderTimeRepairTest : public ScriptedDecoderTest {
 protected:
  void SetUp() override {
    ScriptedDecoderTest::SetUp();
    UseGeneralOnly();
  }
  // Decodes a packet whose frame comes out with the given times and
  // returns the times the caller gets.
  K_TIME DecodeFrame(LONGLONG rtStart, LONGLONG rtEnd, LONG eFFlags = 0, LONGLONG rtSegmentStart = -1,
                     LONG ePacketFlags = eVCPF_None, double dblRate = 25.0) {
    m_pScript->Expect(Step::Frame(rtStart, rtEnd, dblRate, eFFlags));
    vc::ComPtr<IVCFrame> cpFrame;
    EXPECT_EQ(Decode(Packet(VideoStream(), rtStart, rtEnd, ePacketFlags).Get(), &cpFrame, rtSegmentStart), S_OK);
    if (!cpFrame) return K_TIME{};
    return TimeOf(cpFrame.Get());
  }
};

TEST_F(DecoderTimeRepairTest, SmallGap_MovedToThePreviousEndAboveOneMillisecondOnly) {
  DecodeFrame(0, kFrame);
  vc::CLogCapture log(vc::eVCLL_Retry);
  K_TIME time = DecodeFrame(kFrame + 2 * kMsec, 2 * kFrame + 2 * kMsec);  // 2 ms late
  EXPECT_EQ(time.rtStartTime, kFrame);
  EXPECT_EQ(time.rtEndTime, 2 * kFrame + 2 * kMsec);
  EXPECT_EQ(time.eFFlags & eKFF_Break, 0);
  EXPECT_TRUE(log.Contains("Correct 0 (Diff:"));

  log.Clear();
  const LONGLONG rtPrevEnd = time.rtEndTime;
  time = DecodeFrame(rtPrevEnd + 5000, rtPrevEnd + 5000 + kFrame);  // 0.5 ms late
  EXPECT_EQ(time.rtStartTime, rtPrevEnd + 5000);
  EXPECT_FALSE(log.Contains("Correct"));
}

TEST_F(DecoderTimeRepairTest, HundredMillisecondGap_CorrectPathMovesTheStartAndKeepsTheEnd) {
  DecodeFrame(0, kFrame);
  vc::CLogCapture log(vc::eVCLL_Retry);
  const K_TIME time = DecodeFrame(kFrame + 100 * kMsec, 2 * kFrame + 100 * kMsec);
  EXPECT_EQ(time.rtStartTime, kFrame);
  EXPECT_EQ(time.rtEndTime, 2 * kFrame + 100 * kMsec);
  EXPECT_TRUE(log.Contains("Correct 3 (Diff:"));  // 2.5 frames, rounded away from zero
  EXPECT_FALSE(log.Contains("Correct endTime"));
}

TEST_F(DecoderTimeRepairTest, ExactRepeat_MovedOnByOneFrameWithoutSegment_BreakWithASegment) {
  DecodeFrame(0, kFrame);
  {
    vc::CLogCapture log(vc::eVCLL_Retry);
    const K_TIME time = DecodeFrame(0, kFrame);
    EXPECT_EQ(time.rtStartTime, kFrame);
    EXPECT_EQ(time.rtEndTime, kFrame + 400000);
    EXPECT_EQ(time.eFFlags & eKFF_Break, 0);
    EXPECT_TRUE(log.Contains("Correct endTime 1 (Diff:"));
  }
  // The same repeat inside a segment (start 0): marked, times left.
  vc::CLogCapture log(vc::eVCLL_Retry);
  const K_TIME time = DecodeFrame(kFrame, kFrame + 400000, 0, /*rtSegmentStart=*/0);
  EXPECT_EQ(time.rtStartTime, kFrame);
  EXPECT_EQ(time.rtEndTime, kFrame + 400000);
  EXPECT_EQ(time.eFFlags, eKFF_Break);
  EXPECT_TRUE(log.Contains("Force BREAK 1 (Diff:"));
}

TEST_F(DecoderTimeRepairTest, ExactRepeat_FrameLengthFollowsTheFramesRate_TwentyFiveWithoutOne) {
  DecodeFrame(0, kFrame, 0, -1, eVCPF_None, 50.0);
  K_TIME time = DecodeFrame(0, kFrame, 0, -1, eVCPF_None, 50.0);
  EXPECT_EQ(time.rtStartTime, kFrame);
  EXPECT_EQ(time.rtEndTime, kFrame + 200000);

  time = DecodeFrame(kFrame, kFrame + 200000, 0, -1, eVCPF_None, 0.0);  // no rate: 25 fps
  EXPECT_EQ(time.rtStartTime, kFrame + 200000);
  EXPECT_EQ(time.rtEndTime, kFrame + 600000);
}

TEST_F(DecoderTimeRepairTest, OneSecondJump_IsABreak_FlagsGainBreakAndLoseDuplicateAndPause) {
  DecodeFrame(0, kFrame);
  vc::CLogCapture log(vc::eVCLL_Retry);
  const LONG eIn = 0x30 | eKFF_AddedFrame | eKFF_Intra;
  const K_TIME time = DecodeFrame(kFrame + VC_TIME_SECOND, 2 * kFrame + VC_TIME_SECOND, eIn);
  EXPECT_EQ(time.rtStartTime, kFrame + VC_TIME_SECOND);
  EXPECT_EQ(time.rtEndTime, 2 * kFrame + VC_TIME_SECOND);
  EXPECT_EQ(time.eFFlags, eKFF_Break | eKFF_AddedFrame | eKFF_Intra);
  EXPECT_TRUE(log.Contains("Force BREAK 25 (Diff:"));
}

TEST_F(DecoderTimeRepairTest, FirstFrameAfterASegmentStartPacket_IsLeftAlone) {
  DecodeFrame(0, kFrame);
  DecodeFrame(kFrame, 2 * kFrame);
  vc::CLogCapture log(vc::eVCLL_Progress);
  // Far back and overlapping: anything but the first frame would be repaired.
  const K_TIME time = DecodeFrame(10 * kMsec, 30 * kMsec, 0x10, -1, eVCPF_SegmentStart | eVCPF_KeyFrame);
  EXPECT_EQ(time.rtStartTime, 10 * kMsec);
  EXPECT_EQ(time.rtEndTime, 30 * kMsec);
  EXPECT_EQ(time.eFFlags, 0x10);
  EXPECT_TRUE(log.Contains("SEGMENT START ["));
  EXPECT_FALSE(log.Contains("Correct"));
  EXPECT_FALSE(log.Contains("Force BREAK"));
  // The one after it is compared with it again.
  EXPECT_EQ(DecodeFrame(32 * kMsec, 72 * kMsec).rtStartTime, 30 * kMsec);
}

TEST_F(DecoderTimeRepairTest, CorrectTimesOff_LeavesEveryTimeAndFlagAlone) {
  SetProp("decode.correct_times", "false");
  DecodeFrame(0, kFrame);
  EXPECT_EQ(DecodeFrame(kFrame + 2 * kMsec, 2 * kFrame).rtStartTime, kFrame + 2 * kMsec);
  const K_TIME repeat = DecodeFrame(kFrame + 2 * kMsec, 2 * kFrame);
  EXPECT_EQ(repeat.rtStartTime, kFrame + 2 * kMsec);
  EXPECT_EQ(repeat.rtEndTime, 2 * kFrame);
  const K_TIME jump = DecodeFrame(5 * VC_TIME_SECOND, 5 * VC_TIME_SECOND + kFrame, 0x10);
  EXPECT_EQ(jump.eFFlags, 0x10);
}

}  // namespace
}  // namespace vctest
