// The encoder facade over the general media module's encoders and frame
// converter, used the way a host uses it: generated pictures and tones in,
// H.264 and AAC packets out with their frames' times and attachments; a GPU
// request on a machine without a usable GPU ends at the general encoder or
// its refusal; a picture size change is absorbed by the converter when the
// output properties stay. The facade is linked in (its log lines reach the
// capture); the inner objects come from the built module through the runtime.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
}

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "CoVCEncoder.h"
#include "FFDecoderTestSource.h"
#include "FFFrame.h"
#include "FFFrameScale.h"
#include "FFPointers.h"
#include "FFTestFrames.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCLog.h"
#include "VCSideData.h"

namespace {

using vc::ComPtr;
using vc::ff::AvFramePtr;

constexpr LONGLONG kFrame = VC_TIME_SECOND / 25;
constexpr HRESULT kNotSupported = static_cast<HRESULT>(0x80070032u);

ComPtr<IVCFrame> VideoFrame(int n, int nWidth = 320, int nHeight = 240) {
  ComPtr<IVCFrame> cp = vc::fftest::PictureFrame(*vc::fftest::MovingGradient(n, nWidth, nHeight), n);
  if (cp) cp->VCStrSet(vc::CBstr(std::string_view("frame.id")), vc::CBstr(std::string_view(std::to_string(n))));
  return cp;
}

std::string AttachedId(IVCPacket* pPacket) {
  ComPtr<IVCSideData> cpSideData;
  if (FAILED(pPacket->QueryInterface(vc::IidOf<IVCSideData>(), reinterpret_cast<void**>(cpSideData.AddressOf()))))
    return "";
  vc::CBstr bsValue;
  if (cpSideData->SideDataStrGet(0, vc::CBstr(std::string_view("frame.id")), &bsValue) != S_OK) return "";
  return vc::ToUtf8(bsValue.View());
}

LONGLONG PacketStart(IVCPacket* pPacket) {
  K_TIME time{};
  EXPECT_EQ(pPacket->PacketTimeGet(&time), S_OK);
  return time.rtStartTime;
}

class CoVCEncoderMediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vc::CreateObject<vc::CCoVCEncoder>(nullptr, vc::IidOf<IVCEncoder>(),
                                                 reinterpret_cast<void**>(m_cpEncoder.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCEncoder*>(m_cpEncoder.Get());
  }
  void TearDown() override {
    if (m_cpEncoder) m_cpEncoder->EncodeClose();
  }
  HRESULT Set(eVCMediaType eType, const char* szConfig) {
    return m_cpEncoder->EncodeCodecSet(eType, vc::CBstr(std::string_view(szConfig)));
  }
  void Put(IVCFrame* pFrame, K_AV_PROPS* pOut = nullptr) {
    ComPtr<IVCPacket> cpPacket;
    ASSERT_EQ(m_cpEncoder->EncodeFramePut(pFrame, pOut, cpPacket.AddressOf(), nullptr), S_OK);
    if (cpPacket) m_vecPackets.push_back(cpPacket);
    TakeAll();
  }
  void TakeAll() {
    for (;;) {
      ComPtr<IVCPacket> cpPacket;
      if (m_cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), nullptr, 0, nullptr) != S_OK || !cpPacket) break;
      m_vecPackets.push_back(cpPacket);
    }
  }
  std::string Prop(const char* szName) { return vc::fftest::PropText(m_cpEncoder.Get(), szName); }

  ComPtr<IVCEncoder> m_cpEncoder;
  vc::CCoVCEncoder* m_pFacade = nullptr;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
};

