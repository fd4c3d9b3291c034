// The decoder facade's decoding path over a scripted decoder: the packet
// queue and its limit, which packets a frame carries out, the in-flight
// counter, failures and answers without a frame, DecodeAudio's pass-through
// and DecodeClose.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>

#include "ScriptedDecoderFixture.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace vctest {
namespace {

// An audio line buffer nobody should touch: the facade and the scripted
// decoder only hand its address on. Every call is counted.
class CUntouchedAudioBuffer final : public IVCAudioBuffer {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override { return _Touch(ppv); }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nTouched, 2; }
  ULONG STDMETHODCALLTYPE Release() override { return ++m_nTouched, 1; }
  HRESULT STDMETHODCALLTYPE BufferLoadFromFile(BSTR, BSTR, LONG, LONG) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferPropsSet(BSTR, K_AUD_PROPS*, BOOL) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferPropsGet(BSTR, K_AUD_PROPS*, LONG*) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferPutPtr(BSTR, K_AUD_PROPS*, LONG, LONGLONG, BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferFramePut(BSTR, IVCFrame*, BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferFrameFill(BSTR, IVCFrame*, LONG*, BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferFrameMix(BSTR, IVCFrame*, LONG*, double, double, BSTR, BSTR) override {
    return _Touch();
  }
  HRESULT STDMETHODCALLTYPE BufferFrameChannelsAppend(BSTR, IVCFrame*, LONG*, BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferLinesMix(BSTR, BSTR, LONG*, double, double, double, double, BSTR, BSTR) override {
    return _Touch();
  }
  HRESULT STDMETHODCALLTYPE BufferLinesRemove(BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferRemove(BSTR, LONG*) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferPutPtrEx(BSTR, LONGLONG, K_AUD_PROPS*, LONG, LONGLONG, LONG, BSTR) override {
    return _Touch();
  }
  HRESULT STDMETHODCALLTYPE BufferGet(BSTR, LONG*, LONGLONG*, LONG, BSTR) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferTimesEnable(BSTR, BOOL, LONGLONG, LONGLONG) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferTimesIsEnabled(BSTR, BOOL*, LONGLONG*, LONGLONG*) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferTimesGet(BSTR, LONGLONG*, LONGLONG*) override { return _Touch(); }
  HRESULT STDMETHODCALLTYPE BufferTimesSet(BSTR, LONGLONG, LONGLONG) override { return _Touch(); }

  int Touched() const { return m_nTouched; }
  LONGLONG Address() const { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(this)); }

 private:
  HRESULT _Touch(void** ppv = nullptr) {
    if (ppv) *ppv = nullptr;
    ++m_nTouched;
    return E_NOTIMPL;
  }
  int m_nTouched = 0;
};

class DecoderPacketsTest : public ScriptedDecoderTest {
 protected:
  void SetUp() override {
    ScriptedDecoderTest::SetUp();
    UseGeneralOnly();
  }
  // Every packet makes its frame; frames leave nDelay packets late.
  void AllowFrames(int nDelay = 0) {
    Step step = Step::Answer(eCall::DecodePacket, S_OK);
    step.nDelay = nDelay;
    m_pScript->AllowStep(step);
  }
  // The next packet makes no frame of its own.
  void ExpectNoFrame() {
    Step step = Step::Answer(eCall::DecodePacket, S_OK);
    step.bNoFrame = true;
    m_pScript->Expect(step);
  }
};

// --- The packet queue and what frames carry ------------------------------------------

TEST_F(DecoderPacketsTest, QueueOverItsLimit_DropsTheOldestPacketOncePerCall) {
  SetProp("packets.maxdeq", "2");
  AllowFrames(3);
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(stream, 0).Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(FramePacket(stream, 1).Get(), &cpFrame), S_FALSE);
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 2u);

  vc::CLogCapture log(vc::eVCLL_Retry);
  ASSERT_EQ(Decode(FramePacket(stream, 2).Get(), &cpFrame), S_FALSE);
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 2u);
  EXPECT_TRUE(LogLineWith(log, {"Packet Deq Exceed Max:3 POP:Stm:0 ", "Time:00:00:00.000..00:00:00.040 "}));

  // The fourth packet lets the first frame out: its own packet is gone, so
  // it carries the oldest one left.
  const vc::ComPtr<IVCPacket> cpFourth = FramePacket(stream, 3);
  ASSERT_EQ(Decode(cpFourth.Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(TimeOf(cpFrame.Get()).rtStartTime, 0);
  const vc::ComPtr<IUnknown> cpCarried = FrameObject(cpFrame.Get(), "video.encoded_packet");
  ASSERT_TRUE(cpCarried);
  K_TIME carried{};
  vc::ComPtr<IVCPacket> cpCarriedPacket;
  ASSERT_EQ(cpCarried.As(&cpCarriedPacket), S_OK);
  cpCarriedPacket->PacketTimeGet(&carried);
  EXPECT_EQ(carried.rtStartTime, 2 * kFrame);
}

TEST_F(DecoderPacketsTest, Frame_CarriesItsPacketsUnderNumberedNames_StalePacketsSkipped) {
  const vc::CKStreamInfo stream = VideoStream();
  // Three packets, one frame: the first packet is old news for it, the
  // other two make it.
  const vc::ComPtr<IVCPacket> cpStale = Packet(stream, 0, kFrame);
  const vc::ComPtr<IVCPacket> cpFirstHalf = Packet(stream, 2 * kFrame, 2 * kFrame + 20 * kMsec);
  const vc::ComPtr<IVCPacket> cpSecondHalf = Packet(stream, 2 * kFrame + 20 * kMsec, 3 * kFrame);
  const vc::ComPtr<IVCPacket> cpLater = Packet(stream, 3 * kFrame, 4 * kFrame);
  ExpectNoFrame();
  ExpectNoFrame();
  ExpectNoFrame();
  m_pScript->Expect(Step::Frame(2 * kFrame, 3 * kFrame));
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(cpStale.Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(cpFirstHalf.Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(cpSecondHalf.Get(), &cpFrame), S_FALSE);

  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Decode(cpLater.Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_TRUE(SameObject(FrameObject(cpFrame.Get(), "video.encoded_packet").Get(), cpFirstHalf.Get()));
  EXPECT_TRUE(SameObject(FrameObject(cpFrame.Get(), "video.encoded_packet.1").Get(), cpSecondHalf.Get()));
  EXPECT_FALSE(FrameObject(cpFrame.Get(), "video.encoded_packet.2")) << "the later packet belongs to a later frame";
  EXPECT_TRUE(LogLineWith(log, {"SKIP:Stm:0 ", "Time:00:00:00.000..00:00:00.040 "}));
  EXPECT_TRUE(LogLineWith(log, {"(video.encoded_packet.1) ", "Time:00:00:00.100..00:00:00.120 "}));
  EXPECT_FALSE(log.Contains("WARNING !!!"));
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 1u);
  EXPECT_EQ(Prop("stat::v_decode.pkt_delay"), "1");
}

TEST_F(DecoderPacketsTest, FrameWithoutMatchingPackets_IsStillReturnedWithAWarning) {
  const vc::CKStreamInfo stream = VideoStream();
  ExpectNoFrame();
  m_pScript->Expect(Step::Frame(VC_TIME_SECOND, VC_TIME_SECOND + kFrame));  // after both packets ended
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(stream, 0).Get(), &cpFrame), S_FALSE);
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Decode(FramePacket(stream, 1).Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_FALSE(FrameObject(cpFrame.Get(), "video.encoded_packet"));
  EXPECT_TRUE(log.Contains("WARNING !!! NEXT:"));
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u) << "stale packets are dropped";
}

TEST_F(DecoderPacketsTest, AttachOptions_EitherSwitchAttaches_BothOffStillEmptiesTheQueue) {
  AllowFrames();
  struct Case {
    const char* szAttach;
    const char* szOutVideoPackets;
    bool bAttached;
  };
  const Case cases[] = {
      {"false", "true", true},  // the defaults
      {"true", "false", true},
      {"false", "false", false},
  };
  const vc::CKStreamInfo stream = VideoStream();
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.szAttach) + "/" + c.szOutVideoPackets);
    SetProp("attach_packets", c.szAttach);
    SetProp("experimental.out_video_packets", c.szOutVideoPackets);
    const vc::ComPtr<IVCPacket> cpPacket = FramePacket(stream, n++);
    vc::ComPtr<IVCFrame> cpFrame;
    ASSERT_EQ(Decode(cpPacket.Get(), &cpFrame), S_OK);
    ASSERT_TRUE(cpFrame);
    EXPECT_EQ(static_cast<bool>(FrameObject(cpFrame.Get(), "video.encoded_packet")), c.bAttached);
    EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u);
    EXPECT_EQ(Prop("stat::v_decode.pkt_delay"), "0");
  }
}

