// The decoder facade's choice of inner decoder over scripted candidates: the
// walk's order and skipping rules, the two switches, failure marking and
// when failed entries come back, what the facade publishes about the
// decoder it chose, and which stream changes replace it.
#include <gtest/gtest.h>

#include "ScriptedDecoderFixture.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace vctest {
namespace {

using DecoderSelectTest = ScriptedDecoderTest;

// --- The walk ------------------------------------------------------------------

TEST_F(DecoderSelectTest, Switches_DecideWhichHardwareEntriesAreTriedAndInWhatOrder) {
  m_pScript->AllowStep(Step::For(eClass::NVidiaDecoder, eCall::DecodeIsSupported, S_FALSE));
  m_pScript->AllowStep(Step::For(eClass::QuickSyncDecoder, eCall::DecodeIsSupported, S_FALSE));
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  struct Case {
    const char* szNVidia;  // nullptr: left at its default
    const char* szQuickSync;
    std::vector<std::string> vecTried;
  };
  const Case cases[] = {
      {nullptr, nullptr, {"nvidia", "general"}},  // defaults: NVIDIA on, QuickSync off
      {"true", "true", {"nvidia", "quicksync", "general"}},
      {"false", "true", {"quicksync", "general"}},
      {"false", "false", {"general"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.szNVidia ? c.szNVidia : "default") + "/" + (c.szQuickSync ? c.szQuickSync : "default"));
    if (c.szNVidia) SetProp("decoder.nvidia", c.szNVidia);
    if (c.szQuickSync) SetProp("decoder.quicksync", c.szQuickSync);
    const size_t nMark = Mark();
    BOOL bSupported = FALSE;
    ASSERT_EQ(IsSupported(VideoStream(), &bSupported), S_OK);
    EXPECT_TRUE(bSupported);
    EXPECT_EQ(Created(nMark), c.vecTried);
    const std::vector<vc::VCCandidate> vecTable = m_pFacade->_Candidates();
    ASSERT_EQ(vecTable.size(), c.vecTried.size());
    EXPECT_EQ(vc::ToUtf8(vecTable.back().strName), "FFmpeg A/V");
    EXPECT_EQ(m_cpDecoder->DecodeClose(), S_OK);  // the next round selects afresh
  }
}

TEST_F(DecoderSelectTest, AudioStream_NeverTriesTheVideoOnlyEntries) {
  SetProp("decoder.quicksync", "true");
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  ASSERT_EQ(IsSupported(AudioStream()), S_OK);
  EXPECT_EQ(Created(), std::vector<std::string>{"general"});
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V(aac)");
  EXPECT_EQ(Prop("info::hw_acceleration"), kAbsent);
  // The hardware entries were skipped, not failed.
  EXPECT_EQ(States(), (std::vector<LONG>{0, 0, 0}));
}

TEST_F(DecoderSelectTest, EveryCandidateHasTheFacadesPropertiesBeforeItIsAsked) {
  SetProp("threads", "3");
  SetProp("custom.marker", "marker-7731");
  m_pScript->AllowStep(Step::For(eClass::NVidiaDecoder, eCall::DecodeIsSupported, S_FALSE));
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  ASSERT_EQ(IsSupported(VideoStream("h264")), S_OK);

  const std::vector<CallRecord> vecAsked = Calls(eCall::DecodeIsSupported);
  ASSERT_EQ(vecAsked.size(), 2u);
  for (const CallRecord& record : vecAsked) {
    EXPECT_NE(record.strProps.find("marker-7731"), std::string::npos) << record.strProps;
    EXPECT_NE(record.strProps.find("threads"), std::string::npos) << record.strProps;
    EXPECT_EQ(record.strText, "h264");          // the description reached it
    EXPECT_EQ(record.llValue, eVCMT_Video);
    EXPECT_EQ(record.llArg, 0) << "a candidate is asked without the out flag";
  }
}

TEST_F(DecoderSelectTest, FailedCreation_SkippedByPacketReselection_TriedAgainAfterDecodeIsSupported) {
  m_pScript->Expect(Step::For(eClass::NVidiaDecoder, eCall::Create, E_FAIL));
  m_pScript->AllowStep(Step::For(eClass::NVidiaDecoder, eCall::DecodeIsSupported, S_FALSE));
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  m_pScript->Allow(eCall::DecodePacket, S_OK);

  vc::CLogCapture log(vc::eVCLL_Error);
  ASSERT_EQ(IsSupported(VideoStream()), S_OK);
  EXPECT_TRUE(log.Contains("cpVCDecoder.CoCreateInstance( {2CBD671C-8106-49EC-8ABB-9D67CF025301} ) "
                           "'NVidia Decoder' FAILED hr=80004005"));
  EXPECT_EQ(States(), (std::vector<LONG>{-1, 0}));

  // A packet of a bigger picture needs a new decoder: the walk skips NVIDIA.
  size_t nMark = Mark();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264", 640, 480), 0).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Created(nMark), std::vector<std::string>{"general"});

  // DecodeIsSupported rebuilds the table: NVIDIA is created again.
  nMark = Mark();
  ASSERT_EQ(IsSupported(VideoStream("h264", 1280, 720)), S_OK);
  EXPECT_EQ(Created(nMark), (std::vector<std::string>{"nvidia", "general"}));
  EXPECT_EQ(States(), (std::vector<LONG>{0, 0}));
}

TEST_F(DecoderSelectTest, Refusal_FailureCodeMarksTheEntry_SuccessCodeLeavesItEligible) {
  SetProp("decoder.quicksync", "true");
  m_pScript->AllowStep(Step::For(eClass::NVidiaDecoder, eCall::DecodeIsSupported, E_FAIL));
  m_pScript->AllowStep(Step::For(eClass::QuickSyncDecoder, eCall::DecodeIsSupported, S_FALSE));
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  m_pScript->Allow(eCall::DecodePacket, S_OK);

  vc::CLogCapture log(vc::eVCLL_Retry);
  ASSERT_EQ(IsSupported(VideoStream()), S_OK);
  EXPECT_EQ(States(), (std::vector<LONG>{-1, 0, 0}));
  EXPECT_TRUE(log.Contains(") NOT SUPPORTED (hr=80004005)"));
  EXPECT_TRUE(log.Contains(") NOT SUPPORTED (hr=00000001)"));
  EXPECT_TRUE(log.Contains("cpVCDecoder->DecodeIsSupported( video h264 "));

  // A changed stream: NVIDIA stays out, QuickSync is asked again.
  const size_t nMark = Mark();
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream("hevc"), 0).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Created(nMark), (std::vector<std::string>{"quicksync", "general"}));
}

