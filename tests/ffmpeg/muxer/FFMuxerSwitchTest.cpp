// The general muxer's move to a new file while packets flow: a seamless
// switch waits for the next key packet of the video stream, so that every
// file opens on a key frame and decodes on its own, and no packet is lost
// or written twice around the cut. Checked on a 20 s H.264/AAC run with a
// key frame every second, read back with the general splitter and decoded
// with a plain libavcodec loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "FFDecoderTestSource.h"
#include "FFMuxerTestUtil.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace {

using namespace vc::fftest::mux;
using vc::CBstr;
using vc::ComPtr;
using vc::fftest::DecodeWithPlainLoop;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;

constexpr char kSeamless[] = "seamless_switch=true";

class FFMuxerSwitchTest : public FFMuxerTestBase {
 protected:
  void SetUp() override {
    FFMuxerTestBase::SetUp();
    if (IsSkipped()) return;
    if (!MediaExists("h264_aac_20s.mp4")) GTEST_SKIP() << "h264_aac_20s.mp4 missing";
    ReadSource(MediaPath("h264_aac_20s.mp4"), &m_in);
    ASSERT_EQ(m_in.hrOpen, S_OK);
    m_nVideo = m_in.FirstOfType(eVCMT_Video);
    m_nAudio = m_in.FirstOfType(eVCMT_Audio);
    ASSERT_GE(m_nVideo, 0);
    ASSERT_GE(m_nAudio, 0);
  }

  // Decoding time of an input packet on the reference clock.
  LONGLONG OrderTime(const CPacketSummary& s) const {
    const K_RATIONAL tb = m_in.infos[static_cast<size_t>(s.nStream)].raTimeBase;
    return s.llDts * VC_TIME_SECOND * tb.nNum / tb.nDen;
  }

  // Writes every input packet, asking for a seamless switch to the next
  // path before the first packet at or after each of the times.
  void WriteWithSwitches(const std::vector<std::string>& vecPaths, const std::vector<LONGLONG>& vecAt) {
    ComPtr<IVCMuxer> cpMuxer = NewMuxer();
    ASSERT_EQ(SetTarget(cpMuxer.Get(), vecPaths[0]), S_OK);
    AddStreams(cpMuxer.Get(), m_in);
    size_t nNext = 0;
    for (size_t n = 0; n < m_in.packets.size(); ++n) {
      if (nNext < vecAt.size() && m_in.summaries[n].rtStart >= vecAt[nNext]) {
        ASSERT_EQ(SetTarget(cpMuxer.Get(), vecPaths[nNext + 1], kSeamless), S_OK) << "switch " << nNext;
        ++nNext;
      }
      ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK) << "packet " << n;
    }
    ASSERT_EQ(nNext, vecAt.size());
    ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  }

  CSource m_in;
  LONG m_nVideo = -1;
  LONG m_nAudio = -1;
};

// Where each file's video starts, in input presentation time, and how many
// packets each holds: for the cases that only need to know where the cuts
// fell.
struct CPart {
  bool bExists = false;
  size_t nPackets = 0;
  bool bFirstVideoKey = false;
  LONGLONG rtFirstVideo = VC_TIME_UNSET;  // as read back
};

CPart ReadPart(const std::string& strPath, LONG nVideo) {
  CPart part;
  part.bExists = std::filesystem::exists(strPath);
  if (!part.bExists) return part;
  CSource source;
  ReadSource(strPath, &source);
  EXPECT_EQ(source.hrOpen, S_OK) << strPath;
  part.nPackets = source.packets.size();
  const std::vector<CPacketSummary> video = source.OfStream(nVideo);
  if (!video.empty()) {
    part.bFirstVideoKey = video.front().bKey;
    part.rtFirstVideo = video.front().rtStart;
  }
  return part;
}

