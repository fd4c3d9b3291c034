// The decoder facade's fallback ("decoder.fallback_on_error") over scripted
// candidates: a failing or silent decoder is replaced by the next candidate,
// which is fed again from the last key packet; the caller sees every frame
// once, in order, with one break where the decoders changed.
#include <gtest/gtest.h>

#include "ScriptedDecoderFixture.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace vctest {
namespace {

constexpr int kKeyEvery = 5;  // packets 0, 5, 10, ... are key packets

class DecoderFallbackTest : public ScriptedDecoderTest {
 protected:
  void SetUp() override {
    ScriptedDecoderTest::SetUp();
    SetProp("decoder.fallback_on_error", "true");
    m_pScript->AllowStep(Step::For(eClass::NVidiaDecoder, eCall::DecodeIsSupported, S_OK));
    m_pScript->AllowStep(Step::For(eClass::QuickSyncDecoder, eCall::DecodeIsSupported, S_OK));
    m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
    m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodePacket, S_OK));
  }

  // How a class decodes: frames nDelay packets late, failing with hrFail
  // from its nFailAt-th packet on (0: never).
  void Decodes(eClass objClass, int nDelay, int nFailAt = 0, HRESULT hrFail = E_FAIL) {
    Step step = Step::For(objClass, eCall::DecodePacket, S_OK);
    step.nDelay = nDelay;
    step.nFailAt = nFailAt;
    step.hrFail = hrFail;
    m_pScript->AllowStep(step);
  }

  // Packet n of the stream (key every kKeyEvery), made once so that a test
  // can compare what frames carry.
  IVCPacket* PacketNo(int n) {
    while (static_cast<int>(m_vecPackets.size()) <= n) {
      const int k = static_cast<int>(m_vecPackets.size());
      m_vecPackets.push_back(FramePacket(m_stream, k, k % kKeyEvery == 0 ? eVCPF_KeyFrame : eVCPF_None));
    }
    return m_vecPackets[static_cast<size_t>(n)].Get();
  }
  // Decodes packets [nFrom, nTo) and keeps every frame; each call must succeed.
  void Feed(int nFrom, int nTo) {
    for (int n = nFrom; n < nTo; ++n) {
      vc::ComPtr<IVCFrame> cpFrame;
      const HRESULT hr = Decode(PacketNo(n), &cpFrame);
      ASSERT_TRUE(hr == S_OK || hr == S_FALSE) << "packet " << n << " hr=" << std::hex << hr;
      if (cpFrame) m_vecFrames.push_back(cpFrame);
    }
  }
  // Drains until the facade has nothing more; returns the last answer.
  HRESULT Drain() {
    for (int n = 0; n < 100; ++n) {
      vc::ComPtr<IVCFrame> cpFrame;
      const HRESULT hr = Decode(nullptr, &cpFrame);
      if (hr != S_OK) return hr;
      m_vecFrames.push_back(cpFrame);
    }
    return E_FAIL;
  }

  // The frames' start times in frames, their makers and their break count.
  std::vector<LONGLONG> Starts() const {
    std::vector<LONGLONG> vec;
    for (const auto& cpFrame : m_vecFrames) vec.push_back(TimeOf(cpFrame.Get()).rtStartTime / kFrame);
    return vec;
  }
  std::vector<std::string> Makers() const {
    std::vector<std::string> vec;
    for (const auto& cpFrame : m_vecFrames) vec.push_back(FrameString(cpFrame.Get(), "scripted.decoder"));
    return vec;
  }
  std::vector<size_t> Breaks() const {
    std::vector<size_t> vec;
    for (size_t n = 0; n < m_vecFrames.size(); ++n)
      if (TimeOf(m_vecFrames[n].Get()).eFFlags & eKFF_Break) vec.push_back(n);
    return vec;
  }
  // The packets (in frames) a class was given, in order; -1 for a drain.
  std::vector<LONGLONG> PacketsGiven(eClass objClass) const {
    std::vector<LONGLONG> vec;
    for (const CallRecord& record : Calls(eCall::DecodePacket))
      if (record.objClass == objClass) vec.push_back(record.bPacket ? record.rtStart / kFrame : -1);
    return vec;
  }
  static std::vector<LONGLONG> Range(LONGLONG nFrom, LONGLONG nTo) {
    std::vector<LONGLONG> vec;
    for (LONGLONG n = nFrom; n < nTo; ++n) vec.push_back(n);
    return vec;
  }
  static std::vector<std::string> Repeat(const char* sz, size_t n) { return std::vector<std::string>(n, sz); }
  static std::vector<std::string> Join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }

  const vc::CKStreamInfo m_stream = VideoStream();
  std::vector<vc::ComPtr<IVCPacket>> m_vecPackets;
  std::vector<vc::ComPtr<IVCFrame>> m_vecFrames;
};

