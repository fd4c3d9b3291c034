// The general splitter on network sources served from 127.0.0.1 by a server
// the test controls: what a refused, missing, reset or silent source answers,
// and that the open, read and packet waits break a server that stops
// answering instead of hanging. Every blocking call runs under a watchdog
// that stops the server (which ends any read) if the call outlives it.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>

#include "FFClasses.h"
#include "VCCodecsCore.h"
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
using Clock = std::chrono::steady_clock;

// Far beyond every wait these tests set: reaching it means a call hung.

vc::ComPtr<IVCSplitter> NewSplitter() {
  vc::ComPtr<IVCSplitter> cpSplitter;
  EXPECT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                     reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  return cpSplitter;
}

HRESULT Open(IVCSplitter* pSplitter, const std::string& strUrl, const std::string& strProps = "") {
  LONG nStreams = 0;
  vc::CBstr bsProps(strProps);
  return pSplitter->SplitterOpen(vc::CBstr(strUrl), strProps.empty() ? nullptr : bsProps.Get(), &nStreams);
}

// Reads until the first failure and returns it; counts the packets.
HRESULT ReadToFailure(IVCSplitter* pSplitter, const char* szHints, int* pnPackets) {
  vc::CBstr bsHints(szHints ? szHints : "");
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), szHints ? bsHints.Get() : nullptr);
    if (FAILED(hr)) return hr;
    ++*pnPackets;
  }
}

class FFNetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(vc::fftest::LoadServedMedia(&m_vecTs, &m_vecMkv));
  }
  std::vector<uint8_t> m_vecTs;
  std::vector<uint8_t> m_vecMkv;
};

// --- Connection failures keep their kind ---------------------------------------

TEST_F(FFNetworkTest, RefusedConnectionAnswersConnectionRefused) {
  const int nPort = vc::fftest::RefusingPort();
  ASSERT_GT(nPort, 0);
  vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
  const std::string strUrl = "http://127.0.0.1:" + std::to_string(nPort) + "/clip.ts";
  EXPECT_EQ(Guarded(nullptr, [&] { return Open(cpSplitter.Get(), strUrl); }),
            static_cast<HRESULT>(0x800704C9u));  // HRESULT_FROM_WIN32(ERROR_CONNECTION_REFUSED)
  // The same through the raw TCP protocol, which has no HTTP layer to blame.
  const std::string strTcp = "tcp://127.0.0.1:" + std::to_string(nPort);
  EXPECT_EQ(Guarded(nullptr, [&] { return Open(cpSplitter.Get(), strTcp); }), vc::VC_E_CONNECTION_REFUSED);
  EXPECT_EQ(cpSplitter->SplitterPacketGet(-1, vc::ComPtr<IVCPacket>().AddressOf(), nullptr), vc::VC_E_EMPTY);
}

TEST_F(FFNetworkTest, MissingPathOnTheServerAnswersFileNotFound) {
  CTestHttpServer server(m_vecTs, eMode::NotFound);
  ASSERT_GT(server.Port(), 0);
  vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
  EXPECT_EQ(Guarded(&server, [&] { return Open(cpSplitter.Get(), server.Url("gone.ts")); }),
            static_cast<HRESULT>(0x80070002u));
  EXPECT_GE(server.Requests(), 1);
}

TEST_F(FFNetworkTest, ResetBeforeTheAnswerIsNeitherSuccessNorAGenericFailure) {
  CTestHttpServer server(m_vecTs, eMode::Reset);
  ASSERT_GT(server.Port(), 0);
  vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
  const HRESULT hr = Guarded(&server, [&] { return Open(cpSplitter.Get(), server.Url("clip.ts")); });
  // Depending on when the reset lands FFmpeg sees it as a reset or as a
  // connection that closed before any answer (invalid data).
  EXPECT_TRUE(hr == vc::VC_E_CONNECTION_RESET || hr == vc::VC_E_INVALID_DATA || hr == vc::VC_E_END_OF_MEDIA)
      << std::hex << hr;
}

// --- A served source reads like the file ----------------------------------------

