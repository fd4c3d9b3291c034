// Blocking network sources: a loopback server that accepts and then stalls
// (after sending nothing, or a whole transport stream) holds the general
// splitter in its open or in a read. SplitterStop, SplitterClose and the wait
// properties must each end such a call within a second.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "FFClasses.h"
#include "FFTestMedia.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

using Clock = std::chrono::steady_clock;
using vc::CBstr;
using vc::ComPtr;

constexpr HRESULT kAborted = static_cast<HRESULT>(0x800703E3);
constexpr HRESULT kTimedOut = static_cast<HRESULT>(0x800705B4);

double SecondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// Accepts one connection on 127.0.0.1, sends it the given bytes, then keeps
// it open without sending anything more until the server is destroyed.
class CStallingServer {
 public:
  explicit CStallingServer(std::vector<uint8_t> vecData = {}) : m_vecData(std::move(vecData)) {
    m_fdListen = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t cbAddr = sizeof(addr);
    if (m_fdListen < 0 || bind(m_fdListen, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(m_fdListen, 4) != 0 || getsockname(m_fdListen, reinterpret_cast<sockaddr*>(&addr), &cbAddr) != 0)
      return;
    m_nPort = ntohs(addr.sin_port);
    m_thread = std::thread([this] { _Run(); });
  }
  ~CStallingServer() {
    m_bQuit = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_fdListen >= 0) close(m_fdListen);
  }

  std::string Url() const { return "tcp://127.0.0.1:" + std::to_string(m_nPort); }
  bool Ok() const { return m_nPort != 0; }
  bool AllSent() const { return m_bAllSent; }

 private:
  // Polls in short steps so that the destructor never waits long.
  bool _WaitFor(int fd, short nEvents) {
    while (!m_bQuit) {
      pollfd pfd{fd, nEvents, 0};
      if (poll(&pfd, 1, 20) > 0) return true;
    }
    return false;
  }
  void _Run() {
    if (!_WaitFor(m_fdListen, POLLIN)) return;
    const int fd = accept(m_fdListen, nullptr, nullptr);
    if (fd < 0) return;
    size_t nSent = 0;
    while (nSent < m_vecData.size() && _WaitFor(fd, POLLOUT)) {
      const ssize_t n = send(fd, m_vecData.data() + nSent, m_vecData.size() - nSent, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (n > 0) nSent += static_cast<size_t>(n);
    }
    m_bAllSent = nSent == m_vecData.size();
    while (!m_bQuit) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    close(fd);
  }

  std::vector<uint8_t> m_vecData;
  int m_fdListen = -1;
  int m_nPort = 0;
  std::atomic<bool> m_bQuit{false};
  std::atomic<bool> m_bAllSent{false};
  std::thread m_thread;
};

std::vector<uint8_t> FileBytes(const std::string& strPath) {
  std::ifstream file(strPath, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class FFSplitterStopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                       reinterpret_cast<void**>(m_cpSplitter.AddressOf())),
              S_OK);
    ASSERT_EQ(m_cpSplitter.As(&m_cpProps), S_OK);
  }
  void SetProp(const char16_t* szName, const char16_t* szValue) {
    ASSERT_EQ(m_cpProps->PropsSet(CBstr(szName), CBstr(szValue)), S_OK);
  }
  HRESULT Open(const std::string& strUrl) {
    LONG nStreams = 0;
    return m_cpSplitter->SplitterOpen(CBstr(std::string_view(strUrl)), nullptr, &nStreams);
  }
  // Opens a transport stream served whole and then stalled.
  void OpenStalledTs(CStallingServer& server) {
    ASSERT_TRUE(server.Ok());
    SetProp(u"input_format", u"mpegts");
    ASSERT_EQ(Open(server.Url()), S_OK);
  }
  // Reads until a read fails; returns its code and when it failed.
  HRESULT ReadUntilFailure(int* pnPackets, Clock::time_point* pFailedAt, const char16_t* szHints = nullptr) {
    CBstr bsHints(szHints);
    for (;;) {
      ComPtr<IVCPacket> cpPacket;
      const HRESULT hr = m_cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), bsHints);
      if (FAILED(hr)) {
        *pFailedAt = Clock::now();
        return hr;
      }
      ++*pnPackets;
    }
  }

  // A reader on its own thread that reads a stalled transport stream until a
  // read fails; started, then given nSettleMs to run into the stall.
  struct CReader {
    int nPackets = 0;
    HRESULT hr = S_OK;
    Clock::time_point tFailed;
    std::thread thread;
  };
  void StartBlockedReader(CStallingServer& server, CReader* pReader, int nSettleMs) {
    SetProp(u"read_url.max_wait", u"60000");
    OpenStalledTs(server);
    pReader->thread =
        std::thread([this, pReader] { pReader->hr = ReadUntilFailure(&pReader->nPackets, &pReader->tFailed); });
    std::this_thread::sleep_for(std::chrono::milliseconds(nSettleMs));
  }

  ComPtr<IVCSplitter> m_cpSplitter;
  ComPtr<IVCProps> m_cpProps;
};