TEST_F(DecoderPacketsTest, PacketSideData_TravelsOnToTheFrame) {
  AllowFrames();
  const vc::ComPtr<IVCPacket> cpPacket = FramePacket(VideoStream(), 0);
  vc::ComPtr<IVCSideData> cpSideData;
  ASSERT_EQ(cpPacket.As(&cpSideData), S_OK);
  ASSERT_EQ(cpSideData->SideDataStrSet(0, vc::CBstr(W("caption.text")), vc::CBstr(W("hello"))), S_OK);
  const uint8_t bytes[3] = {9, 8, 7};
  ASSERT_EQ(cpSideData->SideDataSet(0, vc::CBstr(W("sei.raw")), 3, static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(bytes))),
            S_OK);
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(cpPacket.Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(FrameString(cpFrame.Get(), "caption.text"), "hello");
  LONG cbData = 0;
  LONGLONG lpData = 0;
  ASSERT_EQ(cpFrame->VCDataGet(vc::CBstr(W("sei.raw")), &cbData, &lpData), S_OK);
  ASSERT_EQ(cbData, 3);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(lpData))[2], 7);
}

TEST_F(DecoderPacketsTest, AudioPackets_NeverStayInTheQueue_StatisticsUnderTheAudioPrefix) {
  AllowFrames(2);
  const vc::CKStreamInfo stream = AudioStream();
  vc::ComPtr<IVCFrame> cpFrame;
  for (int n = 0; n < 3; ++n) {
    Decode(Packet(stream, n * 21 * kMsec, (n + 1) * 21 * kMsec, n == 0 ? eVCPF_KeyFrame : eVCPF_None).Get(),
           &cpFrame);
    EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u);
  }
  ASSERT_TRUE(cpFrame);
  EXPECT_FALSE(FrameObject(cpFrame.Get(), "video.encoded_packet"));
  EXPECT_EQ(Prop("stat::a_decode.pkt_diff"), "2");
  EXPECT_NE(Prop("stat::a_decode.kbps"), kAbsent);
  EXPECT_EQ(Prop("stat::v_decode.pkt_delay"), kAbsent);
  EXPECT_EQ(Prop("stat::v_decode.pkt_diff"), kAbsent);
}

