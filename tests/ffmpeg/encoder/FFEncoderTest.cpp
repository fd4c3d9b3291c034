// The general encoder and the device encoder classes: generated pictures and
// tones encoded, decoded back with the module's decoder and compared
// (frame counts, PSNR, duration, times), the drain at EncodeClose, the packet
// wait, and the refusals (unknown codec, wrong media type, frames before a
// codec, missing devices).
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <chrono>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFCommon.h"
#include "FFDecoderTestSource.h"
#include "FFEncoder.h"
#include "FFFrame.h"
#include "FFFrameScale.h"
#include "FFHwDecoder.h"
#include "FFPointers.h"
#include "FFTestFrames.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCLog.h"

namespace {

using vc::ComPtr;
using vc::ff::AvFramePtr;

constexpr HRESULT kEmpty = static_cast<HRESULT>(0x800710D2u);
constexpr HRESULT kTimeout = static_cast<HRESULT>(0x800705B4u);
constexpr HRESULT kNotSupported = static_cast<HRESULT>(0x80070032u);
constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr LONGLONG kFrame = VC_TIME_SECOND / 25;

using vc::fftest::MovingGradient;
using vc::fftest::PsnrY;
using vc::fftest::ToneFrame;

ComPtr<IVCFrame> VideoFrame(int n) { return vc::fftest::PictureFrame(*MovingGradient(n), n); }

class FFEncoderTest : public ::testing::Test {
 protected:
  void Create(HRESULT (*pfnCreate)(IUnknown*, REFIID, void**) = &vc::ff::CreateFFEncoder) {
    m_cpEncoder.Release();
    ASSERT_EQ(pfnCreate(nullptr, vc::IidOf<IVCEncoder>(), reinterpret_cast<void**>(m_cpEncoder.AddressOf())), S_OK);
  }
  void SetUp() override { Create(); }

  HRESULT Set(eVCMediaType eType, const char16_t* szConfig) {
    vc::CBstr bs{vc::StringView(szConfig)};
    return m_cpEncoder->EncodeCodecSet(eType, bs);
  }
  // Every packet ready now.
  void TakeAll() {
    for (;;) {
      ComPtr<IVCPacket> cp;
      if (m_cpEncoder->EncodePacketsGet(cp.AddressOf(), nullptr, 0, nullptr) != S_OK) break;
      m_vecPackets.push_back(cp);
    }
  }
  void Put(IVCFrame* pFrame) {
    ASSERT_EQ(m_cpEncoder->EncodeFramePut(pFrame, nullptr, nullptr, nullptr), S_OK);
    TakeAll();
  }
  void Close() {
    ASSERT_EQ(m_cpEncoder->EncodeClose(), S_OK);
    TakeAll();
  }
  vc::fftest::CDecoderRun DecodeBack() {
    ComPtr<IVCDecoder> cpDecoder;
    EXPECT_EQ(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(cpDecoder.AddressOf())), S_OK);
    BOOL bSupported = FALSE;
    EXPECT_EQ(cpDecoder->DecodeIsSupported(nullptr, m_vecPackets.front().Get(), &bSupported), S_OK);
    return vc::fftest::RunDecoder(cpDecoder.Get(), m_vecPackets);
  }
  std::string Prop(const char* szName) { return vc::fftest::PropText(m_cpEncoder.Get(), szName); }

  ComPtr<IVCEncoder> m_cpEncoder;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
};

struct VideoCase {
  const char16_t* szConfig;
  const char* szCodecName;  // the stream description's codec
};

class FFEncoderVideoTest : public FFEncoderTest, public ::testing::WithParamInterface<VideoCase> {};

