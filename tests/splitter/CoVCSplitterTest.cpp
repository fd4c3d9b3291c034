// The splitter facade over a scripted inner splitter: source choice, the
// reading thread's buffering, delivery order, waits, segments, failures.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "ScriptedSplitterFixture.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCSimpleThread.h"
#include "VCLog.h"
#include "VCSideData.h"

namespace vctest {
namespace {

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);
constexpr HRESULT kTimeout = HRESULT_FROM_WIN32(ERROR_TIMEOUT);
constexpr HRESULT kAborted = HRESULT_FROM_WIN32(995);

// --- Without a source --------------------------------------------------------

TEST(CoVCSplitterClosedTest, EveryCallWithoutSourceAnswersEmptyAndStopAnswersFalse) {
  vc::ComPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  EXPECT_EQ(cpSplitter->SplitterStop(), S_FALSE);
  IVCPacket* pPacket = reinterpret_cast<IVCPacket*>(1);
  EXPECT_EQ(cpSplitter->SplitterPacketGet(-1, &pPacket, nullptr), vc::VC_E_EMPTY);
  EXPECT_EQ(pPacket, nullptr);
  EXPECT_EQ(cpSplitter->SplitterBeginSegment(0, nullptr), vc::VC_E_EMPTY);
  LONG nStreams = -1;
  EXPECT_EQ(cpSplitter->SplitterInfoGet(nullptr, nullptr, &nStreams, nullptr), vc::VC_E_EMPTY);
  EXPECT_EQ(nStreams, 0);
  EXPECT_EQ(cpSplitter->SplitterClose(), S_OK);
}

TEST(CoVCSplitterClosedTest, RegisteredPropertiesCarryTheirDefaults) {
  vc::ComPtr<IVCProps> cpProps;
  ASSERT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCProps>(),
                                                reinterpret_cast<void**>(cpProps.AddressOf())),
            S_OK);
  const std::pair<const char*, const char*> expected[] = {
      {"audio_track", "0"},           {"subtitle_track", "-1"},     {"ts_program", "-1"},
      {"file.buffer_max", "1.0"},     {"network.buffer_min", "1.0"}, {"open_url.max_wait", "15000"},
      {"read_file.max_wait", "10000"}, {"mxf.force_ffmpeg", "true"}, {"srt.force_ffmpeg", "true"}};
  for (const auto& [szName, szValue] : expected) {
    vc::CBstr bsValue;
    ASSERT_EQ(cpProps->PropsGet(vc::CBstr(std::string_view(szName)), &bsValue), S_OK) << szName;
    EXPECT_EQ(vc::ToUtf8(vc::StringView(bsValue.Get(), SysStringLen(bsValue))), szValue) << szName;
  }
}

TEST(CoVCSplitterClosedTest, ThreadDestroyedWhileRunningReportsItselfAndStops) {
  vc::CLogCapture log(vc::eVCLL_Error);
  std::atomic<bool> bReturned{false};
  {
    vc::CSimpleThreadBase thread("CTestOwner");
    ASSERT_TRUE(thread.ThreadStart([&] {
      while (thread.WaitWake()) {
      }
      bReturned = true;
      return DWORD{0};
    }));
    EXPECT_FALSE(thread.ThreadStart([] { return DWORD{0}; }));  // one thread at a time
  }
  EXPECT_TRUE(bReturned);
  EXPECT_TRUE(log.Contains("WARNING !!! Thread "));
  EXPECT_TRUE(log.Contains(" NOT STOPPED before destroying.\nCurrent:"));
  EXPECT_TRUE(log.Contains(" CTestOwner\nEXE: "));
}

// --- Opening -------------------------------------------------------------------

TEST_F(ScriptedSplitterTest, OpenCopiesPropertiesAndChoosesTheClassByExtensionAndSwitch) {
  vc::ComPtr<IVCProps> cpProps;
  ASSERT_EQ(m_cpSplitter.As(&cpProps), S_OK);
  ASSERT_EQ(cpProps->PropsSet(vc::CBstr(W("audio_track")), vc::CBstr(W("2"))), S_OK);
  ASSERT_EQ(Open("/media/CLIP.MXF"), S_OK);
  ASSERT_EQ(cpProps->PropsSet(vc::CBstr(W("nablet.enabled")), vc::CBstr(W("true"))), S_OK);
  ASSERT_EQ(Open("/media/CLIP.MXF"), S_OK);
  ASSERT_EQ(Open("/media/clip.mp4"), S_OK);

  std::vector<std::string> vecKinds;
  std::string strProps;
  for (const CallRecord& record : m_pScript->Calls()) {
    if (record.call == eCall::Create) vecKinds.push_back(record.strText);
    if (record.call == eCall::SplitterOpen && strProps.empty()) strProps = record.strProps;
  }
  EXPECT_EQ(vecKinds, (std::vector<std::string>{"general", "nablet", "general"}));
  EXPECT_NE(strProps.find("audio_track"), std::string::npos) << strProps;
  EXPECT_NE(strProps.find("\"2\""), std::string::npos) << strProps;
}