TEST_F(DecoderFallbackTest, FailureAtPacketN_NextCandidateReplaysFromTheLastKeyPacket) {
  SetProp("custom.marker", "marker-5521");
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/8);  // packet 7 fails
  vc::CLogCapture log(vc::eVCLL_Retry);
  Feed(0, 10);

  // Every frame once, in order; the general decoder's from packet 7 on.
  EXPECT_EQ(Starts(), Range(0, 10));
  EXPECT_EQ(Makers(), Join(Repeat("nvidia", 7), Repeat("general", 3)));
  EXPECT_EQ(Breaks(), std::vector<size_t>{7});
  // It was fed the packets since key packet 5, then the new ones.
  EXPECT_EQ(PacketsGiven(eClass::GeneralDecoder), Range(5, 10));
  const std::vector<CallRecord> vecAsked = Calls(eCall::DecodeIsSupported);
  ASSERT_EQ(vecAsked.size(), 2u);
  EXPECT_EQ(vecAsked[1].objClass, eClass::GeneralDecoder);
  EXPECT_NE(vecAsked[1].strProps.find("marker-5521"), std::string::npos) << "the properties reach it too";

  EXPECT_EQ(States(), (std::vector<LONG>{-1, 0}));
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), "1");
  const std::string strReason = Prop("stat::v_decode.fallback_reason");
  EXPECT_NE(strReason.find("NVidia Decoder"), std::string::npos) << strReason;
  EXPECT_NE(strReason.find("80004005"), std::string::npos) << strReason;
  EXPECT_NE(strReason.find("Time:00:00:00.280..00:00:00.320"), std::string::npos) << strReason;
  EXPECT_EQ(Prop("stat::v_decode.active"), "FFmpeg A/V");
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "1");
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V(h264)");
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 0) << "every packet's frame is out";
}

TEST_F(DecoderFallbackTest, FirstFrameAfterTheFallback_CarriesItsOwnPacket) {
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/8);
  Feed(0, 10);
  ASSERT_EQ(m_vecFrames.size(), 10u);
  // Packets 5 and 6 went out with frames 5 and 6 of the first decoder.
  for (size_t n = 6; n < 10; ++n) {
    SCOPED_TRACE(n);
    EXPECT_TRUE(SameObject(FrameObject(m_vecFrames[n].Get(), "video.encoded_packet").Get(),
                           PacketNo(static_cast<int>(n))));
    EXPECT_FALSE(FrameObject(m_vecFrames[n].Get(), "video.encoded_packet.1"));
  }
}

TEST_F(DecoderFallbackTest, FailureOnAKeyPacket_ReplaysThatPacketAlone) {
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/6);  // packet 5, a key packet
  Feed(0, 7);
  EXPECT_EQ(Starts(), Range(0, 7));
  EXPECT_EQ(PacketsGiven(eClass::GeneralDecoder), Range(5, 7));
  EXPECT_EQ(Breaks(), std::vector<size_t>{5});
}