TEST_F(DecoderSelectTest, NoDescription_IsRefusedWithTheAssertion) {
  m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  vc::CAssertCounter asserts;
  BOOL bSupported = TRUE;
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(nullptr, nullptr, &bSupported), S_FALSE);
  EXPECT_FALSE(bSupported);
  EXPECT_EQ(asserts.LastCondition(), "_pStmInfo");
  // A packet without a usable description does not help.
  const vc::ComPtr<IVCPacket> cpBare = Packet(vc::CKStreamInfo(), 0, kFrame);
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(nullptr, cpBare.Get(), &bSupported), S_FALSE);
  EXPECT_TRUE(Created().empty());
}

TEST_F(DecoderSelectTest, NoCandidateAccepts_AnswersFalseAndDecodingFailsWithNotSupported) {
  m_pScript->Allow(eCall::DecodeIsSupported, S_FALSE);
  vc::CLogCapture log(vc::eVCLL_Error);
  BOOL bSupported = TRUE;
  EXPECT_EQ(IsSupported(VideoStream(), &bSupported), S_FALSE);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(log.Contains("NOT SUPPORTED:video h264"));

  vc::ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(Decode(FramePacket(VideoStream(), 0).Get(), &cpFrame), vc::VC_E_NO_CANDIDATE);
  EXPECT_FALSE(cpFrame);
  EXPECT_TRUE(log.Contains("DecodeIsSupported()=00000001"));
  EXPECT_EQ(Calls(eCall::DecodePacket).size(), 0u);
}

