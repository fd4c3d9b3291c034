// Gains, mixing and frames: ramps, saturation at the limits, lines mixed into
// lines, and audio moved into and out of frames through IVCFrame.
#include <cmath>
#include <limits>

#include "FFAudioBufferTestHelpers.h"
#include "FFFrame.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace vc::fftest {
namespace {

using std::vector;

constexpr double kHalfDb = -6.0206;  // 20 log10(0.5)

class FFAudioBufferMixTest : public AudioBufferFixture {
 protected:
  HRESULT MixLines(const char* pszFrom, const char* pszTo, LONG* plSamples, double dFromStart, double dFromEnd,
                   double dToStart = 0, double dToEnd = 0, const char* pszIn = "", const char* pszOut = "") {
    return m_cpBuf->BufferLinesMix(CBstr(std::string_view(pszFrom)), CBstr(std::string_view(pszTo)), plSamples,
                                   dFromStart, dFromEnd, dToStart, dToEnd, CBstr(std::string_view(pszIn)),
                                   CBstr(std::string_view(pszOut)));
  }
};

TEST_F(FFAudioBufferMixTest, Gain_MinusSixDbHalvesAndRampHitsBothEnds) {
  ASSERT_EQ(Put("from", Aud(1, 16), vector<int16_t>(3, 1000)), S_OK);
  LONG lSamples = 0;
  ASSERT_EQ(MixLines("from", "half", &lSamples, kHalfDb, kHalfDb), S_OK);
  EXPECT_EQ(lSamples, 3);
  EXPECT_EQ(Get<int16_t>("half", 3, 1), (vector<int16_t>(3, 500)));

  // Linear in amplitude from 1 to 0 over five samples: the first sample gets
  // the start gain, the last the end gain.
  ASSERT_EQ(Put("from", Aud(1, 16), vector<int16_t>(5, 1000)), S_OK);
  lSamples = 0;  // all of them; the count is in/out
  ASSERT_EQ(MixLines("from", "fade", &lSamples, 0.0, -std::numeric_limits<double>::infinity()), S_OK);
  EXPECT_EQ(Get<int16_t>("fade", 5, 1), (vector<int16_t>{1000, 750, 500, 250, 0}));

  ASSERT_EQ(Put("from", Aud(1, 16), vector<int16_t>(3, -1000)), S_OK);
  lSamples = 0;
  ASSERT_EQ(MixLines("from", "ramp", &lSamples, kHalfDb, 0.0), S_OK);
  EXPECT_EQ(Get<int16_t>("ramp", 3, 1), (vector<int16_t>{-500, -750, -1000}));
}

TEST_F(FFAudioBufferMixTest, LinesMix_SaturatesAtTheInt16Limits) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{30000, -30000, 20000, -20000}), S_OK);
  ASSERT_EQ(Put("b", Aud(2, 16), vector<int16_t>{10000, -10000, 12767, -12768}), S_OK);
  LONG lSamples = 0;
  ASSERT_EQ(MixLines("a", "b", &lSamples, 0, 0), S_OK);
  // Over the limit clips; exactly at the limit stays.
  EXPECT_EQ(Get<int16_t>("b", 2, 2), (vector<int16_t>{32767, -32768, 32767, -32768}));
}

TEST_F(FFAudioBufferMixTest, LinesMix_SaturatesAtTheInt32Limits) {
  ASSERT_EQ(Put("a", Aud(1, 32), vector<int32_t>{INT32_MAX, INT32_MIN}), S_OK);
  ASSERT_EQ(Put("b", Aud(1, 32), vector<int32_t>{1, -1}), S_OK);
  LONG lSamples = 0;
  ASSERT_EQ(MixLines("a", "b", &lSamples, 0, 0), S_OK);
  EXPECT_EQ(Get<int32_t>("b", 2, 1), (vector<int32_t>{INT32_MAX, INT32_MIN}));
}