TEST_F(DecoderFallbackTest, FramesTheReplayMadeAhead_ComeOutOnLaterCallsAndOnDrain) {
  Decodes(eClass::NVidiaDecoder, 2, /*nFailAt=*/8);  // the caller has frames 0..4 when packet 7 fails
  Feed(0, 8);
  EXPECT_EQ(Starts(), Range(0, 6));
  EXPECT_EQ(m_pFacade->_HeldFrames(), 2u);  // frames 6 and 7
  EXPECT_TRUE(SameObject(FrameObject(m_vecFrames[5].Get(), "video.encoded_packet").Get(), PacketNo(5)));

  Feed(8, 10);  // each call hands out a held frame first
  EXPECT_EQ(Starts(), Range(0, 8));
  EXPECT_EQ(Drain(), vc::VC_E_END_OF_MEDIA);
  EXPECT_EQ(Starts(), Range(0, 10));
  EXPECT_EQ(Makers(), Join(Repeat("nvidia", 5), Repeat("general", 5)));
  EXPECT_EQ(Breaks(), std::vector<size_t>{5});
  // The drain asked the decoder only once the held frames were out, and
  // its end of media started no fallback.
  std::vector<LONGLONG> vecGiven = Range(5, 10);
  vecGiven.push_back(-1);
  EXPECT_EQ(PacketsGiven(eClass::GeneralDecoder), vecGiven);
  EXPECT_EQ(Created(), (std::vector<std::string>{"nvidia", "general"}));
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), "1");
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 0);
}

TEST_F(DecoderFallbackTest, SecondFailureDuringTheReplay_WalksOnToTheNextCandidate) {
  SetProp("decoder.quicksync", "true");
  const HRESULT hrQuickSync = static_cast<HRESULT>(0x80070005);
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/4);                  // packet 3
  Decodes(eClass::QuickSyncDecoder, 0, /*nFailAt=*/2, hrQuickSync);  // the second replayed packet
  Feed(0, 6);
  EXPECT_EQ(Starts(), Range(0, 6));
  EXPECT_EQ(Makers(), Join(Repeat("nvidia", 3), Repeat("general", 3)));
  EXPECT_EQ(Breaks(), std::vector<size_t>{3});
  EXPECT_EQ(PacketsGiven(eClass::QuickSyncDecoder), (std::vector<LONGLONG>{0, 1}));
  EXPECT_EQ(PacketsGiven(eClass::GeneralDecoder), Range(0, 6));
  EXPECT_EQ(States(), (std::vector<LONG>{-1, -1, 0}));
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), "2");
  const std::string strReason = Prop("stat::v_decode.fallback_reason");
  EXPECT_NE(strReason.find("Intel QuickSync Decoder"), std::string::npos) << strReason;
  EXPECT_NE(strReason.find("80070005"), std::string::npos) << strReason;
  EXPECT_EQ(Prop("stat::v_decode.active"), "FFmpeg A/V");
}

TEST_F(DecoderFallbackTest, DrainFailure_IsReturnedWithoutAFallback) {
  Decodes(eClass::NVidiaDecoder, 1);
  Feed(0, 3);
  m_pScript->Expect(Step::For(eClass::NVidiaDecoder, eCall::DecodePacket, E_FAIL));
  vc::ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(Decode(nullptr, &cpFrame), E_FAIL);  // no packet to start a replay from
  EXPECT_EQ(Created(), std::vector<std::string>{"nvidia"});
  EXPECT_EQ(Prop("stat::v_decode.fallback_reason"), kAbsent);
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "1");
}

TEST_F(DecoderFallbackTest, NoCandidateLeft_TheCallerGetsTheFailureCode) {
  const HRESULT hrBroken = static_cast<HRESULT>(0x887A0004);
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/3, hrBroken);
  m_pScript->Expect(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_FALSE));
  Feed(0, 2);
  vc::ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(Decode(PacketNo(2), &cpFrame), hrBroken);
  EXPECT_FALSE(cpFrame);
  EXPECT_EQ(Starts(), Range(0, 2));
  EXPECT_TRUE(Breaks().empty());
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), kAbsent) << "no candidate took over";
  EXPECT_NE(Prop("stat::v_decode.fallback_reason").find("NVidia Decoder"), std::string::npos);
  EXPECT_EQ(PacketsGiven(eClass::GeneralDecoder).size(), 0u);
}

