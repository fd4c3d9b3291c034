#include "FFTestHttpServer.h"

#include <gtest/gtest.h>

#include "FFTestMedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace vc::fftest {

namespace {

constexpr int kPollMs = 20;

int LoopbackSocket(sockaddr_in* pAddr) {
  const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (nSocket < 0) return -1;
  const int nOn = 1;
  setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof(nOn));
  *pAddr = sockaddr_in{};
  pAddr->sin_family = AF_INET;
  pAddr->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  pAddr->sin_port = 0;
  socklen_t cbAddr = sizeof(*pAddr);
  if (bind(nSocket, reinterpret_cast<sockaddr*>(pAddr), sizeof(*pAddr)) != 0 ||
      getsockname(nSocket, reinterpret_cast<sockaddr*>(pAddr), &cbAddr) != 0) {
    close(nSocket);
    return -1;
  }
  return nSocket;
}

// The start of a "Range: bytes=N-" header, 0 without one.
size_t RangeStart(const std::string& strRequest, bool* pbRange) {
  std::string strLower(strRequest);
  std::transform(strLower.begin(), strLower.end(), strLower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const size_t nPos = strLower.find("\r\nrange: bytes=");
  *pbRange = nPos != std::string::npos;
  if (!*pbRange) return 0;
  return static_cast<size_t>(std::strtoull(strRequest.c_str() + nPos + 15, nullptr, 10));
}

}  // namespace

CTestHttpServer::CTestHttpServer(std::vector<uint8_t> vecBody, eMode eHow, size_t nStallAt)
    : m_vecBody(std::move(vecBody)), m_eMode(eHow), m_nStallAt(nStallAt) {
  sockaddr_in addr{};
  m_nListen = LoopbackSocket(&addr);
  if (m_nListen < 0) return;
  if (listen(m_nListen, 16) != 0) {
    close(m_nListen);
    m_nListen = -1;
    return;
  }
  m_nPort = ntohs(addr.sin_port);
  m_thAccept = std::thread([this] { _AcceptLoop(); });
}

CTestHttpServer::~CTestHttpServer() { Stop(); }

std::string CTestHttpServer::Url(const std::string& strName) const {
  return "http://127.0.0.1:" + std::to_string(m_nPort) + "/" + strName;
}

void CTestHttpServer::Stop() {
  if (m_bStop.exchange(true)) return;
  if (m_thAccept.joinable()) m_thAccept.join();
  if (m_nListen >= 0) close(m_nListen);
  m_nListen = -1;
  std::vector<std::thread> vecThreads;
  {
    std::lock_guard<std::mutex> lock(m_mtx);
    for (int nSocket : m_vecSockets)
      if (nSocket >= 0) shutdown(nSocket, SHUT_RDWR);
    vecThreads.swap(m_vecThreads);
  }
  for (std::thread& th : vecThreads) th.join();
  std::lock_guard<std::mutex> lock(m_mtx);
  for (int nSocket : m_vecSockets)
    if (nSocket >= 0) close(nSocket);
  m_vecSockets.clear();
}

void CTestHttpServer::_AcceptLoop() {
  while (!m_bStop.load()) {
    pollfd pfd{m_nListen, POLLIN, 0};
    if (poll(&pfd, 1, kPollMs) <= 0) continue;
    const int nSocket = accept4(m_nListen, nullptr, nullptr, SOCK_CLOEXEC);
    if (nSocket < 0) continue;
    std::lock_guard<std::mutex> lock(m_mtx);
    m_vecSockets.push_back(nSocket);
    m_vecThreads.emplace_back([this, nSocket] { _Serve(nSocket); });
  }
}

bool CTestHttpServer::_ReadRequest(int nSocket, std::string* pstrRequest) {
  char buf[4096];
  while (!m_bStop.load() && pstrRequest->find("\r\n\r\n") == std::string::npos) {
    pollfd pfd{nSocket, POLLIN, 0};
    if (poll(&pfd, 1, kPollMs) <= 0) continue;
    const ssize_t cb = recv(nSocket, buf, sizeof(buf), 0);
    if (cb <= 0) return false;
    pstrRequest->append(buf, static_cast<size_t>(cb));
  }
  return !m_bStop.load();
}

bool CTestHttpServer::_SendAll(int nSocket, const void* pData, size_t cb) {
  const auto* p = static_cast<const char*>(pData);
  while (cb > 0 && !m_bStop.load()) {
    const ssize_t cbSent = send(nSocket, p, cb, MSG_NOSIGNAL);
    if (cbSent <= 0) return false;  // the client went away (a seek opens a new connection)
    p += cbSent;
    cb -= static_cast<size_t>(cbSent);
  }
  return cb == 0;
}

void CTestHttpServer::_HoldUntilStopped() {
  while (!m_bStop.load()) std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
}