TEST_P(FFEncoderVideoTest, RoundTrip_KeepsFramesTimesAndQuality) {
  ASSERT_EQ(Set(eVCMT_Video, GetParam().szConfig), S_OK);
  constexpr int kFrames = 30;
  std::vector<AvFramePtr> vecSources;
  for (int n = 0; n < kFrames; ++n) {
    vecSources.push_back(MovingGradient(n));
    Put(VideoFrame(n).Get());
  }
  const size_t nBeforeClose = m_vecPackets.size();
  Close();
  ASSERT_EQ(m_vecPackets.size(), size_t(kFrames)) << "one packet per frame, delayed ones after the drain";
  EXPECT_GE(m_vecPackets.size(), nBeforeClose);

  // Packets carry their frames' times and the stream description.
  std::vector<LONGLONG> vecStarts;
  for (const auto& cp : m_vecPackets) {
    K_TIME time{};
    ASSERT_EQ(cp->PacketTimeGet(&time), S_OK);
    vecStarts.push_back(time.rtStartTime);
  }
  std::sort(vecStarts.begin(), vecStarts.end());
  for (int n = 0; n < kFrames; ++n) EXPECT_EQ(vecStarts[n], n * kFrame);
  K_PACKET_INFO first{};
  ASSERT_EQ(m_vecPackets.front()->PacketInfoGet(&first), S_OK);
  EXPECT_TRUE(first.eFlags & eVCPF_KeyFrame);
  vc::CKStreamInfo stream;
  ASSERT_EQ(vc::VCPacketStreamInfo(m_vecPackets.front().Get(), &stream), S_OK);
  EXPECT_EQ(vc::ToUtf8(vc::View(stream.bsCodecNameOrTag)), GetParam().szCodecName);
  EXPECT_EQ(stream.nWidth, kWidth);
  EXPECT_EQ(stream.nHeight, kHeight);
  EXPECT_DOUBLE_EQ(stream.dblRate, 25.0);

  const vc::fftest::CDecoderRun run = DecodeBack();
  EXPECT_EQ(run.nPacketFailures, 0);
  ASSERT_EQ(run.vecFrames.size(), size_t(kFrames));
  for (int n = 0; n < kFrames; ++n) {
    const AVFrame* pDecoded = vc::ff::FrameAVFrame(run.vecFrames[n].Get());
    ASSERT_NE(pDecoded, nullptr);
    EXPECT_GT(PsnrY(*vecSources[n], *pDecoded), 35.0) << "frame " << n;
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, FFEncoderVideoTest,
                         ::testing::Values(VideoCase{u"codec=libx264 bitrate=2000000 preset=veryfast", "h264"},
                                           VideoCase{u"codec=mpeg2video bitrate=4000000 b_frames=2", "mpeg2video"},
                                           VideoCase{u"codec=cpu_h264 quality=18", "h264"}),
                         [](const auto& param) { return std::to_string(param.index); });

struct AudioCase {
  const char16_t* szConfig;
  int nCodecFrame;  // samples a packet holds (0: any)
};

class FFEncoderAudioTest : public FFEncoderTest, public ::testing::WithParamInterface<AudioCase> {};

TEST_P(FFEncoderAudioTest, RoundTrip_KeepsDurationWithinOneCodecFrame) {
  ASSERT_EQ(Set(eVCMT_Audio, GetParam().szConfig), S_OK);
  // Blocks that are not the codec's frame size: the encoder regroups them.
  int64_t llTotal = 0;
  for (int i = 0; i < 20; ++i) {
    Put(ToneFrame(llTotal, 700).Get());
    llTotal += 700;
  }
  Close();
  ASSERT_FALSE(m_vecPackets.empty());
  LONGLONG rtLast = std::numeric_limits<LONGLONG>::min();
  LONGLONG rtFirst = 0;
  for (const auto& cp : m_vecPackets) {
    K_TIME time{};
    ASSERT_EQ(cp->PacketTimeGet(&time), S_OK);
    EXPECT_GT(time.rtStartTime, rtLast) << "packet times rise";
    if (rtLast == std::numeric_limits<LONGLONG>::min()) rtFirst = time.rtStartTime;
    rtLast = time.rtStartTime;
  }
  // Samples before time 0 are the codec's priming (AAC's 1024), which a
  // decoder without the skip information gives back.
  const int64_t llPriming = rtFirst < 0 ? -rtFirst * 48000 / VC_TIME_SECOND : 0;
  const vc::fftest::CDecoderRun run = DecodeBack();
  EXPECT_EQ(run.nPacketFailures, 0);
  int64_t llDecoded = 0;
  for (const auto& cp : run.vecFrames) {
    LONG lSamples = 0;
    vc::fftest::FrameProps(cp.Get(), &lSamples);
    llDecoded += lSamples;
  }
  const int nTolerance = GetParam().nCodecFrame > 0 ? GetParam().nCodecFrame : 1;
  EXPECT_GE(llDecoded, llTotal + llPriming);
  EXPECT_LE(llDecoded, llTotal + llPriming + nTolerance) << "decoded " << llDecoded << " of " << llTotal;
}

INSTANTIATE_TEST_SUITE_P(Codecs, FFEncoderAudioTest,
                         ::testing::Values(AudioCase{u"codec=aac bitrate=128000", 1024},
                                           AudioCase{u"codec=flac", 4608},
                                           AudioCase{u"codec=pcm_s16le", 0}),
                         [](const auto& param) { return std::to_string(param.index); });

TEST_F(FFEncoderTest, GenericName_PublishesTheRealEncoder) {
  ASSERT_EQ(Set(eVCMT_Video, u"codec=cpu_h264"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "libx264");
  EXPECT_EQ(Prop("codec::codec"), "libx264");
}

TEST_F(FFEncoderTest, Refusals_GiveCodesAndLogLines) {
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(Set(eVCMT_Video, u"codec=no_such_codec"), kNotSupported);
  EXPECT_TRUE(log.Contains("no encoder 'no_such_codec'"));
  EXPECT_EQ(Set(eVCMT_Video, u"codec=aac"), kNotSupported);
  EXPECT_TRUE(log.Contains("'aac' is not a video encoder"));
  EXPECT_EQ(Set(eVCMT_Audio, u"codec=libx264"), kNotSupported);
  EXPECT_TRUE(log.Contains("'libx264' is not an audio encoder"));
  // No codec chosen: frames are refused and nothing is waiting.
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(VideoFrame(0).Get(), nullptr, nullptr, nullptr), kEmpty);
  EXPECT_TRUE(log.Contains("EncodeFramePut before EncodeCodecSet"));
  ComPtr<IVCPacket> cp;
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(cp.AddressOf(), nullptr, 0, nullptr), kEmpty);
}

