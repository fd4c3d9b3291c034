// The general muxer's repair of decoding times: packets whose decoding
// times go backwards, repeat, come after their presentation time or are
// missing must still be written, with decoding times that increase and
// never pass the presentation time, and one log line per stream.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FFMuxerTestUtil.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace {

using namespace vc::fftest::mux;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;

constexpr char kRepairLog[] = "repaired to dts";

size_t CountMessages(const vc::CLogCapture& log, const std::string& strText) {
  size_t n = 0;
  for (const std::string& strMessage : log.Messages())
    if (strMessage.find(strText) != std::string::npos) ++n;
  return n;
}

class FFMuxerTimeTest : public FFMuxerTestBase {
 protected:
  // A copy of a packet with other times (AV_NOPTS_VALUE: unknown).
  ComPtr<IVCPacket> WithTimes(const CSource& source, size_t n, LONGLONG llDts, LONGLONG llPts) {
    IVCPacket* pPacket = source.packets[n].Get();
    K_PACKET_INFO info{};
    K_TIME time{};
    EXPECT_EQ(pPacket->PacketInfoGet(&info), S_OK);
    EXPECT_EQ(pPacket->PacketTimeGet(&time), S_OK);
    info.llDts = llDts;
    info.llPts = llPts;
    ComPtr<IVCPacket> cpCopy;
    EXPECT_EQ(vc::CreateVCPacket(&info, &source.infos[static_cast<size_t>(info.nStreamIndex)], &time,
                                 reinterpret_cast<const void*>(static_cast<uintptr_t>(info.lpPacketData)),
                                 info.cbPacketData, cpCopy.AddressOf()),
              S_OK);
    return cpCopy;
  }

  // Writes the packets to strPath; every put must succeed.
  void Write(CSource& source, const std::vector<ComPtr<IVCPacket>>& vecPackets, const std::string& strPath) {
    ComPtr<IVCMuxer> cpMuxer = NewMuxer();
    ASSERT_EQ(SetTarget(cpMuxer.Get(), strPath), S_OK);
    AddStreams(cpMuxer.Get(), source);
    for (size_t n = 0; n < vecPackets.size(); ++n)
      ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, vecPackets[n].Get(), nullptr), S_OK) << "packet " << n;
    ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  }

  // Read back with libavformat: per stream the same count as the input, the
  // same presentation times (after the file's offset), decoding times that
  // increase and never pass the presentation time.
  void ExpectWellTimed(const CSource& source, const std::string& strPath) {
    std::vector<CPacketSummary> vecBack;
    ASSERT_EQ(ReadWithLibav(strPath, &vecBack), 0);
    for (size_t s = 0; s < source.streams.size(); ++s) {
      SCOPED_TRACE("stream " + std::to_string(s));
      std::vector<CPacketSummary> want = source.OfStream(static_cast<LONG>(s));
      std::vector<CPacketSummary> got;
      for (const CPacketSummary& back : vecBack)
        if (back.nStream == static_cast<LONG>(s)) got.push_back(back);
      ASSERT_EQ(got.size(), want.size());
      for (size_t i = 1; i < got.size(); ++i) {
        if (got[i].llDts != AV_NOPTS_VALUE || got[i - 1].llDts != AV_NOPTS_VALUE) {
          EXPECT_GT(got[i].llDts, got[i - 1].llDts) << "packet " << i;
        }
      }
      // Presentation order: compare the sorted times, as the container may
      // have moved the whole stream by one offset.
      std::vector<LONGLONG> a, b;
      for (const CPacketSummary& x : want) a.push_back(x.rtStart);
      for (const CPacketSummary& x : got) b.push_back(x.rtStart);
      std::sort(a.begin(), a.end());
      std::sort(b.begin(), b.end());
      const LONGLONG rtShift = b.front() - a.front();
      for (size_t i = 0; i < a.size(); ++i)
        EXPECT_NEAR(static_cast<double>(b[i] - rtShift), static_cast<double>(a[i]), static_cast<double>(kMs))
            << "packet " << i;
    }
  }
};