TEST_F(CoVCEncoderMediaTest, Libx264_PacketsComeBackPairedWithTheirFrames) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264 bitrate=400000 preset=ultrafast"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "FFmpeg video(libx264)");
  constexpr int kFrames = 30;
  for (int n = 0; n < kFrames; ++n) Put(VideoFrame(n).Get());
  ASSERT_FALSE(m_vecPackets.empty());
  size_t nPaired = 0;
  std::set<LONGLONG> setStarts;
  for (const ComPtr<IVCPacket>& cpPacket : m_vecPackets) {
    const LONGLONG rtStart = PacketStart(cpPacket.Get());
    EXPECT_EQ(rtStart % kFrame, 0) << "packets carry their frames' times";
    EXPECT_TRUE(setStarts.insert(rtStart).second);
    const std::string strId = AttachedId(cpPacket.Get());
    if (strId.empty()) continue;
    ++nPaired;
    EXPECT_EQ(std::stoll(strId) * kFrame, rtStart) << "a packet carries the attachments of its own frame";
  }
  EXPECT_GT(nPaired, 0u);
  EXPECT_NE(Prop("stat::v_encode..kbps"), "");
  EXPECT_LE(m_pFacade->_QueuedFrames(), 32u);
}

TEST_F(CoVCEncoderMediaTest, Aac_AudioPacketsInTimeOrderAndNoFramesQueued) {
  ASSERT_EQ(Set(eVCMT_Audio, "codec=aac bitrate=128000"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "FFmpeg audio(aac)");
  for (int n = 0; n < 40; ++n) Put(vc::fftest::ToneFrame(int64_t(n) * 1024, 1024).Get());
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 0u);
  ASSERT_GT(m_vecPackets.size(), 20u);
  for (size_t n = 1; n < m_vecPackets.size(); ++n)
    EXPECT_GT(PacketStart(m_vecPackets[n].Get()), PacketStart(m_vecPackets[n - 1].Get()));
  EXPECT_NE(Prop("stat::a_encode.input_fps"), "");
}

TEST_F(CoVCEncoderMediaTest, GpuH264WithoutAUsableGpu_EndsAtTheGeneralEncoderOrItsRefusal) {
  vc::CLogCapture log;
  const HRESULT hr = Set(eVCMT_Video, "codec=gpu_h264");
  const std::string strGeneral = "{96EB1F26-4CC0-4830-9CC3-F064196B2626}";
  if (FAILED(hr)) {
    EXPECT_EQ(hr, kNotSupported);
    EXPECT_TRUE(log.Contains("Error set props'codec=gpu_h264' for " + strGeneral + " codec:Video"))
        << "the last row, the general encoder, refused too";
    EXPECT_TRUE(log.Contains("_CreateEncoder(Video, codec=gpu_h264) FAILED hr=80070032"));
    return;
  }
  // Some route opened: the description names what was chosen.
  const std::string strName = Prop("codec_name");
  EXPECT_NE(strName.find("(gpu_h264)"), std::string::npos) << strName;
  EXPECT_EQ(Prop("stat::v_encode.codec"), strName);
}

TEST_F(CoVCEncoderMediaTest, SizeChange_ConvertedToTheOutputPropertiesWithoutRecreation) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264 preset=ultrafast"), S_OK);
  ComPtr<IVCFrame> cpFirst = VideoFrame(0);
  K_AV_PROPS out{};
  ASSERT_EQ(cpFirst->VCAVPropsGet(&out, nullptr), S_OK);
  Put(cpFirst.Get(), &out);
  EXPECT_FALSE(m_pFacade->_HasConverter()) << "nothing to convert yet";
  for (int n = 1; n < 5; ++n) Put(VideoFrame(n).Get(), &out);

  vc::CLogCapture log;
  for (int n = 5; n < 15; ++n) Put(VideoFrame(n, 640, 480).Get(), &out);
  EXPECT_TRUE(m_pFacade->_HasConverter());
  EXPECT_FALSE(log.Contains("Reinit Encoder")) << "the converted frames keep the encoder's properties";
  ASSERT_EQ(m_cpEncoder->EncodeClose(), S_OK);
  TakeAll();
  ASSERT_FALSE(m_vecPackets.empty());
  for (const ComPtr<IVCPacket>& cpPacket : m_vecPackets) {
    vc::CKStreamInfo stream;
    ASSERT_EQ(vc::VCPacketStreamInfo(cpPacket.Get(), &stream), S_OK);
    EXPECT_EQ(stream.nWidth, 320);
    EXPECT_EQ(stream.nHeight, 240);
  }
  EXPECT_GE(PacketStart(m_vecPackets.back().Get()), 5 * kFrame) << "frames after the change were encoded";
}

}  // namespace