// --- What the facade publishes ---------------------------------------------------

TEST_F(DecoderSelectTest, AcceptedDecoder_PublishesTypeAndItsInformation_HardwareOnlyForTheHardwareEntries) {
  SetProp("decoder.quicksync", "true");
  struct Case {
    eClass accepting;
    const char* szType;
    const char* szHwAcceleration;
    const char* szDevice;
  };
  const Case cases[] = {
      {eClass::NVidiaDecoder, "NVidia Decoder(h264)", "h264_cuvid", "cuda"},
      {eClass::QuickSyncDecoder, "Intel QuickSync Decoder(h264)", "h264_qsv", "qsv"},
      {eClass::GeneralDecoder, "FFmpeg A/V(h264)", kAbsent, "cpu"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.szType);
    m_pScript->Reset();
    m_pScript->Allow(eCall::Create, S_OK);
    m_pScript->Allow(eCall::DecodeClose, S_OK);
    m_pScript->Allow(eCall::DecodeIsSupported, S_FALSE);
    m_pScript->AllowStep(Step::For(c.accepting, eCall::DecodeIsSupported, S_OK));
    // A fresh facade each time: "info::hw_acceleration" is only ever set.
    ASSERT_EQ(vc::CreateObject<vc::CCoVCDecoder>(nullptr, vc::IidOf<IVCDecoder>(),
                                                 reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCDecoder*>(m_cpDecoder.Get());
    ASSERT_EQ(m_cpDecoder.As(&m_cpProps), S_OK);
    SetProp("decoder.quicksync", "true");

    ASSERT_EQ(IsSupported(VideoStream("h264", 640, 360)), S_OK);
    EXPECT_EQ(Prop("decoder.type"), c.szType);
    EXPECT_EQ(Prop("info::hw_acceleration"), c.szHwAcceleration);
    EXPECT_EQ(Prop("decoder.device"), c.szDevice);
    EXPECT_EQ(Prop("decoder.size"), "640x360");
    EXPECT_EQ(Prop("decoder.tag"), "h264");
    EXPECT_EQ(Prop("decoder.profile"), "Main");
    EXPECT_EQ(Prop("decoder.level"), "40");
    const std::vector<CallRecord> vecCreated = Calls(eCall::DecodeIsSupported);
    ASSERT_FALSE(vecCreated.empty());
    EXPECT_EQ(Prop("decoder.id"), std::to_string(vecCreated.back().nObject)) << "copied from the accepted object";
  }
}

TEST_F(DecoderSelectTest, StreamWithoutCodecName_TypeIsTheBareDisplayName) {
  UseGeneralOnly();
  ASSERT_EQ(IsSupported(VideoStream(nullptr)), S_OK);
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V");
  ASSERT_EQ(m_cpDecoder->DecodeClose(), S_OK);
  ASSERT_EQ(IsSupported(VideoStream("")), S_OK);
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V");
}

TEST_F(DecoderSelectTest, SecondDecodeIsSupportedOfTheSameStream_AnswersFalseAndKeepsTheDecoder) {
  UseGeneralOnly();
  m_pScript->Allow(eCall::DecodePacket, S_OK);
  BOOL bSupported = FALSE;
  ASSERT_EQ(IsSupported(VideoStream(), &bSupported), S_OK);
  EXPECT_TRUE(bSupported);
  const std::string strId = Prop("decoder.id");

  vc::CLogCapture log(vc::eVCLL_Error);
  EXPECT_EQ(IsSupported(VideoStream(), &bSupported), S_FALSE);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(log.Contains("NOT SUPPORTED:video h264"));
  EXPECT_EQ(Created().size(), 1u);

  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream(), 0).Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(Prop("decoder.id"), strId);
  EXPECT_EQ(Calls(eCall::DecodePacket).at(0).nObject, Calls(eCall::DecodeIsSupported).at(0).nObject);
}

// --- Stream changes ----------------------------------------------------------------

TEST_F(DecoderSelectTest, CodecNameChangingOnlyInCase_OrFrameRateChanging_KeepsTheDecoder) {
  UseGeneralOnly();
  m_pScript->Allow(eCall::DecodePacket, S_OK);
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264"), 0).Get(), &cpFrame), S_OK);
  ASSERT_EQ(Decode(FramePacket(VideoStream("H264"), 1).Get(), &cpFrame), S_OK);
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264", 320, 240, 50.0), 2).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Created().size(), 1u);
  const std::vector<CallRecord> vecDecoded = Calls(eCall::DecodePacket);
  ASSERT_EQ(vecDecoded.size(), 3u);
  EXPECT_EQ(vecDecoded[2].nObject, vecDecoded[0].nObject);
}

TEST_F(DecoderSelectTest, CodecNameAppearing_ReplacesTheDecoder) {
  UseGeneralOnly();
  m_pScript->Allow(eCall::DecodePacket, S_OK);
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream(nullptr), 0).Get(), &cpFrame), S_OK);
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264"), 1).Get(), &cpFrame), S_OK);
  EXPECT_EQ(Created().size(), 2u);
  EXPECT_EQ(Prop("decoder.type"), "FFmpeg A/V(h264)");
}

