// The encoder facade's frame path over a scripted inner encoder: the queue
// of frames waiting for their packets (32 at most, video only), the pairing
// of packets with frames within 1 ms, conversion left out when nothing is
// to convert, re-creation on changed input properties, statistics and the
// log lines of the packet getter.
#include <string>
#include <vector>

#include "encoder/ScriptedEncoderFixture.h"

namespace vctest {
namespace {

class EncoderFramesTest : public ScriptedEncoderTest {
 protected:
  void SetUp() override {
    ScriptedEncoderTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
  }
  // Frames at 0, 40, 80 ... ms that give no packet, each with its number
  // attached.
  void PutFrames(int nFrom, int nCount) {
    for (int n = nFrom; n < nFrom + nCount; ++n) {
      m_pScript->Expect(NoPacket());
      const std::string strId = std::to_string(n);
      ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(n * kFrame, VideoProps(), strId.c_str()).Get(), nullptr, nullptr,
                                            nullptr),
                S_OK);
    }
  }
  // A frame far from the others whose put hands out a packet at rtPacket.
  vc::ComPtr<IVCPacket> PutForPacketAt(LONGLONG rtPacket) {
    m_pScript->Expect(PacketAt(rtPacket));
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(m_cpEncoder->EncodeFramePut(Frame(3600 * VC_TIME_SECOND).Get(), nullptr, cpPacket.AddressOf(), nullptr),
              S_OK);
    return cpPacket;
  }
};

TEST_F(EncoderFramesTest, FrameQueue_KeepsTheNewest32) {
  PutFrames(0, 32);
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 32u);
  PutFrames(32, 1);
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 32u);
  // Frame 0 went: a packet at its time pairs with nothing.
  vc::ComPtr<IVCPacket> cpPacket = PutForPacketAt(0);
  ASSERT_TRUE(cpPacket);
  EXPECT_EQ(AttachedId(cpPacket.Get()), "(none)");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 32u);
}

TEST_F(EncoderFramesTest, Packet_PairsWithinOneMillisecondAndDropsOlderFrames) {
  PutFrames(0, 5);  // 0, 40, 80, 120, 160 ms
  vc::ComPtr<IVCPacket> cpPacket = PutForPacketAt(2 * kFrame + kMsec / 2);
  ASSERT_TRUE(cpPacket);
  EXPECT_EQ(AttachedId(cpPacket.Get()), "2");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 3u) << "frames 3, 4 and the one just put";

  // A frame that starts 1 ms after the packet is out of reach.
  cpPacket = PutForPacketAt(3 * kFrame - kMsec);
  EXPECT_EQ(AttachedId(cpPacket.Get()), "(none)");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 4u);
  // Just under 1 ms the other way round still pairs.
  cpPacket = PutForPacketAt(4 * kFrame + kMsec - 1);
  EXPECT_EQ(AttachedId(cpPacket.Get()), "4");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 3u);
}

TEST_F(EncoderFramesTest, PacketsGet_PairsAndReportsTheReadyCount) {
  // Two frames whose packets wait in the inner encoder for the getter.
  Step delayed = Step::Answer(eCall::EncodeFramePut, S_OK);
  delayed.nDelay = 0;
  m_pScript->Expect(delayed);
  m_pScript->Expect(delayed);
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(0, VideoProps(), "0").Get(), nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(kFrame, VideoProps(), "1").Get(), nullptr, nullptr, nullptr), S_OK);
  m_pScript->Allow(eCall::EncodePacketsGet, S_OK);
  vc::CLogCapture log;
  vc::ComPtr<IVCPacket> cpPacket;
  LONG nReady = -1;
  ASSERT_EQ(m_cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), &nReady, 0, nullptr), S_OK);
  EXPECT_EQ(nReady, 1);
  EXPECT_EQ(AttachedId(cpPacket.Get()), "0");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 1u);
  EXPECT_TRUE(LogLineWith(log, {"[ENC-PKT] cpVCEncoder->EncodePacketsGet(Wait:"}));
  EXPECT_TRUE(LogLineWith(log, {", DeqPkt:1] DeqFrm:2 OK hr=00000000"})) << "the queue as it was before the pairing";

  ASSERT_EQ(m_cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), &nReady, 0, nullptr), S_OK);
  EXPECT_EQ(nReady, 0);
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), &nReady, 0, nullptr), kEmpty);
  EXPECT_TRUE(LogLineWith(log, {") FAILED hr=800710D2 HRESULT_FROM_WIN32(ERROR_EMPTY)"}));
  // The getter's statistics use the plain prefix.
  EXPECT_NE(Prop("stat::v_encode.kbps"), "(absent)");
}