TEST_F(DecoderPacketsTest, InFlightCounter_CountsPacketsWithoutTheirFrame) {
  AllowFrames(2);
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(stream, 0, eVCPF_KeyFrame).Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(FramePacket(stream, 1).Get(), &cpFrame), S_FALSE);
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 2);
  ASSERT_EQ(Decode(FramePacket(stream, 2).Get(), &cpFrame), S_OK);
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 2);
  EXPECT_EQ(Prop("stat::v_decode.pkt_diff"), "2");
  // Draining hands out the rest: nothing is in flight at the end.
  ASSERT_EQ(Decode(nullptr, &cpFrame), S_OK);
  EXPECT_EQ(Prop("stat::v_decode.pkt_diff"), "1");
  ASSERT_EQ(Decode(nullptr, &cpFrame), S_OK);
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 0);
  EXPECT_EQ(Decode(nullptr, &cpFrame), vc::VC_E_END_OF_MEDIA);
  EXPECT_FALSE(cpFrame);
  // A segment start sets it back to zero before its own packet goes in.
  ASSERT_EQ(Decode(FramePacket(stream, 3).Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(FramePacket(stream, 4).Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(Decode(FramePacket(stream, 10, eVCPF_SegmentStart | eVCPF_KeyFrame).Get(), &cpFrame), S_OK);
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 0);
  // The two packets before it went too: the frame took the segment's first
  // packet (a frame always takes the first one it finds), and nothing is left.
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u);
}

// --- Failures and answers without a frame ------------------------------------------------

TEST_F(DecoderPacketsTest, InnerFailure_CountedLoggedAndReturned_PacketNotQueued) {
  const HRESULT hrBroken = static_cast<HRESULT>(0x887A0004);
  m_pScript->Expect(Step::Answer(eCall::DecodePacket, hrBroken));
  m_pScript->Expect(Step::Answer(eCall::DecodePacket, E_FAIL));
  AllowFrames();
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  vc::CLogCapture log(vc::eVCLL_Retry);
  EXPECT_EQ(Decode(FramePacket(stream, 0).Get(), &cpFrame), hrBroken);
  EXPECT_FALSE(cpFrame);
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u);
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "1");
  EXPECT_TRUE(LogLineWith(log, {"m_cpVCDecoder->DecodePacket(Stm:0 ", "Time:00:00:00.000..00:00:00.040 ",
                                ") hr=887A0004"}));
  EXPECT_EQ(Decode(FramePacket(stream, 1).Get(), &cpFrame), E_FAIL);
  EXPECT_EQ(Prop("stat::v_decode.decode_error"), "2");
  // The decoder stays: the next packet decodes.
  EXPECT_EQ(Decode(FramePacket(stream, 2).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Created().size(), 1u);
}

