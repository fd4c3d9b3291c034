// The splitter facade over the general splitter on sources served from
// 127.0.0.1: a URL is buffered to the network limits, "network.low_delay"
// makes every packet ready at once, an audio-only network source starts each
// segment at time 0, and a server that stops answering ends in a code within
// the waits instead of a hang. Blocking calls run under a watchdog that stops
// the server if a call outlives it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "CoVCSplitter.h"
#include "FFTestHttpServer.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::fftest::CTestHttpServer;
using vc::fftest::Guarded;
using vc::fftest::kWatchdog;
using eMode = CTestHttpServer::eMode;

constexpr LONGLONG kSec = VC_TIME_SECOND;

class FacadeNetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(vc::fftest::LoadServedMedia(&m_vecTs, &m_vecMkv));
    m_cpFacade = NewFacade();
    ASSERT_TRUE(m_cpFacade);
  }
  void TearDown() override {
    if (m_cpFacade) Guarded(nullptr, [&] { return m_cpFacade->SplitterClose(); });
  }

  static vc::ComPtr<IVCSplitter> NewFacade() {
    vc::ComPtr<IVCSplitter> cpFacade;
    EXPECT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                  reinterpret_cast<void**>(cpFacade.AddressOf())),
              S_OK);
    return cpFacade;
  }
  vc::CCoVCSplitter* Facade() { return static_cast<vc::CCoVCSplitter*>(m_cpFacade.Get()); }

  void Set(const char* szName, const char* szValue) {
    vc::ComPtr<IVCProps> cpProps;
    ASSERT_EQ(m_cpFacade.As(&cpProps), S_OK);
    ASSERT_EQ(cpProps->PropsSet(vc::CBstr(std::string_view(szName)), vc::CBstr(std::string_view(szValue))), S_OK);
  }
  std::string Get(const char* szName) {
    vc::ComPtr<IVCProps> cpProps;
    EXPECT_EQ(m_cpFacade.As(&cpProps), S_OK);
    vc::CBstr bsValue;
    if (!cpProps || FAILED(cpProps->PropsGet(vc::CBstr(std::string_view(szName)), &bsValue))) return std::string();
    return bsValue.Utf8();
  }

  HRESULT Open(const std::string& strUrl, CTestHttpServer* pServer = nullptr) {
    return Guarded(pServer, [&] {
      LONG nStreams = 0;
      return m_cpFacade->SplitterOpen(vc::CBstr(strUrl), nullptr, &nStreams);
    });
  }
  HRESULT Segment(LONGLONG rtStart, const char* szStreams, CTestHttpServer* pServer = nullptr) {
    return Guarded(pServer, [&] { return m_cpFacade->SplitterBeginSegment(rtStart, vc::CBstr(std::string_view(szStreams))); });
  }
  HRESULT Take(LONG nStream, const char* szHints, K_PACKET_INFO* pInfo = nullptr, CTestHttpServer* pServer = nullptr) {
    return Guarded(pServer, [&] {
      vc::ComPtr<IVCPacket> cpPacket;
      vc::CBstr bsHints(std::string_view(szHints ? szHints : ""));
      const HRESULT hr = m_cpFacade->SplitterPacketGet(nStream, cpPacket.AddressOf(), szHints ? bsHints.Get() : nullptr);
      if (SUCCEEDED(hr) && pInfo && cpPacket) cpPacket->PacketInfoGet(pInfo);
      return hr;
    });
  }

  std::vector<uint8_t> m_vecTs;
  std::vector<uint8_t> m_vecMkv;
  vc::ComPtr<IVCSplitter> m_cpFacade;
};

LONGLONG EarlierTime(const K_PACKET_INFO& info) { return std::min(info.llPts, info.llDts); }

// --- Buffer limits ----------------------------------------------------------------

