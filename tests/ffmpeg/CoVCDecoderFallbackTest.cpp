// The decoder facade's fallback on real media: a scripted decoder stands in
// for the NVIDIA candidate (registered under its class identifier in the
// private registry) and breaks down in the middle of h264_aac.mp4's video;
// the general media module's "FFmpeg A/V" decoder, served from the
// manifest, takes over. What the caller gets must be exactly the frames a
// plain libavcodec decode gives after the last frame the caller already
// had: in order, at the same times, with the same pictures, and one break.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "CoVCDecoder.h"
#include "FFClasses.h"
#include "FFDecoderTestSource.h"
#include "FFTestMedia.h"
#include "TestEnvironment.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCComPtr.h"
#include "VCStrings.h"
#include "modules/ScriptedFixture.h"

namespace {

using vc::ComPtr;
using vc::fftest::FrameTime;

constexpr const char* kNVidia = "{2CBD671C-8106-49EC-8ABB-9D67CF025301}";
constexpr const char* kMedia = "h264_aac.mp4";
constexpr int kFailingPacket = 40;  // the stand-in's 40th packet, index 39

class FFDecoderFallbackTest : public vctest::ScriptedFixture {
 protected:
  void SetUp() override {
    if (!vc::fftest::MediaExists(kMedia)) GTEST_SKIP() << "test media missing";
    StartScript(1, {vctest::eCall::Create, vctest::eCall::DecodeClose}, {kNVidia});
    if (HasFatalFailure()) return;
    m_pScript->AllowStep(
        vctest::Step::For(vctest::eClass::NVidiaDecoder, vctest::eCall::DecodeIsSupported, S_OK));
    // A decoder that reorders two frames deep, like the stream's B-frames
    // need, so its frames leave in presentation order with the packets'
    // times; from its 40th packet on it fails.
    vctest::Step decode = vctest::Step::For(vctest::eClass::NVidiaDecoder, vctest::eCall::DecodePacket, S_OK);
    decode.nDelay = 2;
    decode.bReorder = true;
    decode.nFailAt = kFailingPacket;
    m_pScript->AllowStep(decode);

    ASSERT_TRUE(m_source.Open(vc::fftest::MediaPath(kMedia), AVMEDIA_TYPE_VIDEO));
    m_vecPackets = m_source.ReadAll();
    ASSERT_GT(m_vecPackets.size(), static_cast<size_t>(kFailingPacket));
    ASSERT_EQ(vc::CreateObject<vc::CCoVCDecoder>(nullptr, vc::IidOf<IVCDecoder>(),
                                                 reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
  }

  void TearDown() override {
    StopScript({vctest::eCall::DecodeClose});
    if (m_cpDecoder) m_cpDecoder->DecodeClose();
    m_cpDecoder = nullptr;
    UnregisterClasses();
  }

  HRESULT Accept() {
    return m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&m_source.StreamInfo()), nullptr, nullptr);
  }
  std::string Prop(const char* szName) const { return vc::fftest::PropText(m_cpDecoder.Get(), szName); }

  // Whether the scripted stand-in made the frame.
  static bool FromStandIn(IVCFrame* pFrame) {
    vc::CBstr bsKind;
    return SUCCEEDED(pFrame->VCStrGet(vc::CBstr(std::string_view("scripted.decoder")), &bsKind)) &&
           bsKind.Utf8() == "nvidia";
  }
  static std::vector<uint8_t> Picture(IVCFrame* pFrame) {
    LONG cb = 0;
    LONGLONG lp = 0;
    if (FAILED(pFrame->VCVideoGetBytes(&cb, &lp)) || cb <= 0 || !lp) return {};
    const auto* pb = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(lp));
    return std::vector<uint8_t>(pb, pb + cb);
  }

  vc::fftest::CTestPacketSource m_source;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
  ComPtr<IVCDecoder> m_cpDecoder;
};