TEST_F(DecoderPacketsTest, SuccessWithoutAFrame_ReturnsTheInnersAnswerNotUnexpected) {
  Step filling = Step::Answer(eCall::DecodePacket, S_OK);
  filling.bNoFrame = true;
  filling.hrNoFrame = S_OK;  // a decoder that says OK but has no frame yet
  m_pScript->Expect(filling);
  ExpectNoFrame();  // S_FALSE
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(Decode(FramePacket(stream, 0).Get(), &cpFrame), S_OK);
  EXPECT_FALSE(cpFrame);
  EXPECT_EQ(Decode(FramePacket(stream, 1).Get(), &cpFrame), S_FALSE);
  EXPECT_FALSE(cpFrame);
  EXPECT_TRUE(log.Contains(") DELAY Deq:1"));
  EXPECT_TRUE(log.Contains(") DELAY Deq:2"));
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 2u);
}

TEST_F(DecoderPacketsTest, InnerDecoderBusy_FacadePropertiesAndQueueStayReachable) {
  AllowFrames();
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(stream, 0).Get(), &cpFrame), S_OK);  // the decoder is in place
  Step held = Step::Answer(eCall::DecodePacket, S_OK, eWait::UntilReleased);
  m_pScript->Expect(held);
  const vc::ComPtr<IVCPacket> cpPacket = FramePacket(stream, 1);
  std::future<HRESULT> decoding = std::async(std::launch::async, [&] {
    vc::ComPtr<IVCFrame> cpHeldFrame;
    return m_cpDecoder->DecodePacket(cpPacket.Get(), -1, nullptr, cpHeldFrame.AddressOf(), nullptr);
  });
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::DecodePacket, 5000));
  // The facade lock is not held across the inner call: the tree and the
  // queue answer while the decoder works.
  std::future<std::string> reading = std::async(std::launch::async, [&] {
    SetProp("custom.while_busy", "1");
    return Prop("decoder.type") + "/" + std::to_string(m_pFacade->_QueuedPackets());
  });
  const bool bAnswered = reading.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  m_pScript->ReleaseHeld();
  EXPECT_TRUE(bAnswered);
  EXPECT_EQ(reading.get(), "FFmpeg A/V(h264)/0");
  EXPECT_EQ(decoding.get(), S_OK);
}

// --- DecodeAudio ----------------------------------------------------------------------------