TEST_F(DecoderFallbackTest, FallbackOff_TheFailureCodeReachesTheCallerUnchanged) {
  SetProp("decoder.fallback_on_error", "false");
  Decodes(eClass::NVidiaDecoder, 0, /*nFailAt=*/3);
  Feed(0, 2);
  vc::ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(Decode(PacketNo(2), &cpFrame), E_FAIL);
  EXPECT_EQ(Decode(PacketNo(3), &cpFrame), E_FAIL);
  EXPECT_EQ(Created(), std::vector<std::string>{"nvidia"});
  EXPECT_EQ(States(), (std::vector<LONG>{0, 0}));
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "2");
  EXPECT_EQ(Prop("stat::v_decode.fallback_reason"), kAbsent);
  EXPECT_EQ(Prop("stat::v_decode.fallbacks"), kAbsent);
}

TEST_F(DecoderFallbackTest, SilentDecoder_ReplacedAfterSixtyFourPacketsWithoutAFrame) {
  Decodes(eClass::NVidiaDecoder, 1000);  // never hands out a frame
  Feed(0, 63);
  EXPECT_TRUE(m_vecFrames.empty());
  EXPECT_EQ(Created(), std::vector<std::string>{"nvidia"});
  Feed(63, 64);
  EXPECT_EQ(Created(), (std::vector<std::string>{"nvidia", "general"}));
  // Replayed from key packet 60: frames 60..63, the first with the break.
  EXPECT_EQ(Starts(), std::vector<LONGLONG>{60});
  EXPECT_EQ(Breaks(), std::vector<size_t>{0});
  EXPECT_EQ(m_pFacade->_HeldFrames(), 3u);
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), kAbsent) << "silence is not a decoding error";
  EXPECT_NE(Prop("stat::v_decode.fallback_reason").find("NVidia Decoder"), std::string::npos);
  EXPECT_EQ(Drain(), vc::VC_E_END_OF_MEDIA);
  EXPECT_EQ(Starts(), Range(60, 64));
}

TEST_F(DecoderFallbackTest, SilenceShorterThanTheCount_OrCountZero_KeepsTheDecoder) {
  SetProp("decoder.fallback.no_output_packets", "3");
  Decodes(eClass::NVidiaDecoder, 2);  // two packets without a frame, then one per packet
  Feed(0, 10);
  EXPECT_EQ(Starts(), Range(0, 8));
  EXPECT_EQ(Created(), std::vector<std::string>{"nvidia"});

  ASSERT_EQ(m_cpDecoder->DecodeClose(), S_OK);
  m_vecFrames.clear();
  SetProp("decoder.fallback.no_output_packets", "0");
  Decodes(eClass::NVidiaDecoder, 1000);
  Feed(0, 80);
  EXPECT_TRUE(m_vecFrames.empty());
  EXPECT_EQ(Created(), (std::vector<std::string>{"nvidia", "nvidia"}));
}

TEST_F(DecoderFallbackTest, AudioStream_UsesTheAudioPrefixAndHasNoOtherCandidate) {
  Decodes(eClass::GeneralDecoder, 0, /*nFailAt=*/2);
  const vc::CKStreamInfo audio = AudioStream();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(Packet(audio, 0, 21 * kMsec, eVCPF_KeyFrame).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Decode(Packet(audio, 21 * kMsec, 42 * kMsec).Get(), &cpFrame), E_FAIL);
  EXPECT_EQ(Created(), std::vector<std::string>{"general"});
  EXPECT_NE(Prop("stat::a_decode.fallback_reason").find("FFmpeg A/V"), std::string::npos);
  EXPECT_EQ(Prop("stat::v_decode.fallback_reason"), kAbsent);
  EXPECT_EQ(Prop("stat::a_decode.active"), "FFmpeg A/V");
}

}  // namespace
}  // namespace vctest
