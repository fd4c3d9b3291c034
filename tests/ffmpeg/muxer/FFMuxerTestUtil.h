// Helpers of the general muxer's tests: the packets of a file as the general
// splitter reads them (kept to be written again, and summarised for
// comparison), a new muxer, and a scratch folder per test.
#pragma once

#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc::fftest::mux {

inline constexpr LONGLONG kMs = VC_TIME_SECOND / 1000;

inline uint64_t Fnv1a(const K_PACKET_INFO& info) {
  const auto* p = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(info.lpPacketData));
  uint64_t h = 1469598103934665603ull;
  for (LONG i = 0; i < info.cbPacketData; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

struct CStreamSummary {
  eVCMediaType eType = eVCMT_Empty;
  std::string strCodec;
  LONG nWidth = 0, nHeight = 0, nSampleRate = 0, nChannels = 0;
  bool operator==(const CStreamSummary&) const = default;
};

struct CPacketSummary {
  LONG nStream = 0;
  bool bKey = false;
  LONGLONG rtStart = 0;  // presentation time on the reference clock
  LONGLONG llDts = 0;    // decoding time in the stream's time base, as the packet carries it
  LONG cbData = 0;
  uint64_t llHash = 0;
};

// What the general splitter reads from a file: descriptions and packets
// (kept for writing again), and their summaries.
struct CSource {
  HRESULT hrOpen = E_FAIL;
  std::vector<K_STREAM_INFO> infos;  // codec data valid while the splitter lives
  std::vector<CStreamSummary> streams;
  std::vector<ComPtr<IVCPacket>> packets;
  std::vector<CPacketSummary> summaries;
  ComPtr<IVCSplitter> cpSplitter;

  CSource() = default;
  CSource(const CSource&) = delete;
  CSource& operator=(const CSource&) = delete;
  ~CSource() {
    for (K_STREAM_INFO& info : infos) SysFreeString(info.bsCodecNameOrTag);
  }
  // Per stream, in file order.
  std::vector<CPacketSummary> OfStream(LONG nStream) const {
    std::vector<CPacketSummary> out;
    for (const CPacketSummary& s : summaries)
      if (s.nStream == nStream) out.push_back(s);
    return out;
  }
  LONG FirstOfType(eVCMediaType eType) const {
    for (size_t n = 0; n < streams.size(); ++n)
      if (streams[n].eType == eType) return static_cast<LONG>(n);
    return -1;
  }
};

inline CStreamSummary SummariseStream(const K_STREAM_INFO& info) {
  return {info.eMediaType, ToUtf8(InString(info.bsCodecNameOrTag)), info.nWidth, info.nHeight, info.nSampleRate,
          info.nChannels};
}

inline CPacketSummary Summarise(IVCPacket* pPacket) {
  K_PACKET_INFO info{};
  K_TIME time{};
  pPacket->PacketInfoGet(&info);
  pPacket->PacketTimeGet(&time);
  return {info.nStreamIndex, (info.eFlags & eVCPF_KeyFrame) != 0, time.rtStartTime, info.llDts, info.cbPacketData,
          Fnv1a(info)};
}

inline void ReadSource(const std::string& strPath, CSource* pSource) {
  ASSERT_EQ(ff::CreateFFSplitter(nullptr, IidOf<IVCSplitter>(), reinterpret_cast<void**>(pSource->cpSplitter.AddressOf())),
            S_OK);
  LONG nStreams = 0;
  pSource->hrOpen = pSource->cpSplitter->SplitterOpen(CBstr(std::string_view(strPath)), nullptr, &nStreams);
  if (FAILED(pSource->hrOpen)) return;
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO info{};
    CBstr bsXml;
    ASSERT_EQ(pSource->cpSplitter->SplitterStreamInfoGet(n, &info, &bsXml), S_OK);
    pSource->infos.push_back(info);
    pSource->streams.push_back(SummariseStream(info));
  }
  for (;;) {
    ComPtr<IVCPacket> cpPacket;
    if (pSource->cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr) != S_OK || !cpPacket) break;
    pSource->summaries.push_back(Summarise(cpPacket.Get()));
    pSource->packets.push_back(std::move(cpPacket));
  }
}

// The packets of a file as a plain libavformat read loop sees them (no
// hash: the payload is not kept), for checks that must not depend on the
// general splitter. The avformat_open_input result, or the first read
// error that is not the end of the file.
inline int ReadWithLibav(const std::string& strPath, std::vector<CPacketSummary>* pvecPackets) {
  AVFormatContext* pFormat = nullptr;
  int nRet = avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr);
  if (nRet < 0) return nRet;
  nRet = avformat_find_stream_info(pFormat, nullptr);
  AVPacket* pPacket = av_packet_alloc();
  while (nRet >= 0 && pPacket) {
    nRet = av_read_frame(pFormat, pPacket);
    if (nRet < 0) break;
    const AVRational tb = pFormat->streams[pPacket->stream_index]->time_base;
    CPacketSummary s;
    s.nStream = pPacket->stream_index;
    s.bKey = (pPacket->flags & AV_PKT_FLAG_KEY) != 0;
    s.rtStart = pPacket->pts == AV_NOPTS_VALUE ? VC_TIME_UNSET : av_rescale_q(pPacket->pts, tb, AVRational{1, static_cast<int>(VC_TIME_SECOND)});
    s.llDts = pPacket->dts;
    s.cbData = pPacket->size;
    pvecPackets->push_back(s);
    av_packet_unref(pPacket);
  }
  av_packet_free(&pPacket);
  avformat_close_input(&pFormat);
  return nRet == AVERROR_EOF ? 0 : nRet;
}

inline ComPtr<IVCMuxer> NewMuxer() {
  ComPtr<IVCMuxer> cpMuxer;
  EXPECT_EQ(ff::CreateFFMuxer(nullptr, IidOf<IVCMuxer>(), reinterpret_cast<void**>(cpMuxer.AddressOf())), S_OK);
  return cpMuxer;
}

// Adds every stream of the source with its index as "stream_idx".
inline void AddStreams(IVCMuxer* pMuxer, CSource& source) {
  for (size_t n = 0; n < source.infos.size(); ++n) {
    LONG nIdx = -1;
    const std::string strProps = "stream_idx=" + std::to_string(n);
    ASSERT_EQ(pMuxer->MuxerStreamAdd(&source.infos[n], CBstr(std::string_view(strProps)), &nIdx), S_OK);
    EXPECT_EQ(nIdx, static_cast<LONG>(n));
  }
}

inline HRESULT SetTarget(IVCMuxer* pMuxer, const std::string& strPath, const std::string& strProps = {}) {
  return pMuxer->MuxerSet(CBstr(std::string_view(strPath)),
                          strProps.empty() ? CBstr() : CBstr(std::string_view(strProps)));
}

// A scratch folder per test, removed after it; skips when the media script
// has not run.
class FFMuxerTestBase : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media missing (run tests/media/make_media.sh)";
    m_dir = std::filesystem::temp_directory_path() /
            ("vcmuxer_" + std::to_string(getpid()) + "_" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(m_dir);
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::permissions(m_dir, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_dir, ec);
  }
  std::string Out(const std::string& strName) const { return (m_dir / strName).string(); }

  std::filesystem::path m_dir;
};

}  // namespace vc::fftest::mux