TEST_F(FFEncoderTest, AudioFrameToVideoEncoder_IsRefused) {
  ASSERT_EQ(Set(eVCMT_Video, u"codec=libx264"), S_OK);
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(ToneFrame(0, 1024).Get(), nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("has no picture"));
}

TEST_F(FFEncoderTest, PacketsGet_WaitsThenTimesOut) {
  ASSERT_EQ(Set(eVCMT_Audio, u"codec=pcm_s16le"), S_OK);
  ComPtr<IVCPacket> cp;
  const auto tStart = std::chrono::steady_clock::now();
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(cp.AddressOf(), nullptr, 200000, nullptr), kTimeout);  // 20 ms
  EXPECT_GE(std::chrono::steady_clock::now() - tStart, std::chrono::milliseconds(19));
  // Two frames in, then one taken: the ready count says one more waits.
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(ToneFrame(0, 480).Get(), nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(ToneFrame(480, 480).Get(), nullptr, nullptr, nullptr), S_OK);
  LONG nReady = -1;
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(cp.AddressOf(), &nReady, 0, nullptr), S_OK);
  EXPECT_EQ(nReady, 1);
  K_TIME time{};
  ASSERT_EQ(cp->PacketTimeGet(&time), S_OK);
  EXPECT_EQ(time.rtStartTime, 0);
  EXPECT_EQ(time.rtEndTime, 100000);  // 480 samples at 48 kHz: 10 ms
}

TEST_F(FFEncoderTest, Drain_DeliversDelayedPacketsAfterClose) {
  ASSERT_EQ(Set(eVCMT_Video, u"codec=libx264 preset=veryfast b_frames=3"), S_OK);
  for (int n = 0; n < 10; ++n)
    ASSERT_EQ(m_cpEncoder->EncodeFramePut(VideoFrame(n).Get(), nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(m_cpEncoder->EncodeClose(), S_OK);
  // x264 holds pictures back for its lookahead: they come only with the drain,
  // and stay readable after the close.
  TakeAll();
  EXPECT_EQ(m_vecPackets.size(), 10u);
  // The next frame opens the codec again with the same configuration.
  m_vecPackets.clear();
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(VideoFrame(0).Get(), nullptr, nullptr, nullptr), S_OK);
  Close();
  EXPECT_EQ(m_vecPackets.size(), 1u);
}

struct DeviceCase {
  HRESULT (*pfnCreate)(IUnknown*, REFIID, void**);
  const char16_t* szConfig;
  const char* szLogText;
};

class FFEncoderDeviceTest : public FFEncoderTest, public ::testing::WithParamInterface<DeviceCase> {};

// This machine has no GPU: each route refuses and says why (how fast is
// measured by BM_HardwareRefusal in bench/FFEncoderBench.cpp).
TEST_P(FFEncoderDeviceTest, NoDevice_RefusesWithReason) {
  Create(GetParam().pfnCreate);
  vc::CLogCapture log(vc::eVCLL_Progress);
  const HRESULT hr = Set(eVCMT_Video, GetParam().szConfig);
  if (SUCCEEDED(hr)) GTEST_SKIP() << "this machine has the device";
  EXPECT_TRUE(log.Contains(GetParam().szLogText)) << "log names what is missing";
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(VideoFrame(0).Get(), nullptr, nullptr, nullptr), kEmpty);
}

INSTANTIATE_TEST_SUITE_P(
    Routes, FFEncoderDeviceTest,
    ::testing::Values(DeviceCase{&vc::ff::CreateFFEncoderNVEnc, u"codec=n264", "no cuda device"},
                      DeviceCase{&vc::ff::CreateFFEncoderIntelQS, u"codec=q264 hw_only=true", "no qsv device"},
                      DeviceCase{&vc::ff::CreateFFEncoderAMD, u"codec=h264_amf", "no vaapi device"},
                      DeviceCase{&vc::ff::CreateFFEncoder, u"codec=a264 amd=true", "no vaapi device"},
                      DeviceCase{&vc::ff::CreateFFEncoder, u"codec=q265 load_plugin=hevc_hw", "no qsv device"},
                      DeviceCase{&vc::ff::CreateFFEncoder, u"codec=gpu_h265", "no GPU encoder"}),
    [](const auto& param) { return std::to_string(param.index); });

TEST_F(FFEncoderTest, IntelSoftwareRoute_EncodesWithoutDevice) {
  Create(&vc::ff::CreateFFEncoderIntelQS);
  if (!vc::ff::HwDeviceMissingReason(AV_HWDEVICE_TYPE_QSV).size()) GTEST_SKIP() << "this machine may have the device";
  ASSERT_EQ(Set(eVCMT_Video, u"codec=q264sw"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "libx264");
}

TEST_F(FFEncoderTest, DeviceClass_RefusesAudio) {
  Create(&vc::ff::CreateFFEncoderNVEnc);
  EXPECT_EQ(Set(eVCMT_Audio, u"codec=aac"), kNotSupported);
}

}  // namespace