TEST_F(FFMuxerSwitchTest, PlainMoveAfterASwitch_HappensAtOnceNotAtAKeyFrame) {
  // The switch request must not stay in the muxer's settings: the plain
  // move that follows cuts where it is asked, between key frames.
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.mkv")), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  bool bSwitched = false, bMoved = false;
  for (size_t n = 0; n < m_in.packets.size(); ++n) {
    const LONGLONG rt = m_in.summaries[n].rtStart;
    if (!bSwitched && rt >= 5 * VC_TIME_SECOND) {
      ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("b.mkv"), kSeamless), S_OK);
      bSwitched = true;
    }
    if (!bMoved && rt >= 10 * VC_TIME_SECOND + 500 * kMs) {
      ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("c.mkv")), S_OK);
      bMoved = true;
    }
    ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
  }
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  const CPart b = ReadPart(Out("b.mkv"), m_nVideo);
  const CPart c = ReadPart(Out("c.mkv"), m_nVideo);
  ASSERT_TRUE(b.bExists && c.bExists);
  EXPECT_TRUE(b.bFirstVideoKey);
  EXPECT_FALSE(c.bFirstVideoKey) << "the plain move waited for a key frame";
  EXPECT_NEAR(static_cast<double>(c.rtFirstVideo), static_cast<double>(10 * VC_TIME_SECOND + 500 * kMs),
              static_cast<double>(200 * kMs));
  EXPECT_EQ(ReadPart(Out("a.mkv"), m_nVideo).nPackets + b.nPackets + c.nPackets, m_in.packets.size());
}

TEST_F(FFMuxerSwitchTest, SecondRequestBeforeTheKeyFrame_WinsAndTheFirstPathIsNeverWritten) {
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.mp4")), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  int nAsked = 0;
  for (size_t n = 0; n < m_in.packets.size(); ++n) {
    const LONGLONG rt = m_in.summaries[n].rtStart;
    if (nAsked == 0 && rt >= 5 * VC_TIME_SECOND + 200 * kMs) {
      ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("b.mp4"), kSeamless), S_OK);
      EXPECT_TRUE(std::filesystem::exists(Out("b.mp4"))) << "the next file opens when asked for";
      ++nAsked;
    } else if (nAsked == 1 && rt >= 5 * VC_TIME_SECOND + 600 * kMs) {
      // Asking again for the path that waits changes nothing.
      EXPECT_EQ(SetTarget(cpMuxer.Get(), Out("b.mp4"), kSeamless), S_FALSE);
      ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("c.mp4"), kSeamless), S_OK);
      ++nAsked;
    }
    ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
  }
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  EXPECT_FALSE(std::filesystem::exists(Out("b.mp4")));
  const CPart a = ReadPart(Out("a.mp4"), m_nVideo);
  const CPart c = ReadPart(Out("c.mp4"), m_nVideo);
  ASSERT_TRUE(c.bExists);
  EXPECT_TRUE(c.bFirstVideoKey);
  EXPECT_NEAR(static_cast<double>(c.rtFirstVideo), static_cast<double>(6 * VC_TIME_SECOND),
              static_cast<double>(100 * kMs));
  EXPECT_EQ(a.nPackets + c.nPackets, m_in.packets.size());
}

TEST_F(FFMuxerSwitchTest, SwitchBeforeTheFirstPacket_TakesTheNewPathAtOnce) {
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.mp4")), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("b.mp4"), kSeamless), S_OK);
  for (const ComPtr<IVCPacket>& cpPacket : m_in.packets)
    ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  EXPECT_FALSE(std::filesystem::exists(Out("a.mp4")));
  EXPECT_EQ(ReadPart(Out("b.mp4"), m_nVideo).nPackets, m_in.packets.size());
}

TEST_F(FFMuxerSwitchTest, AudioOnly_SwitchesAtTheNextPacket) {
  // With no video stream every packet is a place to cut.
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.mka")), S_OK);
  LONG nIdx = -1;
  const std::string strProps = "stream_idx=" + std::to_string(m_nAudio);
  ASSERT_EQ(cpMuxer->MuxerStreamAdd(&m_in.infos[static_cast<size_t>(m_nAudio)], CBstr(std::string_view(strProps)),
                                    &nIdx),
            S_OK);
  std::vector<CPacketSummary> vecAudio;
  size_t nBefore = 0;
  for (size_t n = 0; n < m_in.packets.size(); ++n) {
    if (m_in.summaries[n].nStream != m_nAudio) continue;
    if (vecAudio.size() == 100) {
      ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("b.mka"), kSeamless), S_OK);
      nBefore = vecAudio.size();
    }
    ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
    vecAudio.push_back(m_in.summaries[n]);
  }
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource a, b;
  ReadSource(Out("a.mka"), &a);
  ReadSource(Out("b.mka"), &b);
  ASSERT_EQ(a.hrOpen, S_OK);
  ASSERT_EQ(b.hrOpen, S_OK);
  ASSERT_EQ(a.summaries.size(), nBefore);
  ASSERT_EQ(b.summaries.size(), vecAudio.size() - nBefore);
  EXPECT_EQ(b.summaries.front().llHash, vecAudio[nBefore].llHash);
}