TEST_F(ScriptedSplitterTest, UrlSourcesAreNetworkSourcesUntilStopped) {
  ASSERT_EQ(Open("rtsp://camera.local/stream"), S_OK);
  EXPECT_TRUE(m_pFacade->_IsNetworkSource());
  EXPECT_EQ(m_cpSplitter->SplitterStop(), S_OK);
  EXPECT_FALSE(m_pFacade->_IsNetworkSource());
  ASSERT_EQ(Open("/media/local.ts"), S_OK);
  EXPECT_FALSE(m_pFacade->_IsNetworkSource());
}

TEST_F(ScriptedSplitterTest, FailedOpenOfASecondSourceLeavesTheFirstReadable) {
  ASSERT_EQ(Open("/media/first.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  for (int i = 0; i < 3; ++i) m_pScript->Expect(Step::Packet(0, eVCMT_Video, i * 40 * kMs, (i + 1) * 40 * kMs));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);

  vc::CLogCapture log(vc::eVCLL_Error);
  EXPECT_EQ(Open("/media/second.mp4", E_FAIL), E_FAIL);
  EXPECT_TRUE(log.Contains("cpVCSplitter->SplitterOpen(/media/second.mp4) FAILED hr=80004005"));
  EXPECT_TRUE(m_pFacade->_IsThreadRunning());

  vc::ComPtr<IVCPacket> cpPacket;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(Get(0, &cpPacket), S_OK) << i;
    EXPECT_EQ(Info(cpPacket.Get()).llPts, i * 40 * kMs);
  }
  EXPECT_EQ(Get(0, &cpPacket), kEndOfMedia);
  vc::CBstr bsPath;
  m_pScript->Expect(Step::Answer(eCall::SplitterInfoGet, S_OK));
  ASSERT_EQ(m_cpSplitter->SplitterInfoGet(&bsPath, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(vc::ToUtf8(vc::StringView(bsPath.Get(), SysStringLen(bsPath))), "/media/first.mp4");
}

TEST_F(ScriptedSplitterTest, CloseLetsTheSourceGoAndLeavesTheFacadeClosed) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  EXPECT_EQ(m_cpSplitter->SplitterClose(), S_OK);
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterClose), 1u);
  EXPECT_FALSE(m_pFacade->_IsThreadRunning());
  vc::ComPtr<IVCPacket> cpPacket;
  EXPECT_EQ(Get(0, &cpPacket), vc::VC_E_EMPTY);
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(0, nullptr), vc::VC_E_EMPTY);
  EXPECT_EQ(m_cpSplitter->SplitterStop(), S_FALSE);
  EXPECT_EQ(m_cpSplitter->SplitterClose(), S_OK);  // twice is harmless
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterClose), 1u);
  // And it opens again.
  ASSERT_EQ(Open("/media/b.mp4"), S_OK);
  EXPECT_TRUE(m_pFacade->_IsThreadRunning());
}

TEST_F(ScriptedSplitterTest, SideDataAnswersFalseWhenTheInnerSplitterHasNone) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  vc::ComPtr<IVCSideData> cpSide;
  ASSERT_EQ(m_cpSplitter.As(&cpSide), S_OK);
  LONG nCount = -1;
  EXPECT_EQ(cpSide->SideDataGetCount(0, &nCount), S_FALSE);
}

// --- Delivery --------------------------------------------------------------------

TEST_F(ScriptedSplitterTest, AnyStreamDeliversInSourceOrderAcrossStreams) {
  ASSERT_EQ(Open("/media/av.mp4"), S_OK);
  const LONG order[] = {0, 1, 1, 0, 1, 0, 0, 1};
  LONGLONG rtNext[2] = {0, 0};
  for (LONG nStream : order) {
    const eVCMediaType eType = nStream == 0 ? eVCMT_Video : eVCMT_Audio;
    m_pScript->Expect(Step::Packet(nStream, eType, rtNext[nStream], rtNext[nStream] + 40 * kMs));
    rtNext[nStream] += 40 * kMs;
  }
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  // Let the thread read everything before taking, so the order comes from
  // the queues rather than from arrival.
  ASSERT_EQ(SegmentAndRead(0, "0,1"), S_OK);
  ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterPacketGet, std::size(order) + 1, 5000));
  vc::ComPtr<IVCPacket> cpPacket;

  for (size_t i = 0; i < std::size(order); ++i) {
    ASSERT_EQ(Get(-1, &cpPacket), S_OK) << i;
    const K_PACKET_INFO info = Info(cpPacket.Get());
    EXPECT_EQ(info.nStreamIndex, order[i]) << i;
    EXPECT_EQ(info.nOrderInSegment, static_cast<LONG>(i));
    EXPECT_EQ(info.rtSegmentStart, 0);
  }
  EXPECT_EQ(Get(-1, &cpPacket), kEndOfMedia);
}