TEST_F(DecoderSelectTest, OneByteOfCodecDataChanged_ReplacesTheDecoderAndEmptiesTheQueue) {
  UseGeneralOnly();
  Step delayed = Step::Answer(eCall::DecodePacket, S_OK);
  delayed.nDelay = 3;
  m_pScript->AllowStep(delayed);
  vc::ComPtr<IVCFrame> cpFrame;
  for (int n = 0; n < 2; ++n) ASSERT_EQ(Decode(FramePacket(VideoStream(), n).Get(), &cpFrame), S_FALSE);
  ASSERT_EQ(m_pFacade->_QueuedPackets(), 2u);
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 2);

  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264", 320, 240, 25.0, {1, 2, 3, 5}), 2).Get(), &cpFrame), S_FALSE);
  EXPECT_EQ(Created().size(), 2u);
  EXPECT_TRUE(log.Contains("New decoder created (video h264 320x240"));
  EXPECT_TRUE(log.Contains(") Reset Packets:2"));
  EXPECT_TRUE(log.Contains("CREATE/REINIT ENCODER:video h264 320x240"));
  EXPECT_EQ(m_pFacade->_QueuedPackets(), 1u) << "only the packet given to the new decoder";
  EXPECT_EQ(m_pFacade->_InFlightPackets(), 1);
  // The new decoder had that packet, the old one only the first two.
  const std::vector<CallRecord> vecDecoded = Calls(eCall::DecodePacket);
  ASSERT_EQ(vecDecoded.size(), 3u);
  EXPECT_NE(vecDecoded[2].nObject, vecDecoded[0].nObject);
}

TEST_F(DecoderSelectTest, NoCandidateForAChangedStream_TheOldDecoderGoesOn) {
  UseGeneralOnly();
  m_pScript->Allow(eCall::DecodePacket, S_OK);
  vc::ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264"), 0).Get(), &cpFrame), S_OK);
  const std::string strType = Prop("decoder.type");

  m_pScript->Expect(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_FALSE));
  ASSERT_EQ(Decode(FramePacket(VideoStream("hevc"), 1).Get(), &cpFrame), S_OK);
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(TimeOf(cpFrame.Get()).rtStartTime, kFrame);
  ASSERT_EQ(Decode(FramePacket(VideoStream("h264"), 2).Get(), &cpFrame), S_OK);

  const std::vector<CallRecord> vecDecoded = Calls(eCall::DecodePacket);
  ASSERT_EQ(vecDecoded.size(), 3u);
  for (const CallRecord& record : vecDecoded) EXPECT_EQ(record.nObject, vecDecoded[0].nObject);
  EXPECT_EQ(Prop("decoder.type"), strType);
  EXPECT_EQ(m_pScript->Pending(), 0u);
}

}  // namespace
}  // namespace vctest
