// The NVIDIA and QuickSync decoder classes. Where the device or its driver
// is missing (CI, most developer machines) they must refuse quickly with the
// reason in the log, which is what sends the decoder facade on to the next
// candidate; where a device is there, they must decode like the software
// decoder. Each test runs the branch this machine allows.
#include <gtest/gtest.h>

#include <string>

#include "FFClasses.h"
#include "FFDecoderTestSource.h"
#include "FFTestMedia.h"
#include "VCLog.h"
#include "VCObject.h"

namespace {

using vc::ComPtr;
using vc::fftest::CTestPacketSource;
using vc::fftest::PropText;

constexpr HRESULT kNoDevice = static_cast<HRESULT>(0x800710DFu);  // the device is not available
constexpr HRESULT kNotSupported = static_cast<HRESULT>(0x80070032u);
constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044Cu);

struct CHwCase {
  const CLSID* pClsid;
  vc::PFN_KCREATE pfnCreate;
  AVHWDeviceType eType;
  const char* szLabel;  // as the refusal names the device
  const char* szName;
};

using vc::fftest::DevicePresent;

class FFHwDecoderTest : public ::testing::TestWithParam<CHwCase> {
 protected:
  void SetUp() override {
    ASSERT_EQ(GetParam().pfnCreate(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
  }
  void OpenSource(const char* szFile, AVMediaType eType) {
    ASSERT_TRUE(vc::fftest::MediaExists(szFile)) << "test media missing: run tests/media/make_media.sh";
    ASSERT_TRUE(m_source.Open(vc::fftest::MediaPath(szFile), eType));
  }
  HRESULT Accept(BOOL* pbSupported) {
    return m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&m_source.StreamInfo()), nullptr, pbSupported);
  }

  ComPtr<IVCDecoder> m_cpDecoder;
  CTestPacketSource m_source;
};

TEST_P(FFHwDecoderTest, NoDevice_RefusesWithTheReasonInTheLog) {
  if (DevicePresent(GetParam().eType)) GTEST_SKIP() << "a device is present; see WithDevice_DecodesEveryFrame";
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  vc::CLogCapture log(vc::eVCLL_Retry);
  BOOL bSupported = TRUE;
  EXPECT_EQ(Accept(&bSupported), kNoDevice);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(log.Contains(std::string("no ") + GetParam().szLabel + " device: ")) << "the reason must be logged";
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder"), "") << "nothing published for a refused stream";

  // Packets cannot sneak past the refusal either.
  ComPtr<IVCPacket> cpPacket = m_source.Next();
  ASSERT_TRUE(cpPacket);
  ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(m_cpDecoder->DecodePacket(cpPacket.Get(), -1, nullptr, cpFrame.AddressOf(), nullptr), kNoDevice);
  EXPECT_FALSE(cpFrame);
}

TEST_P(FFHwDecoderTest, WithDevice_DecodesEveryFrame) {
  if (!DevicePresent(GetParam().eType)) GTEST_SKIP() << "no " << GetParam().szLabel << " device on this machine";
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  const auto vecPackets = m_source.ReadAll();
  BOOL bSupported = FALSE;
  ASSERT_EQ(Accept(&bSupported), S_OK);
  EXPECT_TRUE(bSupported);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.device"), av_hwdevice_get_type_name(GetParam().eType));
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder"), av_hwdevice_get_type_name(GetParam().eType));
  const auto run = vc::fftest::RunDecoder(m_cpDecoder.Get(), vecPackets);
  EXPECT_EQ(run.vecFrames.size(), vecPackets.size());
  EXPECT_EQ(run.hrEnd, kEndOfMedia);
  for (const auto& cpFrame : run.vecFrames) {
    const K_AV_PROPS props = vc::fftest::FrameProps(cpFrame.Get());
    EXPECT_EQ(props.vidProps.nWidth, 320);
    EXPECT_EQ(props.vidProps.nHeight, 240);
  }
}

TEST_P(FFHwDecoderTest, AudioStream_RefusedWithoutAskingTheDevice) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_AUDIO);
  vc::CLogCapture log(vc::eVCLL_Retry);
  BOOL bSupported = TRUE;
  EXPECT_EQ(Accept(&bSupported), kNotSupported);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(log.Contains("decodes video only"));
  EXPECT_FALSE(log.Contains(" device: ")) << "an audio stream never reaches the device";
}

TEST_P(FFHwDecoderTest, CodecWithoutDeviceDecoder_Refused) {
  // FFmpeg decodes Theora on neither device: refused before any device is
  // opened.
  vc::CBstr bsName{std::string_view("theora")};
  K_STREAM_INFO info{};
  info.eMediaType = eVCMT_Video;
  info.nWidth = 320;
  info.nHeight = 240;
  info.dblRate = 25;
  info.bsCodecNameOrTag = bsName;
  vc::CLogCapture log(vc::eVCLL_Retry);
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(&info, nullptr, nullptr), kNotSupported);
  EXPECT_TRUE(log.Contains("cannot decode codec 'theora'"));
}

TEST_P(FFHwDecoderTest, ClassCreatesThroughTheRuntime) {
  ComPtr<IVCDecoder> cpDecoder;
  ASSERT_EQ(CoCreateInstance(*GetParam().pClsid, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCDecoder>(),
                             reinterpret_cast<void**>(cpDecoder.AddressOf())),
            S_OK);
  ComPtr<IVCProps> cpProps;
  EXPECT_EQ(cpDecoder.As(&cpProps), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Devices, FFHwDecoderTest,
                         ::testing::Values(CHwCase{&vc::ff::CLSID_FFDecoderNVidia, &vc::ff::CreateFFDecoderNVidia,
                                                   AV_HWDEVICE_TYPE_CUDA, "CUDA", "NVidia"},
                                           CHwCase{&vc::ff::CLSID_FFDecoderQuickSync,
                                                   &vc::ff::CreateFFDecoderQuickSync, AV_HWDEVICE_TYPE_QSV,
                                                   "QuickSync", "QuickSync"}),
                         [](const ::testing::TestParamInfo<CHwCase>& paramInfo) { return std::string(paramInfo.param.szName); });

}  // namespace