TEST_F(FFDecoderFallbackTest, GeneralDecoderTakesOver_EveryLaterFrameOnceInOrderWithOneBreak) {
  ASSERT_TRUE(vc::fftest::SetProp(m_cpDecoder.Get(), "decoder.fallback_on_error", "true"));
  ASSERT_EQ(Accept(), S_OK);
  ASSERT_EQ(Prop("decoder.type"), "NVidia Decoder(h264)");

  std::vector<ComPtr<IVCFrame>> vecFrames;
  for (size_t n = 0; n < m_vecPackets.size(); ++n) {
    ComPtr<IVCFrame> cpFrame;
    const HRESULT hr = m_cpDecoder->DecodePacket(m_vecPackets[n].Get(), -1, nullptr, cpFrame.AddressOf(), nullptr);
    ASSERT_TRUE(hr == S_OK || hr == S_FALSE) << "packet " << n << " hr=" << std::hex << hr;
    if (cpFrame) vecFrames.push_back(cpFrame);
  }
  for (int n = 0; n < 200; ++n) {
    ComPtr<IVCFrame> cpFrame;
    const HRESULT hr = m_cpDecoder->DecodePacket(nullptr, -1, nullptr, cpFrame.AddressOf(), nullptr);
    if (hr != S_OK) {
      EXPECT_EQ(hr, vc::VC_E_END_OF_MEDIA);
      break;
    }
    vecFrames.push_back(cpFrame);
  }
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V(h264)");
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), "1");
  EXPECT_EQ(Prop("stat::v_decode.active"), "FFmpeg A/V");

  // The frames the stand-in handed out come first; the latest start among them.
  const auto itFirstNew = std::find_if(vecFrames.begin(), vecFrames.end(),
                                       [](const ComPtr<IVCFrame>& cp) { return !FromStandIn(cp.Get()); });
  ASSERT_NE(itFirstNew, vecFrames.begin());
  ASSERT_NE(itFirstNew, vecFrames.end());
  EXPECT_TRUE(std::none_of(itFirstNew, vecFrames.end(), [](const ComPtr<IVCFrame>& cp) { return FromStandIn(cp.Get()); }));
  LONGLONG rtLatest = VC_TIME_UNSET;
  for (auto it = vecFrames.begin(); it != itFirstNew; ++it) rtLatest = std::max(rtLatest, FrameTime(it->Get()).rtStartTime);

  // Exactly one break, on the first frame of the new decoder.
  std::vector<size_t> vecBreaks;
  for (size_t n = 0; n < vecFrames.size(); ++n)
    if (FrameTime(vecFrames[n].Get()).eFFlags & eKFF_Break) vecBreaks.push_back(n);
  EXPECT_EQ(vecBreaks, std::vector<size_t>{static_cast<size_t>(itFirstNew - vecFrames.begin())});

  // Against the plain decode: the frames after rtLatest, at the same times.
  const vc::fftest::CReferenceDecode reference = vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath(kMedia),
                                                                                 AVMEDIA_TYPE_VIDEO);
  ASSERT_TRUE(reference.bOpened);
  std::vector<int64_t> vecExpected;
  for (const int64_t llStart : reference.vecStartTimes)
    if (llStart > rtLatest) vecExpected.push_back(llStart);
  // The stand-in gave the frames before in presentation order, so all in
  // all the caller had every frame of the stream once.
  EXPECT_EQ(vecFrames.size(), static_cast<size_t>(reference.nFrames));
  const std::vector<ComPtr<IVCFrame>> vecNew(itFirstNew, vecFrames.end());
  ASSERT_EQ(vecNew.size(), vecExpected.size()) << "latest before the failure: " << rtLatest;
  ASSERT_FALSE(vecNew.empty());
  for (size_t n = 0; n < vecNew.size(); ++n)
    EXPECT_LE(std::llabs(FrameTime(vecNew[n].Get()).rtStartTime - vecExpected[n]), reference.llTickRefTime)
        << "frame " << n << " after the failure";

  // And the same pictures as the media module's decoder gives on its own.
  ComPtr<IVCDecoder> cpDirect;
  ASSERT_EQ(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(cpDirect.AddressOf())),
            S_OK);
  ASSERT_EQ(cpDirect->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&m_source.StreamInfo()), nullptr, nullptr), S_OK);
  const vc::fftest::CDecoderRun direct = vc::fftest::RunDecoder(cpDirect.Get(), m_vecPackets);
  std::map<LONGLONG, ComPtr<IVCFrame>> mapDirect;
  for (const ComPtr<IVCFrame>& cpFrame : direct.vecFrames) mapDirect[FrameTime(cpFrame.Get()).rtStartTime] = cpFrame;
  for (size_t n = 0; n < vecNew.size(); ++n) {
    const auto it = mapDirect.find(FrameTime(vecNew[n].Get()).rtStartTime);
    ASSERT_NE(it, mapDirect.end()) << "frame " << n << " after the failure";
    const std::vector<uint8_t> vecPicture = Picture(vecNew[n].Get());
    ASSERT_FALSE(vecPicture.empty());
    EXPECT_TRUE(vecPicture == Picture(it->second.Get())) << "frame " << n << " after the failure";
  }
}

TEST_F(FFDecoderFallbackTest, FallbackOff_TheStandInsFailureReachesTheCaller) {
  ASSERT_EQ(Accept(), S_OK);
  HRESULT hr = S_OK;
  size_t n = 0;
  for (; n < m_vecPackets.size(); ++n) {
    ComPtr<IVCFrame> cpFrame;
    hr = m_cpDecoder->DecodePacket(m_vecPackets[n].Get(), -1, nullptr, cpFrame.AddressOf(), nullptr);
    if (FAILED(hr)) break;
  }
  EXPECT_EQ(hr, E_FAIL);
  EXPECT_EQ(n, static_cast<size_t>(kFailingPacket - 1));
  EXPECT_EQ(Prop("decoder.type"), "NVidia Decoder(h264)");
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "1");
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), "");
}

}  // namespace