TEST_F(FFMuxerSwitchTest, WholeSettingsTextWithUnknownNames_IsAcceptedAndOnlyTheKnownOnesAct) {
  // The muxer facade hands its whole property tree, serialised, to MuxerSet:
  // names this muxer does not know are someone else's and must not fail it.
  ComPtr<IVCMuxer> cpDonor = NewMuxer();
  ASSERT_TRUE(vc::fftest::SetProp(cpDonor.Get(), "format", "matroska"));
  ASSERT_TRUE(vc::fftest::SetProp(cpDonor.Get(), "stat::v_decode.kbps", "1200"));
  ASSERT_TRUE(vc::fftest::SetProp(cpDonor.Get(), "net::timeout_ms", "500"));
  const std::string strTree = vc::fftest::PropText(cpDonor.Get(), "");
  ASSERT_NE(strTree.find("timeout_ms"), std::string::npos) << strTree;

  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.bin"), strTree), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  for (size_t n = 0; n < 50; ++n) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource back;
  ReadSource(Out("a.bin"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  EXPECT_EQ(back.packets.size(), 50u);
  // The known one acted: Matroska's EBML magic, not what ".bin" would guess.
  std::ifstream file(Out("a.bin"), std::ios::binary);
  unsigned char magic[4] = {};
  file.read(reinterpret_cast<char*>(magic), sizeof(magic));
  EXPECT_TRUE(magic[0] == 0x1A && magic[1] == 0x45 && magic[2] == 0xDF && magic[3] == 0xA3);
}

struct CSwitchCase {
  const char* szExt;
  bool bSamePayload;  // the container keeps the bitstream as it is (not so for H.264 in TS)
};

class FFMuxerSwitchContainerTest : public FFMuxerSwitchTest, public ::testing::WithParamInterface<CSwitchCase> {};

TEST_P(FFMuxerSwitchContainerTest, ThreeSwitches_FourFilesHoldEveryPacketOnceAndEachStartsOnAKeyFrame) {
  const std::string strExt = GetParam().szExt;
  std::vector<std::string> vecPaths;
  for (int k = 0; k < 4; ++k) vecPaths.push_back(Out("part" + std::to_string(k) + "." + strExt));
  const std::vector<LONGLONG> vecAt = {5 * VC_TIME_SECOND, 10 * VC_TIME_SECOND, 15 * VC_TIME_SECOND};
  vc::CLogCapture log(vc::eVCLL_Info);
  ASSERT_NO_FATAL_FAILURE(WriteWithSwitches(vecPaths, vecAt));
  for (size_t k = 1; k < vecPaths.size(); ++k)
    EXPECT_TRUE(log.Contains(vecPaths[k - 1] + " finished, going on in " + vecPaths[k])) << "switch " << k;

  // Each stream's packets, file after file, must be the input's in order;
  // an index into the input stream follows along.
  const int nPrimingPackets = static_cast<int>(m_in.OfStream(m_nAudio).size()) -
                              DecodeWithPlainLoop(MediaPath("h264_aac_20s.mp4"), AVMEDIA_TYPE_AUDIO).nFrames;
  ASSERT_GE(nPrimingPackets, 0);
  ASSERT_LE(nPrimingPackets, 1);
  std::vector<size_t> vecAt0(m_in.streams.size(), 0);
  LONGLONG rtLastBefore = VC_TIME_UNSET;  // the latest decoding time in the file before
  std::vector<std::vector<CPacketSummary>> vecInOf;
  for (size_t n = 0; n < m_in.streams.size(); ++n) vecInOf.push_back(m_in.OfStream(static_cast<LONG>(n)));
  for (size_t k = 0; k < vecPaths.size(); ++k) {
    SCOPED_TRACE("file " + std::to_string(k));
    CSource part;
    ReadSource(vecPaths[k], &part);
    ASSERT_EQ(part.hrOpen, S_OK);
    ASSERT_EQ(part.streams.size(), m_in.streams.size());
    const std::vector<CPacketSummary> video = part.OfStream(m_nVideo);
    ASSERT_FALSE(video.empty());
    EXPECT_TRUE(video.front().bKey) << "the file does not open on a key frame";
    const CPacketSummary& inFirst = vecInOf[static_cast<size_t>(m_nVideo)][vecAt0[static_cast<size_t>(m_nVideo)]];
    // The file's own offset: the same for every packet of every stream.
    const LONGLONG rtShift = video.front().rtStart - inFirst.rtStart;
    if (k > 0) {
      EXPECT_LT(rtLastBefore, OrderTime(inFirst)) << "the file before holds a packet that decodes after the cut";
      // The cut is the first key frame after the request, not a later one.
      EXPECT_GE(inFirst.rtStart, vecAt[k - 1] - VC_TIME_SECOND);
      EXPECT_LT(inFirst.rtStart, vecAt[k - 1] + VC_TIME_SECOND + 100 * kMs);
    }
    for (size_t n = 0; n < m_in.streams.size(); ++n) {
      SCOPED_TRACE("stream " + std::to_string(n));
      const std::vector<CPacketSummary> got = part.OfStream(static_cast<LONG>(n));
      const std::vector<CPacketSummary>& want = vecInOf[n];
      ASSERT_LE(vecAt0[n] + got.size(), want.size()) << "more packets than the input has";
      for (size_t i = 0; i < got.size(); ++i) {
        const CPacketSummary& w = want[vecAt0[n] + i];
        if (GetParam().bSamePayload) {
          ASSERT_EQ(got[i].llHash, w.llHash) << "packet " << i << " (input packet " << vecAt0[n] + i << ")";
        }
        EXPECT_EQ(got[i].bKey, w.bKey) << "packet " << i;
        EXPECT_NEAR(static_cast<double>(got[i].rtStart - rtShift), static_cast<double>(w.rtStart),
                    static_cast<double>(kMs))
            << "packet " << i;
        // Around the cut packets go by decoding time: nothing in this file
        // decodes before its first video packet.
        if (k > 0) {
          EXPECT_GE(OrderTime(w), OrderTime(inFirst)) << "packet " << i;
        }
        rtLastBefore = std::max(rtLastBefore, OrderTime(w));
      }
      vecAt0[n] += got.size();
    }

    // Opens and decodes on its own: a frame for every packet.
    const vc::fftest::CReferenceDecode videoDecode = DecodeWithPlainLoop(vecPaths[k], AVMEDIA_TYPE_VIDEO);
    ASSERT_TRUE(videoDecode.bOpened);
    EXPECT_EQ(videoDecode.nFrames, static_cast<int>(video.size()));
    const vc::fftest::CReferenceDecode audioDecode = DecodeWithPlainLoop(vecPaths[k], AVMEDIA_TYPE_AUDIO);
    ASSERT_TRUE(audioDecode.bOpened);
    // Where the container keeps the input's priming (the packet before
    // time zero, mp4's edit list), the decoder drops it in the first file,
    // as it does in the input.
    const int nAudioPackets = static_cast<int>(part.OfStream(m_nAudio).size());
    EXPECT_LE(audioDecode.nFrames, nAudioPackets);
    EXPECT_GE(audioDecode.nFrames + (k == 0 ? nPrimingPackets : 0), nAudioPackets);
  }
  for (size_t n = 0; n < m_in.streams.size(); ++n)
    EXPECT_EQ(vecAt0[n], vecInOf[n].size()) << "stream " << n << " lost packets at the end";
}

INSTANTIATE_TEST_SUITE_P(Containers, FFMuxerSwitchContainerTest,
                         ::testing::Values(CSwitchCase{"mp4", true}, CSwitchCase{"mkv", true},
                                           CSwitchCase{"ts", false}),
                         [](const ::testing::TestParamInfo<CSwitchCase>& test) { return std::string(test.param.szExt); });

}  // namespace