TEST_F(FacadeNetworkTest, UrlSourceBuffersToTheNetworkLimitsAndAFileToTheFileLimits) {
  CTestHttpServer server(m_vecTs);
  ASSERT_GT(server.Port(), 0);
  Set("file.buffer_min", "0");
  Set("file.buffer_max", "0.3");
  Set("network.buffer_min", "0");
  Set("network.buffer_max", "1.2");

  // Video only: then the reading thread stops as soon as that one queue
  // holds the maximum. Once it rests, a take publishes what is buffered.
  auto bufferedSeconds = [&](const std::string& strUrl) {
    EXPECT_EQ(Open(strUrl, &server), S_OK) << strUrl;
    EXPECT_EQ(Segment(0, "0", &server), S_OK);
    EXPECT_EQ(Take(0, nullptr, nullptr, &server), S_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(Take(0, nullptr, nullptr, &server), S_OK);
    const std::string strBuffered = Get("stat::buffer.video.-1");
    return strBuffered.empty() ? -1.0 : std::stod(strBuffered);
  };

  const double dblNetwork = bufferedSeconds(server.Url("clip.ts"));
  EXPECT_TRUE(Facade()->_IsNetworkSource());
  const double dblFile = bufferedSeconds(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts"));
  EXPECT_FALSE(Facade()->_IsNetworkSource());
  // 1.2 s less the two packets taken; the file stops near 0.3 s.
  EXPECT_GE(dblNetwork, 1.1);
  EXPECT_LE(dblNetwork, 1.4);
  EXPECT_GE(dblFile, 0.2);
  EXPECT_LE(dblFile, 0.5);
}

TEST_F(FacadeNetworkTest, BufferLimitSetWhileReadingReachesTheReadingThread) {
  // The reading thread keeps its own copy of the levels (reading them from
  // the tree on every packet was a tenth of its time): a limit set while it
  // runs must still reach it.
  Set("file.buffer_min", "0");
  Set("file.buffer_max", "0.3");
  auto bufferedAfterRest = [&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(Take(0, nullptr), S_OK);
    const std::string strBuffered = Get("stat::buffer.video.-1");
    return strBuffered.empty() ? -1.0 : std::stod(strBuffered);
  };
  ASSERT_EQ(Open(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  ASSERT_EQ(Take(0, nullptr), S_OK);
  const double dblBefore = bufferedAfterRest();
  Set("file.buffer_max", "1.5");
  ASSERT_EQ(Take(0, nullptr), S_OK);  // wakes the resting thread
  const double dblAfter = bufferedAfterRest();
  EXPECT_GE(dblBefore, 0.1);
  EXPECT_LE(dblBefore, 0.5);
  EXPECT_GE(dblAfter, 1.1);  // the 2 s file holds more than that ahead
}

// --- Low delay ---------------------------------------------------------------------

TEST_F(FacadeNetworkTest, LowDelayMakesEveryVideoAndAudioPacketReadyAtOnce) {
  // A live source that stops after part of the file and holds the
  // connection: no end of stream makes the queues ready, only their levels
  // can (and a live source cannot seek, so a segment request never waits
  // on the stall).
  CTestHttpServer server(m_vecMkv, eMode::LiveStallAt, m_vecMkv.size() * 3 / 5);
  ASSERT_GT(server.Port(), 0);
  Set("network.buffer_min", "30");
  Set("network.buffer_max", "60");
  Set("read_url.max_wait", "20000");

  ASSERT_EQ(Open(server.Url("clip.mkv"), &server), S_OK);
  ASSERT_EQ(Segment(0, "0,1", &server), S_OK);
  // 30 s never arrive: neither queue becomes ready.
  EXPECT_EQ(Take(0, "max_wait=600", nullptr, &server), vc::VC_E_TIMEOUT);
  EXPECT_EQ(Take(1, "max_wait=100", nullptr, &server), vc::VC_E_TIMEOUT);

  Set("network.low_delay", "true");
  ASSERT_EQ(Open(server.Url("clip.mkv"), &server), S_OK);
  ASSERT_EQ(Segment(0, "0,1", &server), S_OK);
  for (LONG nStream : {0, 1, 0, 1, 1}) {
    K_PACKET_INFO info{};
    ASSERT_EQ(Take(nStream, "max_wait=5000", &info, &server), S_OK) << "stream " << nStream;
    EXPECT_EQ(info.nStreamIndex, nStream);
  }
}

// --- Time offset of audio-only network sources -----------------------------------

TEST_F(FacadeNetworkTest, AudioOnlyNetworkSourceStartsEachSegmentAtZero) {
  const std::vector<uint8_t> vecAudio = vc::fftest::AudioOnlyTs(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts"));
  ASSERT_GT(vecAudio.size(), 10000u);
  const std::string strFile = ::testing::TempDir() + "facade_network_audio_only.ts";
  {
    std::ofstream file(strFile, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(vecAudio.data()), static_cast<std::streamsize>(vecAudio.size()));
  }
  CTestHttpServer server(vecAudio);
  ASSERT_GT(server.Port(), 0);

  // The file as it is: far from 0.
  ASSERT_EQ(Open(strFile), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);
  K_PACKET_INFO fileFirst{}, fileSecond{};
  ASSERT_EQ(Take(0, nullptr, &fileFirst), S_OK);
  ASSERT_EQ(Take(0, nullptr, &fileSecond), S_OK);
  ASSERT_GT(EarlierTime(fileFirst), 0);

  // Served: the first packet is moved to 0 and the others keep their distance.
  ASSERT_EQ(Open(server.Url("audio.ts"), &server), S_OK);
  ASSERT_EQ(Segment(0, "0", &server), S_OK);
  K_PACKET_INFO first{}, second{};
  ASSERT_EQ(Take(0, nullptr, &first, &server), S_OK);
  ASSERT_EQ(Take(0, nullptr, &second, &server), S_OK);
  EXPECT_EQ(EarlierTime(first), 0);
  EXPECT_EQ(second.llPts - first.llPts, fileSecond.llPts - fileFirst.llPts);
  EXPECT_EQ(second.llDts - first.llDts, fileSecond.llDts - fileFirst.llDts);

  // A later segment is measured afresh: its first packet is at 0 too.
  const LONGLONG rtFirst = EarlierTime(fileFirst) * kSec / 90000;  // MPEG-TS counts 90 kHz
  ASSERT_EQ(Segment(rtFirst + kSec, "0", &server), S_OK);
  K_PACKET_INFO later{};
  ASSERT_EQ(Take(0, nullptr, &later, &server), S_OK);
  EXPECT_EQ(EarlierTime(later), 0);
  std::remove(strFile.c_str());
}

TEST_F(FacadeNetworkTest, NetworkSourceWithVideoKeepsItsTimes) {
  CTestHttpServer server(m_vecTs);
  ASSERT_GT(server.Port(), 0);
  ASSERT_EQ(Open(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")), S_OK);
  ASSERT_EQ(Segment(0, "1"), S_OK);
  K_PACKET_INFO fileFirst{};
  ASSERT_EQ(Take(1, nullptr, &fileFirst), S_OK);

  // Only the audio stream is delivered, but the source has video: no offset.
  Set("network.buffer_min", "0");
  ASSERT_EQ(Open(server.Url("clip.ts"), &server), S_OK);
  ASSERT_EQ(Segment(0, "1", &server), S_OK);
  K_PACKET_INFO first{};
  ASSERT_EQ(Take(1, nullptr, &first, &server), S_OK);
  EXPECT_GT(EarlierTime(first), 0);
  EXPECT_EQ(first.llPts, fileFirst.llPts);
}

// --- Waits ---------------------------------------------------------------------------

TEST_F(FacadeNetworkTest, ReconnectWaitBoundsThePacketWaitAndTheHintOverridesIt) {
  CTestHttpServer server(m_vecMkv, eMode::LiveStallAt, m_vecMkv.size() * 3 / 5);
  ASSERT_GT(server.Port(), 0);
  Set("network.buffer_min", "30");
  Set("network.buffer_max", "60");
  Set("read_url.max_wait", "20000");
  Set("network.reconnect.max_wait", "300");
  ASSERT_EQ(Open(server.Url("clip.mkv"), &server), S_OK);
  ASSERT_EQ(Segment(0, "0,1", &server), S_OK);
  // Without a hint the reconnect wait is the limit (no limit would hang).
  EXPECT_EQ(Take(0, nullptr, nullptr, &server), vc::VC_E_TIMEOUT);
  EXPECT_EQ(Take(-1, nullptr, nullptr, &server), vc::VC_E_TIMEOUT);
  // The hint wins over it, both ways.
  Set("network.reconnect.max_wait", "60000");
  EXPECT_EQ(Take(0, "max_wait=0", nullptr, &server), vc::VC_E_TIMEOUT);
  EXPECT_EQ(Take(1, "max_wait=200", nullptr, &server), vc::VC_E_TIMEOUT);
}

TEST_F(FacadeNetworkTest, ServerThatStallsMidStreamEndsTheStreamsAfterTheReadWait) {
  CTestHttpServer server(m_vecMkv, eMode::LiveStallAt, m_vecMkv.size() * 3 / 5);
  ASSERT_GT(server.Port(), 0);
  Set("network.low_delay", "true");
  Set("read_url.max_wait", "400");
  ASSERT_EQ(Open(server.Url("clip.mkv"), &server), S_OK);
  ASSERT_EQ(Segment(0, "0,1", &server), S_OK);
  int nPackets = 0;
  const HRESULT hrEnd = Guarded(&server, [&] {
    for (;;) {
      vc::ComPtr<IVCPacket> cpPacket;
      const HRESULT hr = m_cpFacade->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
      if (FAILED(hr)) return hr;
      ++nPackets;
    }
  });
  // The inner read's timeout puts every queue at its end once drained.
  EXPECT_EQ(hrEnd, vc::VC_E_END_OF_MEDIA);
  EXPECT_GT(nPackets, 10);
}

TEST_F(FacadeNetworkTest, FailedOpensAnswerTheirCauseAndLeaveTheFacadeClosed) {
  const int nPort = vc::fftest::RefusingPort();
  ASSERT_GT(nPort, 0);
  EXPECT_EQ(Open("http://127.0.0.1:" + std::to_string(nPort) + "/clip.ts"), vc::VC_E_CONNECTION_REFUSED);

  CTestHttpServer silent(m_vecTs, eMode::Silent);
  ASSERT_GT(silent.Port(), 0);
  Set("open_url.max_wait", "300");
  EXPECT_EQ(Open(silent.Url("clip.ts"), &silent), vc::VC_E_TIMEOUT);

  CTestHttpServer missing(m_vecTs, eMode::NotFound);
  ASSERT_GT(missing.Port(), 0);
  EXPECT_EQ(Open(missing.Url("clip.ts"), &missing), vc::VC_E_FILE_NOT_FOUND);

  LONG nStreams = -1;
  EXPECT_EQ(m_cpFacade->SplitterInfoGet(nullptr, nullptr, &nStreams, nullptr), vc::VC_E_EMPTY);
  EXPECT_FALSE(Facade()->_IsNetworkSource());
}

}  // namespace