TEST_F(FFSplitterStopTest, StopReleasesAnOpenThatWaitsForData) {
  CStallingServer server;
  ASSERT_TRUE(server.Ok());
  SetProp(u"open_url.max_wait", u"60000");
  Clock::time_point tStop;
  HRESULT hrStop = E_FAIL;
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    tStop = Clock::now();
    hrStop = m_cpSplitter->SplitterStop();
  });
  const Clock::time_point tStart = Clock::now();
  const HRESULT hr = Open(server.Url());
  const Clock::time_point tEnd = Clock::now();
  stopper.join();
  EXPECT_EQ(hrStop, S_OK) << "an open under way is something to stop";
  EXPECT_EQ(hr, kAborted);
  EXPECT_GE(std::chrono::duration<double>(tEnd - tStart).count(), 0.25) << "the open did not block";
  EXPECT_LT(std::chrono::duration<double>(tEnd - tStop).count(), 1.0);
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, nullptr), static_cast<HRESULT>(0x800710D2));
}

TEST_F(FFSplitterStopTest, OpenWaitEndsAnOpenThatWaitsForData) {
  CStallingServer server;
  ASSERT_TRUE(server.Ok());
  SetProp(u"open_url.max_wait", u"300");
  vc::CLogCapture log(vc::eVCLL_Error);
  const Clock::time_point tStart = Clock::now();
  EXPECT_EQ(Open(server.Url()), kTimedOut);
  const double dblTook = SecondsSince(tStart);
  EXPECT_GE(dblTook, 0.25);
  EXPECT_LT(dblTook, 1.3);
  EXPECT_TRUE(log.Contains(server.Url()));
}

TEST_F(FFSplitterStopTest, StopReleasesAReadThatWaitsForData) {
  CStallingServer server(FileBytes(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")));
  CReader reader;
  StartBlockedReader(server, &reader, 500);
  const Clock::time_point tStop = Clock::now();
  EXPECT_EQ(m_cpSplitter->SplitterStop(), S_OK);
  reader.thread.join();
  EXPECT_TRUE(server.AllSent());
  EXPECT_GT(reader.nPackets, 0);
  EXPECT_EQ(reader.hr, kAborted);
  EXPECT_GT(reader.tFailed, tStop) << "the read ended before the stop: it never blocked";
  EXPECT_LT(std::chrono::duration<double>(reader.tFailed - tStop).count(), 1.0);

  // Stopped reads fail at once until a segment begins. Then the source is
  // read again: what the demuxer still holds, then a read that waits, here
  // up to the one read's own limit.
  ComPtr<IVCPacket> cpPacket;
  EXPECT_EQ(m_cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr), kAborted);
  EXPECT_TRUE(SUCCEEDED(m_cpSplitter->SplitterBeginSegment(10000000, nullptr)));
  const Clock::time_point tRead = Clock::now();
  int nPackets = 0;
  Clock::time_point tFailed;
  EXPECT_EQ(ReadUntilFailure(&nPackets, &tFailed, u"max_wait=200"), kTimedOut);
  EXPECT_GE(std::chrono::duration<double>(tFailed - tRead).count(), 0.15);
  EXPECT_LT(std::chrono::duration<double>(tFailed - tRead).count(), 1.0);
}

TEST_F(FFSplitterStopTest, ReadWaitEndsAReadThatWaitsForData) {
  CStallingServer server(FileBytes(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")));
  SetProp(u"read_url.max_wait", u"300");
  OpenStalledTs(server);
  int nPackets = 0;
  Clock::time_point tFailed;
  const Clock::time_point tStart = Clock::now();
  EXPECT_EQ(ReadUntilFailure(&nPackets, &tFailed), kTimedOut);
  EXPECT_GT(nPackets, 0);
  EXPECT_GE(std::chrono::duration<double>(tFailed - tStart).count(), 0.25);
  EXPECT_LT(std::chrono::duration<double>(tFailed - tStart).count(), 1.3);
}

TEST_F(FFSplitterStopTest, CloseFromAnotherThreadReleasesARead) {
  CStallingServer server(FileBytes(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")));
  CReader reader;
  StartBlockedReader(server, &reader, 300);
  const Clock::time_point tClose = Clock::now();
  EXPECT_EQ(m_cpSplitter->SplitterClose(), S_OK);
  const double dblCloseTook = SecondsSince(tClose);
  reader.thread.join();
  EXPECT_LT(dblCloseTook, 1.0);
  EXPECT_TRUE(reader.hr == kAborted || reader.hr == static_cast<HRESULT>(0x800710D2)) << std::hex << reader.hr;
  // Information never waited for the reader: the source is simply gone now.
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, nullptr), static_cast<HRESULT>(0x800710D2));
}

TEST_F(FFSplitterStopTest, InformationDoesNotWaitForABlockedRead) {
  CStallingServer server(FileBytes(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts")));
  CReader reader;
  StartBlockedReader(server, &reader, 300);
  const Clock::time_point tInfo = Clock::now();
  LONG nStreams = 0;
  K_STREAM_INFO info{};
  CBstr bsXml;
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, &nStreams, nullptr), S_OK);
  EXPECT_EQ(m_cpSplitter->SplitterStreamInfoGet(0, &info, &bsXml), S_OK);
  SysFreeString(info.bsCodecNameOrTag);
  EXPECT_LT(SecondsSince(tInfo), 0.1);
  EXPECT_EQ(nStreams, 4);
  m_cpSplitter->SplitterStop();
  reader.thread.join();
  EXPECT_EQ(reader.hr, kAborted);
}

}  // namespace