TEST_F(FFAudioBufferMixTest, LinesMix_DucksTheTargetChannelsNamedAndTakesFromTheSource) {
  ASSERT_EQ(Put("voice", Aud(1, 16), vector<int16_t>{100, 100, 100}), S_OK);
  ASSERT_EQ(Put("prog", Aud(2, 16), vector<int16_t>{1000, 1000}), S_OK);
  LONG lSamples = 2;
  ASSERT_EQ(MixLines("voice", "prog", &lSamples, 0, 0, kHalfDb, kHalfDb, "", "1"), S_OK);
  EXPECT_EQ(lSamples, 2);
  // Channel 0 untouched; channel 1 halved plus the voice; the program line
  // grew to the two samples mixed.
  EXPECT_EQ(Get<int16_t>("prog", 2, 2), (vector<int16_t>{1000, 600, 0, 100}));
  EXPECT_EQ(Count("voice"), 1);

  // Nothing left to mix.
  ASSERT_EQ(MixLines("voice", "prog", &lSamples, 0, 0), S_OK);
  EXPECT_EQ(MixLines("voice", "prog", &lSamples, 0, 0), S_FALSE);
  EXPECT_EQ(lSamples, 0);
}

TEST_F(FFAudioBufferMixTest, LinesMix_RefusesBadArguments) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1}), S_OK);
  ASSERT_EQ(Put("other_rate", Aud(1, 16, 44100), vector<int16_t>{1}), S_OK);
  LONG lSamples = 0;
  EXPECT_EQ(MixLines("a", "A", &lSamples, 0, 0), E_INVALIDARG);
  EXPECT_EQ(MixLines("a", "b", &lSamples, std::nan(""), 0), E_INVALIDARG);
  EXPECT_EQ(MixLines("a", "b", &lSamples, 0, 0, std::numeric_limits<double>::infinity(), 0), E_INVALIDARG);
  EXPECT_EQ(MixLines("a", "other_rate", &lSamples, 0, 0), E_INVALIDARG);
  EXPECT_EQ(MixLines("a", "b", &lSamples, 0, 0, 0, 0, "", "1"), E_INVALIDARG);  // b would be mono
  EXPECT_EQ(m_cpBuf->BufferLinesMix(CBstr("a"), CBstr("b"), nullptr, 0, 0, 0, 0, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(Count("a"), 1);
  EXPECT_EQ(Props("b").nChannels, 0) << "a refused mix creates no line";
}

TEST_F(FFAudioBufferMixTest, FrameFill_EmptyFrameTakesTheLineFormatAndLeavesTheRest) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{1, -1, 2, -2, 3, -3}), S_OK);
  ComPtr<CTestFrame> cpFrame = CTestFrame::Make();
  LONG lSamples = 2;
  ASSERT_EQ(m_cpBuf->BufferFrameFill(CBstr("a"), cpFrame.Get(), &lSamples, CBstr("1")), S_OK);
  EXPECT_EQ(lSamples, 2);
  EXPECT_EQ(cpFrame->m_props.nChannels, 1);
  EXPECT_EQ(cpFrame->m_props.nSamplesPerSec, 48000);
  EXPECT_EQ(cpFrame->Samples<int16_t>(), (vector<int16_t>{-1, -2}));
  EXPECT_EQ(Get<int16_t>("a", 5, 2), (vector<int16_t>{3, -3}));
}

TEST_F(FFAudioBufferMixTest, FrameFill_KeepsTheFrameFormatAndSilencesWhatTheLineLacks) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{-5, 7}), S_OK);
  ComPtr<CTestFrame> cpFrame = CTestFrame::WithAudio(Aud(2, 32), vector<int32_t>(8, 123));
  LONG lSamples = 0;  // as many as the frame holds: 4
  ASSERT_EQ(m_cpBuf->BufferFrameFill(CBstr("a"), cpFrame.Get(), &lSamples, nullptr), S_OK);
  EXPECT_EQ(lSamples, 2);
  EXPECT_EQ(cpFrame->Samples<int32_t>(), (vector<int32_t>{-5 * 65536, -5 * 65536, 7 * 65536, 7 * 65536, 0, 0, 0, 0}));
  EXPECT_EQ(Count("a"), 0);

  lSamples = 4;
  EXPECT_EQ(m_cpBuf->BufferFrameFill(CBstr("a"), cpFrame.Get(), &lSamples, nullptr), S_FALSE);
  EXPECT_EQ(lSamples, 0);
  EXPECT_EQ(cpFrame->m_nAudioSetCalls, 1) << "an empty line leaves the frame alone";
}