TEST_F(ScriptedSplitterTest, AnyStreamReaderStartedEarlyGetsEveryStreamUntilAllHaveEnded) {
  ASSERT_EQ(Open("/media/av.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0,1"), S_OK);
  // The video stream ends after one packet; audio goes on. A reader that
  // starts while every queue is empty must not take video's end for the end.
  m_pScript->Expect(Step::Packet(0, eVCMT_Video, 0, 40 * kMs));
  for (int i = 0; i < 4; ++i) m_pScript->Expect(Step::Packet(1, eVCMT_Audio, i * 20 * kMs, (i + 1) * 20 * kMs));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  std::vector<LONG> vecStreams;
  vc::ComPtr<IVCPacket> cpPacket;
  HRESULT hr = S_OK;
  while ((hr = Get(-1, &cpPacket)) == S_OK) vecStreams.push_back(Info(cpPacket.Get()).nStreamIndex);
  EXPECT_EQ(hr, kEndOfMedia);
  EXPECT_EQ(vecStreams, (std::vector<LONG>{0, 1, 1, 1, 1}));
  // The end publishes every stream's final values, however short the source.
  vc::ComPtr<IVCProps> cpProps;
  ASSERT_EQ(m_cpSplitter.As(&cpProps), S_OK);
  for (const OLECHAR* szName : {W("stat::packets_dropped.video.-1"), W("stat::packets_dropped.audio.-1")}) {
    vc::CBstr bsValue;
    EXPECT_EQ(cpProps->PropsGet(vc::CBstr(szName), &bsValue), S_OK) << vc::ToUtf8(szName);
    EXPECT_EQ(bsValue.Utf8(), "0");
  }
}

TEST_F(ScriptedSplitterTest, MaxWaitZeroWithNothingBufferedTimesOutAtOnce) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  m_pScript->Expect(Step::Answer(eCall::SplitterPacketGet, S_OK, eWait::UntilReleased));
  vc::ComPtr<IVCPacket> cpPacket;
  const auto tpStart = std::chrono::steady_clock::now();
  EXPECT_EQ(Get(0, &cpPacket, "max_wait=0"), kTimeout);
  const auto elapsed = std::chrono::steady_clock::now() - tpStart;
  EXPECT_FALSE(cpPacket);
  // The thread was woken: it now sits in the held read.
  EXPECT_TRUE(m_pScript->WaitWaiting(eCall::SplitterPacketGet, 5000));
  EXPECT_LT(elapsed, std::chrono::seconds(5));  // a bound on a hang, not a timing claim
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  m_pScript->ReleaseHeld();
}

TEST_F(ScriptedSplitterTest, UnknownStreamAnswersBadIndex) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  vc::ComPtr<IVCPacket> cpPacket;
  EXPECT_EQ(Get(7, &cpPacket, "max_wait=0"), HRESULT_FROM_WIN32(ERROR_INVALID_INDEX));
}

TEST_F(ScriptedSplitterTest, ReadFailureLetsConsumersDrainThenAnswersEndOfMedia) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  for (int i = 0; i < 3; ++i) m_pScript->Expect(Step::Packet(0, eVCMT_Video, i * 40 * kMs, (i + 1) * 40 * kMs));
  m_pScript->Allow(eCall::SplitterPacketGet, E_FAIL);

  vc::CLogCapture log(vc::eVCLL_Error);
  ASSERT_EQ(SegmentAndRead(0, "0"), S_OK);
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterPacketGet, 4, 5000));
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(Get(0, &cpPacket), S_OK) << i;
    EXPECT_EQ(Info(cpPacket.Get()).nIndexInSegment, i);
  }
  EXPECT_EQ(Get(0, &cpPacket), kEndOfMedia);
  EXPECT_TRUE(log.Contains("cpVCSplitter->SplitterPacketGet() FAILED hr=80004005"));
}

TEST_F(ScriptedSplitterTest, FileSourceStopsReadingOnceShortestQueueHoldsOneSecond) {
  ASSERT_EQ(Open("/media/av.mp4"), S_OK);
  for (int i = 0; i < 100; ++i) {
    m_pScript->Expect(Step::Packet(0, eVCMT_Video, i * 40 * kMs, (i + 1) * 40 * kMs));
    m_pScript->Expect(Step::Packet(1, eVCMT_Audio, i * 40 * kMs, (i + 1) * 40 * kMs));
  }
  // 25 packets of 40 ms fill a queue to 1 s: 50 reads fill both.
  ASSERT_EQ(SegmentAndRead(0, "0,1"), S_OK);
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterPacketGet, 50, 5000));
  EXPECT_FALSE(m_pScript->WaitCalls(eCall::SplitterPacketGet, 51, 300));  // full: the thread sleeps

  // A take from a queue holding under 3 s wakes the thread for one more read.
  ASSERT_EQ(Get(0, &cpPacket), S_OK);
  EXPECT_TRUE(m_pScript->WaitCalls(eCall::SplitterPacketGet, 51, 5000));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
}

