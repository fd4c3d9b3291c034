// The frame converter: pictures to another size and format, audio through a
// resampler kept per channel (seamless times, held samples, flush), frames
// of other implementations made local first.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "FFClasses.h"
#include "FFConverter.h"
#include "FFFrame.h"
#include "FrameDouble.h"
#include "VCComPtr.h"
#include "VCConverter.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using namespace vc::ff;

constexpr LONGLONG kSec = VC_TIME_SECOND;

ComPtr<IVCConverter> NewConverter() {
  ComPtr<IVCConverter> cp;
  EXPECT_EQ(CreateFFConverter(nullptr, vc::IidOf<IVCConverter>(), reinterpret_cast<void**>(cp.AddressOf())), S_OK);
  return cp;
}

ComPtr<IVCFrame> Picture(int nWidth, int nHeight, LONGLONG rtStart) {
  ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(CreateFFFrame(nullptr, vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf())), S_OK);
  K_AV_PROPS props{};
  props.vidProps.fccType = eVCCC_I420;
  props.vidProps.nWidth = nWidth;
  props.vidProps.nHeight = nHeight;
  props.vidProps.dblRate = 25.0;
  EXPECT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  LONG cb = 0;
  LONGLONG lp = 0;
  EXPECT_EQ(cpFrame->VCVideoGetBytes(&cb, &lp), S_OK);
  auto* p = reinterpret_cast<uint8_t*>(lp);
  for (LONG n = 0; n < cb; ++n) p[n] = static_cast<uint8_t>(n * 7 + 3);
  K_TIME time{rtStart, rtStart + kSec / 25, {}, eKFF_None};
  EXPECT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  return cpFrame;
}

// nSamples of 16-bit stereo at nRate, starting at rtStart.
ComPtr<IVCFrame> Sound(int nSamples, int nRate, LONGLONG rtStart) {
  ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(CreateFFFrame(nullptr, vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf())), S_OK);
  std::vector<int16_t> vec(static_cast<size_t>(nSamples) * 2);
  for (size_t n = 0; n < vec.size(); ++n) vec[n] = static_cast<int16_t>((n * 37) % 2000 - 1000);
  K_AUD_PROPS aud{2, nRate, 16, 0};
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, static_cast<LONG>(vec.size() * 2), reinterpret_cast<LONGLONG>(vec.data())), S_OK);
  K_TIME time{rtStart, rtStart + static_cast<LONGLONG>(nSamples) * kSec / nRate, {}, eKFF_None};
  EXPECT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  return cpFrame;
}

K_AV_PROPS AudioTarget(int nRate) {
  K_AV_PROPS target{};
  target.vidProps.eVideoFormat = eKVF_Disabled;
  target.audProps.nSamplesPerSec = nRate;
  return target;
}

LONG SamplesOf(IVCFrame* pFrame, K_AV_PROPS* pProps = nullptr) {
  K_AV_PROPS props{};
  LONG lSamples = 0;
  EXPECT_EQ(pFrame->VCAVPropsGet(&props, &lSamples), S_OK);
  if (pProps) *pProps = props;
  return lSamples;
}

K_TIME TimeOf(IVCFrame* pFrame) {
  K_TIME time{};
  EXPECT_EQ(pFrame->VCTimeGet(&time), S_OK);
  return time;
}

TEST(FFConverterTest, Picture_ScaledAndReformatted_TimeKept_UnchangedFrameHandedBack) {
  ComPtr<IVCConverter> cpConverter = NewConverter();
  ComPtr<IVCFrame> cpIn = Picture(320, 240, 2 * kSec);
  K_AV_PROPS target{};
  target.vidProps.fccType = eVCCC_UYVY;
  target.vidProps.nWidth = 160;
  target.vidProps.nHeight = 120;
  target.audProps.nChannels = -1;
  ComPtr<IVCFrame> cpOut;
  ASSERT_EQ(cpConverter->ConverterFramePut(CBstr(std::string_view("v")), cpIn.Get(), &target, cpOut.AddressOf(), nullptr),
            S_OK);
  K_AV_PROPS props{};
  SamplesOf(cpOut.Get(), &props);
  EXPECT_EQ(props.vidProps.fccType, eVCCC_UYVY);
  EXPECT_EQ(props.vidProps.nWidth, 160);
  EXPECT_EQ(props.vidProps.nHeight, 120);
  EXPECT_EQ(TimeOf(cpOut.Get()).rtStartTime, 2 * kSec);

  // A target the frame already meets: no conversion, the same frame.
  K_AV_PROPS same{};
  same.audProps.nChannels = -1;
  ComPtr<IVCFrame> cpSame;
  ASSERT_EQ(cpConverter->ConverterFramePut(nullptr, cpIn.Get(), &same, cpSame.AddressOf(), nullptr), S_OK);
  EXPECT_EQ(cpSame.Get(), cpIn.Get());
}

