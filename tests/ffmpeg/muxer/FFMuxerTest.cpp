// The general muxer on the test media: the packets of each file, read with
// the general splitter, written into another container and read back with
// the splitter again (streams as described, packet counts, times and, where
// the container keeps the bitstream, payloads), and bad input: an unknown
// format, a packet for no stream. The switch, the failures and the time
// repair have files of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "FFMuxerTestUtil.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace {

namespace fs = std::filesystem;
using namespace vc::fftest::mux;
using vc::CBstr;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;
using vc::eVCLL_Error;
using vc::VC_E_BAD_STREAM;
using vc::VC_E_EMPTY;
using vc::VC_E_FILE_NOT_FOUND;
using vc::VC_E_NO_CANDIDATE;

using FFMuxerTest = FFMuxerTestBase;

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

TEST_F(FFMuxerTest, PcmIntoAvi_KeepsEveryByteThoughTheReaderCutsItsOwnPackets) {
  // The AVI reader hands PCM back in pieces of its own size (a 3,840-byte
  // chunk comes back as 2,048 + 1,792), so the audio packet count differs
  // from what was written; the chunks in the file are the packets written.
  // What must hold: the same bytes in the same order, and video untouched.
  if (!MediaExists("mpeg2_pcm.mxf")) GTEST_SKIP() << "mpeg2_pcm.mxf missing";
  CSource in;
  ReadSource(MediaPath("mpeg2_pcm.mxf"), &in);
  ASSERT_EQ(in.hrOpen, S_OK);
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("out.avi")), S_OK);
  AddStreams(cpMuxer.Get(), in);
  for (const ComPtr<IVCPacket>& cpPacket : in.packets) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource back;
  ReadSource(Out("out.avi"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  const auto payload = [](const CSource& source, eVCMediaType eType) {
    std::string bytes;
    for (const ComPtr<IVCPacket>& cpPacket : source.packets) {
      K_PACKET_INFO info{};
      cpPacket->PacketInfoGet(&info);
      if (source.streams[static_cast<size_t>(info.nStreamIndex)].eType == eType)
        bytes.append(reinterpret_cast<const char*>(static_cast<uintptr_t>(info.lpPacketData)),
                     static_cast<size_t>(info.cbPacketData));
    }
    return bytes;
  };
  const std::string strIn = payload(in, eVCMT_Audio);
  ASSERT_FALSE(strIn.empty());
  EXPECT_TRUE(payload(back, eVCMT_Audio) == strIn) << "the PCM bytes differ";
  const LONG nVideoIn = in.FirstOfType(eVCMT_Video), nVideoBack = back.FirstOfType(eVCMT_Video);
  ASSERT_GE(nVideoBack, 0);
  EXPECT_EQ(back.OfStream(nVideoBack).size(), in.OfStream(nVideoIn).size());
}

}  // namespace
