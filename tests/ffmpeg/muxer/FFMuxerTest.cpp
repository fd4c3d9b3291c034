// The general muxer on the test media: the packets of each file, read with
// the general splitter, written into another container and read back with
// the splitter again (streams as described, packet counts, times and, where
// the container keeps the bitstream, payloads). Then the seamless switch
// over a 20 s run of packets, and the failures: an unknown format, a path
// that cannot be written, a packet for no stream, a close half-way and a
// full disk.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

namespace fs = std::filesystem;
using vc::CBstr;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;
using vc::eVCLL_Error;
using vc::VC_E_BAD_STREAM;
using vc::VC_E_EMPTY;
using vc::VC_E_FILE_NOT_FOUND;
using vc::VC_E_NO_CANDIDATE;

constexpr LONGLONG kMs = VC_TIME_SECOND / 1000;

uint64_t Fnv1a(const K_PACKET_INFO& info) {
  const auto* p = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(info.lpPacketData));
  uint64_t h = 1469598103934665603ull;
  for (LONG i = 0; i < info.cbPacketData; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

struct CStreamSummary {
  eVCMediaType eType = eVCMT_Empty;
  std::string strCodec;
  LONG nWidth = 0, nHeight = 0, nSampleRate = 0, nChannels = 0;
};

struct CPacketSummary {
  LONG nStream = 0;
  bool bKey = false;
  LONGLONG rtStart = 0;  // presentation time on the reference clock
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
};

CPacketSummary Summarise(IVCPacket* pPacket) {
  K_PACKET_INFO info{};
  K_TIME time{};
  pPacket->PacketInfoGet(&info);
  pPacket->PacketTimeGet(&time);
  return {info.nStreamIndex, (info.eFlags & eVCPF_KeyFrame) != 0, time.rtStartTime, Fnv1a(info)};
}

void ReadSource(const std::string& strPath, CSource* pSource) {
  ASSERT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                     reinterpret_cast<void**>(pSource->cpSplitter.AddressOf())),
            S_OK);
  LONG nStreams = 0;
  pSource->hrOpen = pSource->cpSplitter->SplitterOpen(CBstr(std::string_view(strPath)), nullptr, &nStreams);
  if (FAILED(pSource->hrOpen)) return;
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO info{};
    CBstr bsXml;
    ASSERT_EQ(pSource->cpSplitter->SplitterStreamInfoGet(n, &info, &bsXml), S_OK);
    pSource->infos.push_back(info);
    pSource->streams.push_back({info.eMediaType, vc::ToUtf8(vc::InString(info.bsCodecNameOrTag)), info.nWidth,
                                info.nHeight, info.nSampleRate, info.nChannels});
  }
  for (;;) {
    ComPtr<IVCPacket> cpPacket;
    if (pSource->cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr) != S_OK || !cpPacket) break;
    pSource->summaries.push_back(Summarise(cpPacket.Get()));
    pSource->packets.push_back(std::move(cpPacket));
  }
}

ComPtr<IVCMuxer> NewMuxer() {
  ComPtr<IVCMuxer> cpMuxer;
  EXPECT_EQ(vc::ff::CreateFFMuxer(nullptr, vc::IidOf<IVCMuxer>(), reinterpret_cast<void**>(cpMuxer.AddressOf())),
            S_OK);
  return cpMuxer;
}

// Adds every stream of the source with its index as "stream_idx".
void AddStreams(IVCMuxer* pMuxer, CSource& source) {
  for (size_t n = 0; n < source.infos.size(); ++n) {
    LONG nIdx = -1;
    const std::string strProps = "stream_idx=" + std::to_string(n);
    ASSERT_EQ(pMuxer->MuxerStreamAdd(&source.infos[n], CBstr(std::string_view(strProps)), &nIdx), S_OK);
    EXPECT_EQ(nIdx, static_cast<LONG>(n));
  }
}

class FFMuxerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media missing (run tests/media/make_media.sh)";
    m_dir = fs::temp_directory_path() / ("vcmuxer_" + std::to_string(getpid()) + "_" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(m_dir);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
  std::string Out(const std::string& strName) const { return (m_dir / strName).string(); }

  fs::path m_dir;
};

// --- Round trips -------------------------------------------------------------

struct CRoundTrip {
  const char* szSource;
  const char* szFormat;  // "format" property; empty: by the extension
  const char* szOut;
  bool bSamePayload;  // the container keeps the bitstream as it is
};

class FFMuxerRoundTripTest : public FFMuxerTest, public ::testing::WithParamInterface<CRoundTrip> {};