TEST_F(FFMuxerTimeTest, HevcFromMatroskaIntoMp4_IsWrittenWithIncreasingDecodingTimes) {
  if (!MediaExists("hevc_opus.mkv")) GTEST_SKIP() << "hevc_opus.mkv missing";
  CSource in;
  ReadSource(MediaPath("hevc_opus.mkv"), &in);
  ASSERT_EQ(in.hrOpen, S_OK);
  vc::CLogCapture log(vc::eVCLL_Info);
  ASSERT_NO_FATAL_FAILURE(Write(in, in.packets, Out("out.mp4")));
  EXPECT_LE(CountMessages(log, kRepairLog), in.streams.size()) << "more than one repair line per stream";
  ExpectWellTimed(in, Out("out.mp4"));
}

TEST_F(FFMuxerTimeTest, ReorderedVideoWithOnlyPresentationTimes_GetsDecodingTimesDerived) {
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  const LONG nVideo = in.FirstOfType(eVCMT_Video);
  std::vector<ComPtr<IVCPacket>> vecPackets;
  K_PACKET_INFO info{};
  for (size_t n = 0; n < in.packets.size(); ++n) {
    in.packets[n]->PacketInfoGet(&info);
    vecPackets.push_back(info.nStreamIndex == nVideo ? WithTimes(in, n, AV_NOPTS_VALUE, info.llPts) : in.packets[n]);
  }
  ASSERT_NO_FATAL_FAILURE(Write(in, vecPackets, Out("out.mp4")));
  ExpectWellTimed(in, Out("out.mp4"));
}

TEST_F(FFMuxerTimeTest, EqualAndBackwardDecodingTimes_AreRepairedWithOneLogLine) {
  // Every second video packet repeats the decoding time of the one before,
  // and one goes back by three frames: Matroska keeps them, mp4 refuses.
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  const LONG nVideo = in.FirstOfType(eVCMT_Video);
  std::vector<ComPtr<IVCPacket>> vecPackets;
  K_PACKET_INFO info{};
  LONGLONG llPrevDts = 0;
  size_t nVideoSeen = 0;
  const K_RATIONAL tb = in.infos[static_cast<size_t>(nVideo)].raTimeBase;
  const LONGLONG llFrame = tb.nDen / tb.nNum / 25;  // 25 frames per second
  for (size_t n = 0; n < in.packets.size(); ++n) {
    in.packets[n]->PacketInfoGet(&info);
    if (info.nStreamIndex != nVideo) {
      vecPackets.push_back(in.packets[n]);
      continue;
    }
    LONGLONG llDts = info.llDts;
    if (nVideoSeen % 2 == 1) llDts = llPrevDts;
    if (nVideoSeen == 20) llDts = llPrevDts - 3 * llFrame;
    llPrevDts = info.llDts;
    ++nVideoSeen;
    vecPackets.push_back(WithTimes(in, n, llDts, info.llPts));
  }
  vc::CLogCapture log(vc::eVCLL_Info);
  ASSERT_NO_FATAL_FAILURE(Write(in, vecPackets, Out("out.mp4")));
  EXPECT_EQ(CountMessages(log, kRepairLog), 1u);
  ExpectWellTimed(in, Out("out.mp4"));
}

TEST_F(FFMuxerTimeTest, DecodingTimeAfterPresentationTime_IsPulledBack) {
  CSource in;
  ReadSource(MediaPath("h264_aac.mp4"), &in);
  const LONG nAudio = in.FirstOfType(eVCMT_Audio);
  std::vector<ComPtr<IVCPacket>> vecPackets;
  K_PACKET_INFO info{};
  size_t nAudioSeen = 0;
  const K_RATIONAL tb = in.infos[static_cast<size_t>(nAudio)].raTimeBase;  // 100 ms late below
  for (size_t n = 0; n < in.packets.size(); ++n) {
    in.packets[n]->PacketInfoGet(&info);
    const bool bBad = info.nStreamIndex == nAudio && nAudioSeen++ == 10;
    vecPackets.push_back(bBad ? WithTimes(in, n, info.llPts + tb.nDen / tb.nNum / 10, info.llPts) : in.packets[n]);
  }
  vc::CLogCapture log(vc::eVCLL_Info);
  ASSERT_NO_FATAL_FAILURE(Write(in, vecPackets, Out("out.mp4")));
  EXPECT_TRUE(log.Contains("decoding time after presentation time"));
  ExpectWellTimed(in, Out("out.mp4"));
}

}  // namespace