TEST_F(FFAudioBufferMixTest, FrameMix_GainAndSaturationIntoChosenFrameChannels) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{20000, 20000, -20000, 4000, 4000}), S_OK);
  ComPtr<CTestFrame> cpFrame =
      CTestFrame::WithAudio(Aud(2, 16), vector<int16_t>{1, 20000, 2, 20000, 3, -20000, 4, 0});
  LONG lMixed = -1;
  ASSERT_EQ(m_cpBuf->BufferFrameMix(CBstr("a"), cpFrame.Get(), &lMixed, 0, kHalfDb, nullptr, CBstr("1")), S_OK);
  EXPECT_EQ(lMixed, 4);
  // Gains 1, 5/6, 2/3, 1/2 over the four samples; channel 0 untouched.
  EXPECT_EQ(cpFrame->Samples<int16_t>(), (vector<int16_t>{1, 32767, 2, 32767, 3, -32768, 4, 2000}));
  EXPECT_EQ(Get<int16_t>("a", 5, 1), (vector<int16_t>{4000}));
}

TEST_F(FFAudioBufferMixTest, FrameMix_NeedsAFrameWithAudioAtTheLineRate) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1, 2}), S_OK);
  LONG lMixed = 0;
  ComPtr<CTestFrame> cpEmpty = CTestFrame::Make();
  EXPECT_EQ(m_cpBuf->BufferFrameMix(CBstr("a"), cpEmpty.Get(), &lMixed, 0, 0, nullptr, nullptr), E_INVALIDARG);
  ComPtr<CTestFrame> cpOther = CTestFrame::WithAudio(Aud(1, 16, 44100), vector<int16_t>{0, 0});
  EXPECT_EQ(m_cpBuf->BufferFrameMix(CBstr("a"), cpOther.Get(), &lMixed, 0, 0, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferFrameMix(CBstr("a"), nullptr, &lMixed, 0, 0, nullptr, nullptr), E_POINTER);
  cpOther->m_hrPropsGet = E_ACCESSDENIED;
  EXPECT_EQ(m_cpBuf->BufferFrameMix(CBstr("a"), cpOther.Get(), &lMixed, 0, 0, nullptr, nullptr), E_ACCESSDENIED);
  EXPECT_EQ(Count("a"), 2);
}

TEST_F(FFAudioBufferMixTest, FrameChannelsAppend_AddsATrackAfterTheFrameChannels) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{10, 20, 11, 21, 12, 22}), S_OK);
  ComPtr<CTestFrame> cpFrame = CTestFrame::WithAudio(Aud(2, 16), vector<int16_t>{1, 2, 3, 4, 5, 6, 7, 8});
  LONG lSamples = 0;
  ASSERT_EQ(m_cpBuf->BufferFrameChannelsAppend(CBstr("a"), cpFrame.Get(), &lSamples, nullptr), S_OK);
  EXPECT_EQ(lSamples, 3);
  EXPECT_EQ(cpFrame->m_props.nChannels, 4);
  EXPECT_EQ(cpFrame->m_props.nTrackSplitBits, 0x4);
  EXPECT_EQ(cpFrame->Samples<int16_t>(),
            (vector<int16_t>{1, 2, 10, 20, 3, 4, 11, 21, 5, 6, 12, 22, 7, 8, 0, 0}));
  EXPECT_EQ(Count("a"), 0);

  // The new channels keep the track starts they had in the line.
  ASSERT_EQ(Put("q", Aud(4, 16, 48000, 0x4), vector<int16_t>{1, 2, 3, 4}), S_OK);
  lSamples = 1;
  ASSERT_EQ(m_cpBuf->BufferFrameChannelsAppend(CBstr("q"), cpFrame.Get(), &lSamples, CBstr("track:1,track:0")), S_OK);
  EXPECT_EQ(cpFrame->m_props.nChannels, 8);
  EXPECT_EQ(cpFrame->m_props.nTrackSplitBits, 0x4 | 0x10 | 0x40);
}