TEST_F(EncoderFramesTest, FramePutStatistics_KeepTheDoublePoint) {
  // The first frame re-creates the encoder, and closing the old one clears
  // the statistics written so far; the second frame's stay.
  PutFrames(0, 1);
  vc::ComPtr<IVCPacket> cpPacket = PutForPacketAt(0);
  ASSERT_TRUE(cpPacket);
  EXPECT_NE(Prop("stat::v_encode..kbps"), "(absent)");
  EXPECT_NE(Prop("stat::v_encode..pkt_size_key"), "(absent)");
  EXPECT_NE(Prop("stat::v_encode.input_fps"), "(absent)");
  EXPECT_NE(Prop("stat::v_encode.performance").find("Avg:"), std::string::npos);

  // EncodeClose clears every encoder statistic.
  ASSERT_EQ(m_cpEncoder->EncodeClose(), S_OK);
  EXPECT_EQ(Prop("stat::v_encode..kbps"), "(absent)");
  EXPECT_EQ(Prop("stat::v_encode.input_fps"), "(absent)");
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 0u);
}

TEST_F(EncoderFramesTest, MatchingProps_NoConverterAndTheSameFrame) {
  K_AV_PROPS out = VideoProps();
  vc::ComPtr<IVCFrame> cpFrame = Frame(0);
  m_pScript->Expect(NoPacket());
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(cpFrame.Get(), &out, nullptr, nullptr), S_OK);
  EXPECT_FALSE(m_pFacade->_HasConverter());
  EXPECT_EQ(Calls(eCall::EncodeFramePut).back().llArg,
            static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(cpFrame.Get())));
}

TEST_F(EncoderFramesTest, ConvertFrameOff_PassesFramesAsTheyAre) {
  SetProp("vccodec.convert_frame", "false");
  K_AV_PROPS out = VideoProps(1280, 720);
  vc::ComPtr<IVCFrame> cpFrame = Frame(0);
  m_pScript->Expect(NoPacket());
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(cpFrame.Get(), &out, nullptr, nullptr), S_OK);
  EXPECT_FALSE(m_pFacade->_HasConverter());
  EXPECT_EQ(Calls(eCall::EncodeFramePut).back().llArg,
            static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(cpFrame.Get())));
}

TEST_F(EncoderFramesTest, ChangedProps_RecreateTheEncoderWithTheSameConfiguration) {
  vc::CLogCapture log;
  PutFrames(0, 1);  // the first frame after a choice always counts as changed
  const size_t nConfigs = Configs().size();
  PutFrames(1, 2);
  EXPECT_EQ(Configs().size(), nConfigs) << "same properties, same encoder";

  m_pScript->Expect(NoPacket());
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(3 * kFrame, VideoProps(640, 480)).Get(), nullptr, nullptr, nullptr), S_OK);
  ASSERT_EQ(Configs().size(), nConfigs + 1);
  EXPECT_EQ(Configs().back(), (std::pair<std::string, std::string>{"general", "codec=libx264"}));
  EXPECT_TRUE(LogLineWith(log, {"Reinit Encoder - PROPS CHANGED(320x240"}));
  EXPECT_TRUE(LogLineWith(log, {"->640x480"}));
  EXPECT_EQ(Calls(eCall::EncodeFramePut).back().nObject, Calls(eCall::EncodeCodecSet).back().nObject)
      << "the frame goes to the new encoder";

  SetProp("vccodec.reinit_for_changed_props", "false");
  m_pScript->Expect(NoPacket());
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(4 * kFrame, VideoProps(320, 240)).Get(), nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(Configs().size(), nConfigs + 1);
}

TEST_F(EncoderFramesTest, InnerFailure_IsLoggedAndReturned) {
  PutFrames(0, 1);
  m_pScript->Expect(Step::Answer(eCall::EncodeFramePut, E_FAIL));
  vc::CLogCapture log;
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(Frame(kFrame).Get(), nullptr, nullptr, nullptr), E_FAIL);
  EXPECT_TRUE(LogLineWith(log, {"cpVCEncoder->EncodeFramePut(00:00:00.040"}));
  EXPECT_TRUE(LogLineWith(log, {"FAILED hr=80004005"}));
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 1u) << "a refused frame is not queued";
}

class EncoderAudioFramesTest : public ScriptedEncoderTest {};

TEST_F(EncoderAudioFramesTest, AudioFrames_AreNeverQueued) {
  ASSERT_EQ(Set(eVCMT_Audio, "codec=aac"), S_OK);
  for (int n = 0; n < 3; ++n) {
    m_pScript->Expect(NoPacket());
    ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(n * kFrame, AudioProps()).Get(), nullptr, nullptr, nullptr), S_OK);
  }
  EXPECT_EQ(m_pFacade->_QueuedFrames(), 0u);
  vc::ComPtr<IVCPacket> cpPacket;
  m_pScript->Expect(PacketAt(0));
  ASSERT_EQ(m_cpEncoder->EncodeFramePut(Frame(3 * kFrame, AudioProps()).Get(), nullptr, cpPacket.AddressOf(), nullptr),
            S_OK);
  EXPECT_TRUE(cpPacket);
  EXPECT_NE(Prop("stat::a_encode..kbps"), "(absent)");
}

}  // namespace
}  // namespace vctest