void CTestHttpServer::_Serve(int nSocket) {
  std::string strRequest;
  if (!_ReadRequest(nSocket, &strRequest)) return;
  ++m_nRequests;
  switch (m_eMode) {
    case eMode::Silent:
      _HoldUntilStopped();
      return;
    case eMode::NotFound: {
      static const char kAnswer[] = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
      _SendAll(nSocket, kAnswer, sizeof(kAnswer) - 1);
      return;
    }
    case eMode::Reset: {
      // A zero linger time turns the close into a reset.
      const linger zero{1, 0};
      std::lock_guard<std::mutex> lock(m_mtx);
      setsockopt(nSocket, SOL_SOCKET, SO_LINGER, &zero, sizeof(zero));
      close(nSocket);
      std::replace(m_vecSockets.begin(), m_vecSockets.end(), nSocket, -1);
      return;
    }
    case eMode::LiveStallAt: {
      static const char kHeader[] = "HTTP/1.1 200 OK\r\nContent-Type: video/MP2T\r\nConnection: close\r\n\r\n";
      if (_SendAll(nSocket, kHeader, sizeof(kHeader) - 1) &&
          _SendAll(nSocket, m_vecBody.data(), std::min(m_nStallAt, m_vecBody.size())))
        _HoldUntilStopped();
      return;
    }
    case eMode::Serve:
    case eMode::StallAt:
      break;
  }
  bool bRange = false;
  const size_t nSize = m_vecBody.size();
  const size_t nStart = std::min(RangeStart(strRequest, &bRange), nSize);
  char szHeader[512];
  if (bRange) {
    std::snprintf(szHeader, sizeof(szHeader),
                  "HTTP/1.1 206 Partial Content\r\nContent-Type: application/octet-stream\r\nAccept-Ranges: bytes\r\n"
                  "Content-Range: bytes %zu-%zu/%zu\r\nContent-Length: %zu\r\nConnection: close\r\n\r\n",
                  nStart, nSize ? nSize - 1 : 0, nSize, nSize - nStart);
  } else {
    std::snprintf(szHeader, sizeof(szHeader),
                  "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nAccept-Ranges: bytes\r\n"
                  "Content-Length: %zu\r\nConnection: close\r\n\r\n",
                  nSize);
  }
  if (!_SendAll(nSocket, szHeader, std::char_traits<char>::length(szHeader))) return;
  const size_t nEnd = m_eMode == eMode::StallAt ? std::max(nStart, std::min(m_nStallAt, nSize)) : nSize;
  if (!_SendAll(nSocket, m_vecBody.data() + nStart, nEnd - nStart)) return;
  if (m_eMode == eMode::StallAt) _HoldUntilStopped();
}

int RefusingPort() {
  sockaddr_in addr{};
  const int nSocket = LoopbackSocket(&addr);
  if (nSocket < 0) return 0;
  close(nSocket);  // bound but never listening: the port is free and nobody answers on it
  return ntohs(addr.sin_port);
}

std::vector<uint8_t> ReadFileBytes(const std::string& strPath) {
  std::ifstream file(strPath, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void LoadServedMedia(std::vector<uint8_t>* pvecTs, std::vector<uint8_t>* pvecMkv) {
  ASSERT_TRUE(MediaExists("mpeg2_mp2_2prog.ts"));
  *pvecTs = ReadFileBytes(MediaPath("mpeg2_mp2_2prog.ts"));
  ASSERT_GT(pvecTs->size(), 100000u);
  *pvecMkv = ReadFileBytes(MediaPath("hevc_opus.mkv"));
  ASSERT_GT(pvecMkv->size(), 60000u);
}

std::vector<uint8_t> AudioOnlyTs(const std::string& strPath) {
  std::vector<uint8_t> vecOut;
  AVFormatContext* pIn = nullptr;
  if (avformat_open_input(&pIn, strPath.c_str(), nullptr, nullptr) < 0) return vecOut;
  AVFormatContext* pOut = nullptr;
  AVPacket* pPacket = av_packet_alloc();
  const int nAudio = avformat_find_stream_info(pIn, nullptr) >= 0
                         ? av_find_best_stream(pIn, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0)
                         : -1;
  bool bOk = nAudio >= 0 && pPacket && avformat_alloc_output_context2(&pOut, nullptr, "mpegts", nullptr) >= 0;
  AVStream* pStream = bOk ? avformat_new_stream(pOut, nullptr) : nullptr;
  bOk = pStream && avcodec_parameters_copy(pStream->codecpar, pIn->streams[nAudio]->codecpar) >= 0;
  if (bOk) {
    pStream->codecpar->codec_tag = 0;
    pStream->time_base = pIn->streams[nAudio]->time_base;
    bOk = avio_open_dyn_buf(&pOut->pb) >= 0 && avformat_write_header(pOut, nullptr) >= 0;
  }
  if (bOk) {
    // 10 s on top of what the source has, so the first time stamp is far from 0.
    const int64_t llOffset = av_rescale_q(10 * AV_TIME_BASE, AV_TIME_BASE_Q, pStream->time_base);
    while (bOk && av_read_frame(pIn, pPacket) >= 0) {
      if (pPacket->stream_index == nAudio) {
        pPacket->stream_index = 0;
        av_packet_rescale_ts(pPacket, pIn->streams[nAudio]->time_base, pStream->time_base);
        if (pPacket->pts != AV_NOPTS_VALUE) pPacket->pts += llOffset;
        if (pPacket->dts != AV_NOPTS_VALUE) pPacket->dts += llOffset;
        bOk = av_interleaved_write_frame(pOut, pPacket) >= 0;
      }
      av_packet_unref(pPacket);
    }
    bOk = bOk && av_write_trailer(pOut) >= 0;
  }
  if (pOut && pOut->pb) {
    uint8_t* pBuffer = nullptr;
    const int cb = avio_close_dyn_buf(pOut->pb, &pBuffer);
    pOut->pb = nullptr;
    if (bOk && cb > 0) vecOut.assign(pBuffer, pBuffer + cb);
    av_free(pBuffer);
  }
  avformat_free_context(pOut);
  av_packet_free(&pPacket);
  avformat_close_input(&pIn);
  return vecOut;
}

}  // namespace vc::fftest