TEST(FFConverterTest, Audio_RateChangeIsSeamlessAcrossFramesAndTheFlushGivesTheRest) {
  ComPtr<IVCConverter> cpConverter = NewConverter();
  const CBstr bsChannel(std::string_view("vcencoder"));
  K_AV_PROPS target = AudioTarget(44100);
  LONGLONG llOut = 0;
  LONGLONG rtExpected = kSec;  // each output starts where the last ended
  for (int n = 0; n < 10; ++n) {
    ComPtr<IVCFrame> cpIn = Sound(1024, 48000, kSec + static_cast<LONGLONG>(n) * 1024 * kSec / 48000);
    ComPtr<IVCFrame> cpOut;
    const HRESULT hr = cpConverter->ConverterFramePut(bsChannel, cpIn.Get(), &target, cpOut.AddressOf(), nullptr);
    ASSERT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
    if (hr == S_FALSE) {
      EXPECT_FALSE(cpOut);
      continue;
    }
    K_AV_PROPS props{};
    const LONG lSamples = SamplesOf(cpOut.Get(), &props);
    EXPECT_EQ(props.audProps.nSamplesPerSec, 44100);
    EXPECT_EQ(TimeOf(cpOut.Get()).rtStartTime, rtExpected);
    rtExpected = TimeOf(cpOut.Get()).rtEndTime;
    llOut += lSamples;
  }
  ComPtr<IVCFrame> cpRest;
  if (cpConverter->ConverterFlush(bsChannel, cpRest.AddressOf()) == S_OK) {
    EXPECT_EQ(TimeOf(cpRest.Get()).rtStartTime, rtExpected);
    llOut += SamplesOf(cpRest.Get());
  }
  // 10240 samples at 48 kHz are 9408 at 44.1 kHz; the resampler's edges may
  // cost a few.
  EXPECT_NEAR(static_cast<double>(llOut), 9408.0, 16.0);
  // The channel is gone after the flush.
  EXPECT_EQ(cpConverter->ConverterFlush(bsChannel, nullptr), S_FALSE);
}

TEST(FFConverterTest, Audio_ATinyFrameIsAbsorbed_ChannelsAreIndependent) {
  ComPtr<IVCConverter> cpConverter = NewConverter();
  K_AV_PROPS target = AudioTarget(8000);
  ComPtr<IVCFrame> cpOut;
  // Two samples at 48 kHz make a third of a sample at 8 kHz: held back.
  EXPECT_EQ(cpConverter->ConverterFramePut(CBstr(std::string_view("a")), Sound(2, 48000, 0).Get(), &target,
                                           cpOut.AddressOf(), nullptr),
            S_FALSE);
  EXPECT_FALSE(cpOut);
  // Another channel knows nothing of it, and flushing it leaves "a" alone.
  EXPECT_EQ(cpConverter->ConverterFramePut(CBstr(std::string_view("b")), Sound(4800, 48000, 0).Get(), &target,
                                           cpOut.AddressOf(), nullptr),
            S_OK);
  EXPECT_NEAR(SamplesOf(cpOut.Get()), 800, 16);
  cpConverter->ConverterFlush(CBstr(std::string_view("b")), nullptr);
  ComPtr<IVCFrame> cpNext;
  EXPECT_EQ(cpConverter->ConverterFramePut(CBstr(std::string_view("a")), Sound(4800, 48000, 10 * kSec).Get(), &target,
                                           cpNext.AddressOf(), nullptr),
            S_OK);
  // The samples held since 0 come first: the output starts there, not at 10 s.
  EXPECT_EQ(TimeOf(cpNext.Get()).rtStartTime, 0);
}

// A picture of another implementation, as if from another process.
class CForeignPicture final : public vctest::CCountedFrameDouble {
 public:
  explicit CForeignPicture(ComPtr<IVCFrame> cpInner) : m_cpInner(std::move(cpInner)) {}
  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* p, LONG* pl) override { return m_cpInner->VCAVPropsGet(p, pl); }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* p) override { return m_cpInner->VCTimeGet(p); }
  HRESULT STDMETHODCALLTYPE VCVideoGetBytesEx(VC_VID_PTR* p) override { return m_cpInner->VCVideoGetBytesEx(p); }

 private:
  ComPtr<IVCFrame> m_cpInner;
};

TEST(FFConverterTest, ForeignFrame_IsCopiedIntoALocalFrameBeforeConverting) {
  ComPtr<IVCConverter> cpConverter = NewConverter();
  ComPtr<IVCFrame> cpInner = Picture(64, 48, 5 * kSec);
  ComPtr<IVCFrame> cpForeign;
  cpForeign.Attach(new CForeignPicture(cpInner));
  K_AV_PROPS same{};
  same.audProps.nChannels = -1;
  ComPtr<IVCFrame> cpOut;
  ASSERT_EQ(cpConverter->ConverterFramePut(nullptr, cpForeign.Get(), &same, cpOut.AddressOf(), nullptr), S_OK);
  ASSERT_NE(FrameAVFrame(cpOut.Get()), nullptr);  // one of ours now
  EXPECT_EQ(TimeOf(cpOut.Get()).rtStartTime, 5 * kSec);
  LONG cbIn = 0, cbOut = 0;
  LONGLONG lpIn = 0, lpOut = 0;
  ASSERT_EQ(cpInner->VCVideoGetBytes(&cbIn, &lpIn), S_OK);
  ASSERT_EQ(cpOut->VCVideoGetBytes(&cbOut, &lpOut), S_OK);
  ASSERT_EQ(cbIn, cbOut);
  EXPECT_EQ(std::memcmp(reinterpret_cast<const void*>(lpIn), reinterpret_cast<const void*>(lpOut),
                        static_cast<size_t>(cbIn)),
            0);
}

TEST(FFConverterTest, MissingArguments_AnswerEPointer) {
  ComPtr<IVCConverter> cpConverter = NewConverter();
  K_AV_PROPS target{};
  ComPtr<IVCFrame> cpOut;
  EXPECT_EQ(cpConverter->ConverterFramePut(nullptr, nullptr, &target, cpOut.AddressOf(), nullptr), E_POINTER);
  EXPECT_EQ(cpConverter->ConverterFramePut(nullptr, Sound(16, 48000, 0).Get(), nullptr, cpOut.AddressOf(), nullptr),
            E_POINTER);
  EXPECT_EQ(cpConverter->ConverterFlush(CBstr(std::string_view("never")), nullptr), S_FALSE);
}

}  // namespace