// --- Segments ---------------------------------------------------------------------

TEST_F(ScriptedSplitterTest, NegativeSegmentStartIsRefusedAndQueuesStay) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  for (int i = 0; i < 2; ++i) m_pScript->Expect(Step::Packet(0, eVCMT_Video, i * 40 * kMs, (i + 1) * 40 * kMs));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  ASSERT_EQ(SegmentAndRead(0, "0"), S_OK);
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterPacketGet, 3, 5000));

  vc::CAssertCounter asserts;
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(-1, nullptr), E_INVALIDARG);
  EXPECT_EQ(asserts.Count(), 1);
  EXPECT_EQ(asserts.LastPath(), "VCCodecs/VCCodecsCore/CoVCSplitter");
  for (int i = 0; i < 2; ++i) ASSERT_EQ(Get(0, &cpPacket), S_OK);
  EXPECT_EQ(Get(0, &cpPacket), kEndOfMedia);
}

TEST_F(ScriptedSplitterTest, SegmentAlreadyQueuedFromItsFirstPacketDoesNotRepositionTheSource) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);  // makes the queue; no read yet
  // The same start again with the queue still empty: the source moves, and
  // as the stream set stayed, the thread reads on: three packets, then a
  // read that blocks until the splitter is stopped and delivers nothing.
  for (int i = 0; i < 3; ++i) m_pScript->Expect(Step::Packet(0, eVCMT_Video, i * 40 * kMs, (i + 1) * 40 * kMs));
  Step blocked = Step::Answer(eCall::SplitterPacketGet, S_OK, eWait::UntilStopped);
  blocked.bNoPacket = true;
  m_pScript->Expect(blocked);
  m_pScript->Allow(eCall::SplitterPacketGet, HRESULT_FROM_WIN32(ERROR_EMPTY));
  ASSERT_EQ(Segment(0, ""), S_OK);
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::SplitterPacketGet, 5000));
  ASSERT_EQ(m_pScript->CallCount(eCall::SplitterBeginSegment), 2u);

  // Now the queue holds segment 0 from its first packet: the request breaks
  // the blocked read but does not reach the inner splitter.
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, nullptr), S_OK);
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterBeginSegment), 2u);
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_EQ(Get(0, &cpPacket), S_OK);
  EXPECT_EQ(Info(cpPacket.Get()).nIndexInSegment, 0);

  // A new start moves the source.
  m_pScript->Expect(Step::Answer(eCall::SplitterBeginSegment, S_OK));
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(5 * kSec, nullptr), S_OK);
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterBeginSegment), 3u);
}

TEST_F(ScriptedSplitterTest, BlockedReadIsBrokenBySegmentRequestsFirstWait) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  m_pScript->Expect(Step::Answer(eCall::SplitterPacketGet, kAborted, eWait::UntilStopped));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  ASSERT_EQ(SegmentAndRead(0, "0"), S_OK);
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::SplitterPacketGet, 5000));

  const size_t nStopsBefore = m_pScript->CallCount(eCall::SplitterStop);
  m_pScript->Expect(Step::Answer(eCall::SplitterBeginSegment, S_OK));
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(2 * kSec, nullptr), S_OK);
  EXPECT_GT(m_pScript->CallCount(eCall::SplitterStop), nStopsBefore);
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterBeginSegment), 3u);
}

TEST_F(ScriptedSplitterTest, SlowSeekIsNotStoppedByTheFirstWait) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  // The thread takes the request at once and then spends longer than the
  // first wait inside the inner seek: that is no blocked read to break.
  m_pScript->Expect(Step::Answer(eCall::SplitterBeginSegment, S_OK, eWait::UntilReleased));
  const size_t nStopsBefore = m_pScript->CallCount(eCall::SplitterStop);
  std::thread releaser([&] {
    if (m_pScript->WaitWaiting(eCall::SplitterBeginSegment, 5000))
      std::this_thread::sleep_for(std::chrono::milliseconds(300));  // three first waits
    m_pScript->ReleaseHeld();
  });
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(3 * kSec, nullptr), S_OK);
  releaser.join();
  EXPECT_EQ(m_pScript->CallCount(eCall::SplitterStop), nStopsBefore);
}

}  // namespace
}  // namespace vctest