TEST_F(FFAudioBufferMixTest, FramePut_ConvertsAndTakesTheFrameTime) {
  K_AUD_PROPS props16 = Aud(2, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), &props16, TRUE), S_OK);
  ComPtr<CTestFrame> cpFrame = CTestFrame::WithAudio(Aud(1, 32), vector<int32_t>{65536, -65536 * 3});
  cpFrame->m_time.rtStartTime = 20000000;
  cpFrame->m_time.rtEndTime = 20000000 + 417;
  ASSERT_EQ(m_cpBuf->BufferFramePut(CBstr("a"), cpFrame.Get(), nullptr), S_OK);
  EXPECT_EQ(Get<int16_t>("a", 2, 2), (vector<int16_t>{1, 1, -3, -3}));
  LONGLONG rtStart = 0, rtEnd = 0;
  ASSERT_EQ(m_cpBuf->BufferTimesGet(CBstr("a"), &rtStart, &rtEnd), S_OK);
  EXPECT_EQ(rtStart, 20000000 + 417);  // two samples taken

  ComPtr<CTestFrame> cpNoAudio = CTestFrame::Make();
  EXPECT_EQ(m_cpBuf->BufferFramePut(CBstr("a"), cpNoAudio.Get(), nullptr), S_FALSE);
  EXPECT_EQ(m_cpBuf->BufferFramePut(CBstr("a"), nullptr, nullptr), E_POINTER);
}

TEST_F(FFAudioBufferMixTest, FrameFill_AFrameThatRefusesTheAudioKeepsItInTheLine) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1, 2, 3}), S_OK);
  ComPtr<CTestFrame> cpFrame = CTestFrame::Make();
  cpFrame->m_hrAudioSet = E_OUTOFMEMORY;
  LONG lSamples = 2;
  EXPECT_EQ(m_cpBuf->BufferFrameFill(CBstr("a"), cpFrame.Get(), &lSamples, nullptr), E_OUTOFMEMORY);
  LONG lAppend = 0;
  ASSERT_EQ(Put("b", Aud(1, 16), vector<int16_t>{4}), S_OK);
  ComPtr<CTestFrame> cpStereo = CTestFrame::WithAudio(Aud(2, 16), vector<int16_t>{0, 0});
  cpStereo->m_hrAudioSet = E_OUTOFMEMORY;
  EXPECT_EQ(m_cpBuf->BufferFrameChannelsAppend(CBstr("b"), cpStereo.Get(), &lAppend, nullptr), E_OUTOFMEMORY);
  EXPECT_EQ(Get<int16_t>("a", 5, 1), (vector<int16_t>{1, 2, 3}));
  EXPECT_EQ(Count("b"), 1);
}

TEST_F(FFAudioBufferMixTest, FramePut_FromTheModulesOwnFrame) {
  // A decoded-style audio frame of this module: 16-bit stereo, three samples.
  AVFrame* pAv = av_frame_alloc();
  ASSERT_NE(pAv, nullptr);
  pAv->format = AV_SAMPLE_FMT_S16;
  pAv->sample_rate = 48000;
  pAv->nb_samples = 3;
  av_channel_layout_default(&pAv->ch_layout, 2);
  ASSERT_GE(av_frame_get_buffer(pAv, 0), 0);
  const int16_t anSamples[] = {100, -100, 200, -200, 300, -300};
  std::memcpy(pAv->data[0], anSamples, sizeof anSamples);
  K_TIME time{};
  time.rtStartTime = 5000000;
  time.rtEndTime = 5000625;
  ComPtr<IVCFrame> cpFrame;
  const HRESULT hrFrame = ff::FrameFromAVFrame(pAv, time, 0, cpFrame.AddressOf());
  av_frame_free(&pAv);
  ASSERT_EQ(hrFrame, S_OK);

  ASSERT_EQ(m_cpBuf->BufferFramePut(CBstr("a"), cpFrame.Get(), CBstr("1")), S_OK);
  EXPECT_EQ(Props("a").nChannels, 1);
  LONGLONG rtStart = 0, rtEnd = 0;
  ASSERT_EQ(m_cpBuf->BufferTimesGet(CBstr("a"), &rtStart, &rtEnd), S_OK);
  EXPECT_EQ(rtStart, 5000000);
  EXPECT_EQ(rtEnd, 5000625);
  EXPECT_EQ(Get<int16_t>("a", 3, 1), (vector<int16_t>{-100, -200, -300}));
}

}  // namespace
}  // namespace vc::fftest