TEST_F(DecoderPacketsTest, DecodeAudio_ChecksItsArgumentsThenPassesEverythingThrough) {
  CUntouchedAudioBuffer buffer;
  const vc::CKStreamInfo stream = AudioStream();
  const vc::ComPtr<IVCPacket> cpPacket = Packet(stream, 0, 21 * kMsec, eVCPF_KeyFrame);
  LONG nSamples = -1;
  EXPECT_EQ(m_cpDecoder->DecodeAudio(nullptr, 0, &buffer, &nSamples, nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpDecoder->DecodeAudio(cpPacket.Get(), 0, nullptr, &nSamples, nullptr), E_INVALIDARG);
  EXPECT_TRUE(Created().empty());

  Step decoded = Step::Answer(eCall::DecodeAudio, S_OK);
  decoded.nSamples = 1024;
  m_pScript->Expect(decoded);
  m_pScript->Expect(Step::Answer(eCall::DecodeAudio, E_FAIL));
  ASSERT_EQ(m_cpDecoder->DecodeAudio(cpPacket.Get(), 5 * kMsec, &buffer, &nSamples, vc::CBstr(W("line=main"))), S_OK);
  EXPECT_EQ(nSamples, 1024);
  const std::vector<CallRecord> vecAudio = Calls(eCall::DecodeAudio);
  ASSERT_EQ(vecAudio.size(), 1u);
  EXPECT_EQ(vecAudio[0].llValue, 5 * kMsec);
  EXPECT_EQ(vecAudio[0].strText, "line=main");
  EXPECT_EQ(vecAudio[0].llArg, buffer.Address());
  EXPECT_TRUE(vecAudio[0].bPacket);

  // A failure comes back as it is; a changed stream does not re-select.
  vc::CLogCapture log(vc::eVCLL_Error);
  const vc::ComPtr<IVCPacket> cpOther = Packet(AudioStream("aac", 44100), 21 * kMsec, 42 * kMsec);
  EXPECT_EQ(m_cpDecoder->DecodeAudio(cpOther.Get(), -1, &buffer, &nSamples, nullptr), E_FAIL);
  EXPECT_EQ(nSamples, 0);
  EXPECT_TRUE(LogLineWith(log, {"cpVCDecoder->DecodeAudio(Stm:0 ", "Time:00:00:00.021..00:00:00.042 ",
                                ") FAILED hr=80004005"}));
  EXPECT_EQ(Created().size(), 1u);
  EXPECT_EQ(buffer.Touched(), 0);
  EXPECT_EQ(Prop("stat::a_decode.kbps"), kAbsent) << "DecodeAudio keeps no statistics";
  EXPECT_EQ(Prop("stat::a_decode.decode_error"), kAbsent);
}

TEST_F(DecoderPacketsTest, DecodeAudio_WithoutACandidate_FailsWithNotSupported) {
  m_pScript->Reset();
  m_pScript->Allow(eCall::Create, S_OK);
  m_pScript->Allow(eCall::DecodeIsSupported, S_FALSE);
  CUntouchedAudioBuffer buffer;
  LONG nSamples = -1;
  EXPECT_EQ(m_cpDecoder->DecodeAudio(Packet(AudioStream(), 0, 21 * kMsec).Get(), -1, &buffer, &nSamples, nullptr),
            vc::VC_E_NO_CANDIDATE);
  EXPECT_EQ(Calls(eCall::DecodeAudio).size(), 0u);
}

// --- DecodeClose -----------------------------------------------------------------------------

TEST_F(DecoderPacketsTest, DecodeClose_ClosesTheDecoderAndRemovesTheDecodingStatisticsOnly) {
  AllowFrames(1);
  const vc::CKStreamInfo stream = VideoStream();
  vc::ComPtr<IVCFrame> cpFrame;
  Decode(FramePacket(stream, 0, eVCPF_KeyFrame).Get(), &cpFrame);
  Decode(FramePacket(stream, 1).Get(), &cpFrame);
  Decode(nullptr, &cpFrame);  // a drain writes the averaged statistics out
  Decode(FramePacket(stream, 2).Get(), &cpFrame);
  ASSERT_EQ(m_pFacade->_QueuedPackets(), 1u);
  ASSERT_NE(Prop("stat::v_decode.kbps"), kAbsent);
  ASSERT_NE(Prop("stat::v_decode.performance"), kAbsent);
  SetProp("stat::a_decode.leftover", "1");
  SetProp("stat::splitter.kbps", "12");

  m_pScript->Expect(Step::Answer(eCall::DecodeClose, static_cast<HRESULT>(0x80004005)));
  vc::CLogCapture log(vc::eVCLL_Error);
  EXPECT_EQ(m_cpDecoder->DecodeClose(), E_FAIL);
  EXPECT_TRUE(log.Contains("(h264) cpVCDecoder->DecodeClose() = 80004005"));
  EXPECT_EQ(Calls(eCall::DecodeClose).size(), 1u);
  for (const char* szGone : {"stat::v_decode.kbps", "stat::v_decode.performance", "stat::v_decode.input_fps",
                             "stat::v_decode.pkt_diff", "stat::a_decode.leftover"})
    EXPECT_EQ(Prop(szGone), kAbsent) << szGone;
  EXPECT_EQ(Prop("stat::splitter.kbps"), "12");
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 0u);

  // Nothing to close: S_FALSE, and the statistics still go.
  SetProp("stat::v_decode.kbps", "5");
  EXPECT_EQ(m_cpDecoder->DecodeClose(), S_FALSE);
  EXPECT_EQ(Prop("stat::v_decode.kbps"), kAbsent);
  EXPECT_EQ(Calls(eCall::DecodeClose).size(), 1u);

  // The next packet selects a decoder afresh.
  Decode(FramePacket(stream, 0, eVCPF_KeyFrame).Get(), &cpFrame);
  EXPECT_EQ(Created().size(), 2u);
}

}  // namespace
}  // namespace vctest