TEST_F(FFNetworkTest, ServedSourceDeliversTheFilesPackets) {
  CTestHttpServer server(m_vecTs);
  ASSERT_GT(server.Port(), 0);
  auto count = [](IVCSplitter* pSplitter, const std::string& strUrl) {
    LONG nStreams = 0;
    EXPECT_EQ(pSplitter->SplitterOpen(vc::CBstr(strUrl), nullptr, &nStreams), S_OK) << strUrl;
    int nPackets = 0;
    HRESULT hr = S_OK;
    for (;;) {
      vc::ComPtr<IVCPacket> cpPacket;
      hr = pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
      if (FAILED(hr)) break;
      ++nPackets;
    }
    EXPECT_EQ(hr, vc::VC_E_END_OF_MEDIA) << strUrl;
    pSplitter->SplitterClose();
    return nPackets;
  };
  vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
  const int nFromFile = count(cpSplitter.Get(), vc::fftest::MediaPath("mpeg2_mp2_2prog.ts"));
  const int nFromServer = Guarded(&server, [&] { return count(cpSplitter.Get(), server.Url("clip.ts")); });
  EXPECT_GT(nFromFile, 100);
  EXPECT_EQ(nFromServer, nFromFile);
}

// --- Waits break an HTTP server that stops answering ------------------------------
// (The same over raw TCP, and stops, are FFSplitterStopTest's.)

TEST_F(FFNetworkTest, HttpServerThatStopsAnsweringFailsTheOpenWithTimeout) {
  // Before its answer, and in the middle of the header the demuxer probes.
  CTestHttpServer silent(m_vecTs, eMode::Silent);
  CTestHttpServer stalled(m_vecTs, eMode::StallAt, 3000);
  ASSERT_GT(silent.Port(), 0);
  ASSERT_GT(stalled.Port(), 0);
  for (CTestHttpServer* pServer : {&silent, &stalled}) {
    vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
    const auto tpStart = Clock::now();
    EXPECT_EQ(Guarded(pServer, [&] { return Open(cpSplitter.Get(), pServer->Url("clip.ts"), "open_url.max_wait=300"); }),
              vc::VC_E_TIMEOUT);
    EXPECT_LT(Clock::now() - tpStart, kWatchdog / 2);  // broken off by the wait, not by the watchdog
    EXPECT_EQ(pServer->Requests(), 1);
    EXPECT_EQ(cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, nullptr), vc::VC_E_EMPTY);
  }
}

TEST_F(FFNetworkTest, HttpServerThatStallsMidStreamEndsTheReadWithTimeoutAndANewSegmentReadsAgain) {
  // Past the header and the stream probing, well before the end.
  CTestHttpServer server(m_vecMkv, eMode::StallAt, m_vecMkv.size() * 3 / 5);
  ASSERT_GT(server.Port(), 0);
  vc::ComPtr<IVCSplitter> cpSplitter = NewSplitter();
  ASSERT_EQ(Guarded(&server, [&] { return Open(cpSplitter.Get(), server.Url("clip.mkv"), "read_url.max_wait=400"); }),
            S_OK);
  int nPackets = 0;
  EXPECT_EQ(Guarded(&server, [&] { return ReadToFailure(cpSplitter.Get(), nullptr, &nPackets); }), vc::VC_E_TIMEOUT);
  EXPECT_GT(nPackets, 10);  // what came before the stall was delivered
  // Still stalled: the next read answers the same.
  EXPECT_EQ(cpSplitter->SplitterPacketGet(-1, vc::ComPtr<IVCPacket>().AddressOf(), nullptr), vc::VC_E_TIMEOUT);

  // A segment at the start opens the source again (a second request), and
  // the packet hint's wait rules the read in place of the property's.
  const int nRequests = server.Requests();
  ASSERT_EQ(Guarded(&server, [&] { return cpSplitter->SplitterBeginSegment(0, nullptr); }), S_OK);
  EXPECT_GT(server.Requests(), nRequests);
  int nAgain = 0;
  EXPECT_EQ(Guarded(&server, [&] { return ReadToFailure(cpSplitter.Get(), "max_wait=200", &nAgain); }),
            vc::VC_E_TIMEOUT);
  EXPECT_EQ(nAgain, nPackets);
}

}  // namespace