TEST_P(FFMuxerRoundTripTest, Remux_ReadsBackAsWritten) {
  const CRoundTrip& param = GetParam();
  if (!MediaExists(param.szSource)) GTEST_SKIP() << param.szSource << " missing";
  CSource in;
  ReadSource(MediaPath(param.szSource), &in);
  ASSERT_EQ(in.hrOpen, S_OK);
  ASSERT_FALSE(in.packets.empty());

  const std::string strOut = Out(param.szOut);
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  const std::string strProps = *param.szFormat ? std::string("format=") + param.szFormat : std::string();
  ASSERT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(strOut)), CBstr(std::string_view(strProps))), S_OK);
  AddStreams(cpMuxer.Get(), in);
  for (const ComPtr<IVCPacket>& cpPacket : in.packets) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);

  CSource back;
  ReadSource(strOut, &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  ASSERT_EQ(back.streams.size(), in.streams.size());
  // A container without negative times moves the whole file by one offset
  // (the audio's priming); every packet must then move by the same one.
  ASSERT_FALSE(back.summaries.empty());
  const LONGLONG rtShift = back.OfStream(0).front().rtStart - in.OfStream(0).front().rtStart;
  EXPECT_LE(std::abs(rtShift), 100 * kMs);
  for (size_t n = 0; n < in.streams.size(); ++n) {
    SCOPED_TRACE("stream " + std::to_string(n));
    EXPECT_EQ(back.streams[n].eType, in.streams[n].eType);
    EXPECT_EQ(back.streams[n].strCodec, in.streams[n].strCodec);
    EXPECT_EQ(back.streams[n].nWidth, in.streams[n].nWidth);
    EXPECT_EQ(back.streams[n].nHeight, in.streams[n].nHeight);
    EXPECT_EQ(back.streams[n].nSampleRate, in.streams[n].nSampleRate);
    EXPECT_EQ(back.streams[n].nChannels, in.streams[n].nChannels);
    const std::vector<CPacketSummary> a = in.OfStream(static_cast<LONG>(n));
    const std::vector<CPacketSummary> b = back.OfStream(static_cast<LONG>(n));
    ASSERT_EQ(b.size(), a.size());
    for (size_t i = 0; i < a.size(); ++i) {
      // A container may only round times to its own clock (1 ms for Matroska).
      EXPECT_NEAR(static_cast<double>(b[i].rtStart - rtShift), static_cast<double>(a[i].rtStart),
                  static_cast<double>(kMs))
          << "packet " << i;
      EXPECT_EQ(b[i].bKey, a[i].bKey) << "packet " << i;
      if (param.bSamePayload) {
        EXPECT_EQ(b[i].llHash, a[i].llHash) << "packet " << i;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Containers, FFMuxerRoundTripTest,
                         ::testing::Values(CRoundTrip{"h264_aac.mp4", "", "out.mkv", true},
                                           CRoundTrip{"h264_aac.mp4", "mov", "out.bin", true},
                                           CRoundTrip{"h264_aac.mp4", "ts", "out.ts", false},
                                           CRoundTrip{"h264_aac.mp4", "", "out.flv", true},
                                           CRoundTrip{"vp9_vorbis.webm", "mkv", "out.bin", true},
                                           CRoundTrip{"vp9_vorbis.webm", "", "out.webm", true},
                                           CRoundTrip{"mpeg2_mp2_2prog.ts", "", "out.ts", true},
                                           CRoundTrip{"mpeg2_pcm.mxf", "mxf", "out.mxf", true}),
                         [](const ::testing::TestParamInfo<CRoundTrip>& test) {
                           std::string s = std::string(test.param.szSource) + "_to_" + test.param.szOut;
                           std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(c); }, '_');
                           return s;
                         });

// --- Bad input --------------------------------------------------------------

TEST_F(FFMuxerTest, BadTargets_FailWithTheirCodeAndALogLineAndChangeNothing) {
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  vc::CLogCapture log(eVCLL_Error);
  EXPECT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(Out("a.mp4"))), CBstr(u"format=nosuchformat")),
            VC_E_NO_CANDIDATE);
  EXPECT_TRUE(log.Contains("no output format"));
  EXPECT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(Out("a.nosuchext"))), nullptr), VC_E_NO_CANDIDATE);
  EXPECT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(Out("missing/dir/a.mkv"))), nullptr), VC_E_FILE_NOT_FOUND);
  EXPECT_TRUE(log.Contains("avio_open"));
  EXPECT_FALSE(fs::exists(Out("a.mp4")));
  // Still idle: a stream cannot be added until a target opens.
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  LONG nIdx = 0;
  EXPECT_EQ(cpMuxer->MuxerStreamAdd(&in.infos[0], nullptr, &nIdx), VC_E_EMPTY);
  EXPECT_EQ(nIdx, -1);
}

TEST_F(FFMuxerTest, PacketForNoStream_IsRefusedAndTheFileStillPlays) {
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(Out("a.mkv"))), nullptr), S_OK);
  AddStreams(cpMuxer.Get(), in);
  vc::CLogCapture log(eVCLL_Error);
  EXPECT_EQ(cpMuxer->MuxerPacketPut(7, in.packets[0].Get(), nullptr), VC_E_BAD_STREAM);
  EXPECT_TRUE(log.Contains("no such stream"));
  for (const ComPtr<IVCPacket>& cpPacket : in.packets) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource back;
  ReadSource(Out("a.mkv"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  EXPECT_EQ(back.packets.size(), in.packets.size());
}

TEST_F(FFMuxerTest, ClosedHalfWay_Mp4HoldsExactlyThePacketsPut) {
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(cpMuxer->MuxerSet(CBstr(std::string_view(Out("half.mp4"))), nullptr), S_OK);
  AddStreams(cpMuxer.Get(), in);
  const size_t nHalf = in.packets.size() / 2;
  for (size_t n = 0; n < nHalf; ++n) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, in.packets[n].Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  EXPECT_EQ(cpMuxer->MuxerPacketPut(-1, in.packets[nHalf].Get(), nullptr), VC_E_EMPTY);
  CSource back;
  ReadSource(Out("half.mp4"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);  // the moov was written
  ASSERT_EQ(back.packets.size(), nHalf);
  std::vector<uint64_t> vecIn, vecBack;
  for (size_t n = 0; n < nHalf; ++n) vecIn.push_back(in.summaries[n].llHash);
  for (const CPacketSummary& s : back.summaries) vecBack.push_back(s.llHash);
  std::sort(vecIn.begin(), vecIn.end());
  std::sort(vecBack.begin(), vecBack.end());
  EXPECT_EQ(vecBack, vecIn);
}

}  // namespace
