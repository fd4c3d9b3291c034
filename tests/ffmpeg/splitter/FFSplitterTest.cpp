// The general splitter on the test media, checked against what libavformat
// itself reports for the same files: stream records, duration, and every
// packet (order, flags, times, position, payload) read by a plain
// av_read_frame loop. Then seeking, track and program selection, packets of
// one stream at a time, side data, and the failures a broken source gives.
#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Devices/CoXMLNode.h"
#include "FFClasses.h"
#include "FFCommon.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCSideData.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;

// --- What a plain libavformat loop sees ----------------------------------------

uint64_t Fnv1a(const uint8_t* p, size_t n) {
  uint64_t h = 1469598103934665603ull;
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

struct CRefPacket {
  int nStream = 0;
  bool bKey = false;
  int64_t llDts = 0, llPts = 0, llDuration = 0, llPos = 0;
  int nSize = 0;
  uint64_t llHash = 0;
};

struct CRefStream {
  AVMediaType eType = AVMEDIA_TYPE_UNKNOWN;
  std::string strCodec;
  AVRational tb{0, 1};
  int nWidth = 0, nHeight = 0, nSampleRate = 0, nChannels = 0;
  double dblRate = 0;
  std::vector<uint8_t> vecExtradata;
};

struct CRefSource {
  std::vector<CRefStream> streams;
  std::vector<CRefPacket> packets;
  int64_t llDuration = AV_NOPTS_VALUE;  // AV_TIME_BASE units
};

CRefSource ReadPlain(const std::string& strPath) {
  CRefSource ref;
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) return ref;
  if (avformat_find_stream_info(pFormat, nullptr) >= 0) {
    ref.llDuration = pFormat->duration;
    for (unsigned n = 0; n < pFormat->nb_streams; ++n) {
      const AVStream* pStream = pFormat->streams[n];
      const AVCodecParameters* pPar = pStream->codecpar;
      CRefStream s;
      s.eType = pPar->codec_type;
      s.strCodec = avcodec_get_name(pPar->codec_id);
      s.tb = pStream->time_base;
      s.nWidth = pPar->width;
      s.nHeight = pPar->height;
      s.nSampleRate = pPar->sample_rate;
      s.nChannels = pPar->ch_layout.nb_channels;
      s.dblRate = av_q2d(pStream->avg_frame_rate.den ? pStream->avg_frame_rate : pStream->r_frame_rate);
      if (pPar->extradata) s.vecExtradata.assign(pPar->extradata, pPar->extradata + pPar->extradata_size);
      ref.streams.push_back(s);
    }
    AVPacket* pPacket = av_packet_alloc();
    while (av_read_frame(pFormat, pPacket) >= 0) {
      ref.packets.push_back(CRefPacket{pPacket->stream_index, (pPacket->flags & AV_PKT_FLAG_KEY) != 0, pPacket->dts,
                                       pPacket->pts, pPacket->duration, pPacket->pos, pPacket->size,
                                       Fnv1a(pPacket->data, static_cast<size_t>(pPacket->size))});
      av_packet_unref(pPacket);
    }
    av_packet_free(&pPacket);
  }
  avformat_close_input(&pFormat);
  return ref;
}

// --- The splitter side -------------------------------------------------------------

struct CGot {
  K_PACKET_INFO info{};
  K_TIME time{};
  K_STREAM_INFO stream{};
  uint64_t llHash = 0;
};

class FFSplitterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media missing (run tests/media/make_media.sh)";
    ASSERT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                       reinterpret_cast<void**>(m_cpSplitter.AddressOf())),
              S_OK);
    ASSERT_EQ(m_cpSplitter.As(&m_cpProps), S_OK);
  }

  void SetProp(const char16_t* szName, const char16_t* szValue) {
    ASSERT_EQ(m_cpProps->PropsSet(CBstr(szName), CBstr(szValue)), S_OK);
  }

  HRESULT Open(const std::string& strFile, const char16_t* szProps = u"") {
    m_nStreams = -1;
    return m_cpSplitter->SplitterOpen(CBstr(std::string_view(MediaPath(strFile))), CBstr(szProps), &m_nStreams);
  }

  HRESULT Next(LONG nStream, CGot* pGot) {
    ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = m_cpSplitter->SplitterPacketGet(nStream, cpPacket.AddressOf(), nullptr);
    if (FAILED(hr)) return hr;
    EXPECT_TRUE(cpPacket);
    if (!cpPacket) return E_POINTER;
    cpPacket->PacketInfoGet(&pGot->info);
    cpPacket->PacketTimeGet(&pGot->time);
    cpPacket->PacketStreamInfoGet(&pGot->stream);
    SysFreeString(pGot->stream.bsCodecNameOrTag);  // a fresh copy each call: the caller's to free
    pGot->stream.bsCodecNameOrTag = nullptr;
    pGot->llHash = Fnv1a(reinterpret_cast<const uint8_t*>(pGot->info.lpPacketData),
                         static_cast<size_t>(pGot->info.cbPacketData));
    return hr;
  }

  // Every packet up to the end; the end must be reported as end of media.
  std::vector<CGot> ReadAll(LONG nStream = -1) {
    std::vector<CGot> vecGot;
    for (;;) {
      CGot got;
      const HRESULT hr = Next(nStream, &got);
      if (FAILED(hr)) {
        EXPECT_EQ(hr, static_cast<HRESULT>(0x8007044C));
        break;
      }
      vecGot.push_back(got);
    }
    return vecGot;
  }

  static void ExpectSamePacket(const CRefPacket& ref, const CGot& got, size_t nIndex) {
    SCOPED_TRACE(::testing::Message() << "packet " << nIndex);
    EXPECT_EQ(got.info.nStreamIndex, ref.nStream);
    EXPECT_EQ((got.info.eFlags & eVCPF_KeyFrame) != 0, ref.bKey);
    EXPECT_EQ(got.info.llDts, ref.llDts);
    EXPECT_EQ(got.info.llPts, ref.llPts);
    EXPECT_EQ(got.info.llDuration, ref.llDuration);
    EXPECT_EQ(got.info.llFilePos, ref.llPos);
    EXPECT_EQ(got.info.cbPacketData, ref.nSize);
    EXPECT_EQ(got.llHash, ref.llHash);
  }

  ComPtr<IVCSplitter> m_cpSplitter;
  ComPtr<IVCProps> m_cpProps;
  LONG m_nStreams = -1;
};

// --- Every good file, compared with the plain loop -------------------------------

class FFSplitterMediaTest : public FFSplitterTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(FFSplitterMediaTest, StreamRecordsAndDurationMatchLibavformat) {
  const CRefSource ref = ReadPlain(MediaPath(GetParam()));
  ASSERT_FALSE(ref.streams.empty());
  ASSERT_EQ(Open(GetParam()), S_OK);
  EXPECT_EQ(m_nStreams, static_cast<LONG>(ref.streams.size()));

  CBstr bsPath, bsXml;
  LONG nCount = 0;
  LONGLONG rtDuration = 0;
  ASSERT_EQ(m_cpSplitter->SplitterInfoGet(&bsPath, &bsXml, &nCount, &rtDuration), S_OK);
  EXPECT_EQ(bsPath.Utf8(), MediaPath(GetParam()));
  EXPECT_EQ(nCount, m_nStreams);
  EXPECT_EQ(rtDuration, vc::ff::ToRefTime(ref.llDuration, AV_TIME_BASE_Q));
  EXPECT_NEAR(static_cast<double>(rtDuration), 2e7, 0.1e7);  // every test file lasts 2 s
  EXPECT_EQ(XMLParse::CoXMLNode::Create()->Parse(bsXml.View()), S_OK) << bsXml.Utf8();

  for (LONG n = 0; n < m_nStreams; ++n) {
    SCOPED_TRACE(::testing::Message() << "stream " << n);
    const CRefStream& want = ref.streams[static_cast<size_t>(n)];
    K_STREAM_INFO info{};
    CBstr bsStreamXml;
    ASSERT_EQ(m_cpSplitter->SplitterStreamInfoGet(n, &info, &bsStreamXml), S_OK);
    CBstr bsName;
    *&bsName = info.bsCodecNameOrTag;  // ours to free
    EXPECT_EQ(bsName.Utf8(), want.strCodec);
    EXPECT_EQ(info.eMediaType, want.eType == AVMEDIA_TYPE_VIDEO ? eVCMT_Video : eVCMT_Audio);
    EXPECT_EQ(info.raTimeBase.nNum, want.tb.num);
    EXPECT_EQ(info.raTimeBase.nDen, want.tb.den);
    ASSERT_EQ(info.cbCodecData, static_cast<LONG>(want.vecExtradata.size()));
    if (info.cbCodecData > 0) {
      EXPECT_EQ(std::memcmp(reinterpret_cast<const void*>(info.lpCodecData), want.vecExtradata.data(),
                            want.vecExtradata.size()),
                0);
    }
    if (want.eType == AVMEDIA_TYPE_VIDEO) {
      EXPECT_EQ(info.nWidth, 320);
      EXPECT_EQ(info.nHeight, 240);
      EXPECT_EQ(info.nAspectX, 4);
      EXPECT_EQ(info.nAspectY, 3);
      EXPECT_DOUBLE_EQ(info.dblRate, want.dblRate);
      EXPECT_NEAR(info.dblRate, 25.0, 0.01);
    } else {
      EXPECT_EQ(info.nSampleRate, 48000);
      EXPECT_EQ(info.nChannels, want.nChannels);
    }
    EXPECT_EQ(XMLParse::CoXMLNode::Create()->Parse(bsStreamXml.View()), S_OK) << bsStreamXml.Utf8();
  }
}

TEST_P(FFSplitterMediaTest, PacketsInSourceOrderMatchLibavformat) {
  const CRefSource ref = ReadPlain(MediaPath(GetParam()));
  ASSERT_EQ(Open(GetParam()), S_OK);
  const std::vector<CGot> got = ReadAll();
  ASSERT_EQ(got.size(), ref.packets.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ExpectSamePacket(ref.packets[i], got[i], i);
    // The packet's time is its own stamp on the reference clock, and it
    // carries the description of its stream.
    const CRefPacket& want = ref.packets[i];
    const AVRational tb = ref.streams[static_cast<size_t>(want.nStream)].tb;
    const int64_t llStart = want.llPts != AV_NOPTS_VALUE ? want.llPts : want.llDts;
    EXPECT_EQ(got[i].time.rtStartTime, vc::ff::ToRefTime(llStart, tb));
    if (want.llDuration > 0) {
      EXPECT_EQ(got[i].time.rtEndTime - got[i].time.rtStartTime, vc::ff::ToRefTime(want.llDuration, tb));
    }
    EXPECT_EQ(got[i].stream.raTimeBase.nDen, tb.den);
  }
  // The end stays the end.
  CGot more;
  EXPECT_EQ(Next(-1, &more), static_cast<HRESULT>(0x8007044C));
}

TEST_P(FFSplitterMediaTest, SeekPastMiddleStartsAtKeyPacketAtOrBeforeTarget) {
  const CRefSource ref = ReadPlain(MediaPath(GetParam()));
  ASSERT_EQ(Open(GetParam()), S_OK);
  LONG nVideo = -1;
  for (size_t n = 0; n < ref.streams.size() && nVideo < 0; ++n)
    if (ref.streams[n].eType == AVMEDIA_TYPE_VIDEO) nVideo = static_cast<LONG>(n);
  ASSERT_GE(nVideo, 0);

  // Times are the source's own, so the target is the first stamp plus a bit
  // more than half the length (past the second key packet of every file).
  LONGLONG rtFirst = INT64_MAX;
  for (const CRefPacket& p : ref.packets) {
    const int64_t llStart = p.llPts != AV_NOPTS_VALUE ? p.llPts : p.llDts;
    if (llStart != AV_NOPTS_VALUE)
      rtFirst = std::min(rtFirst, vc::ff::ToRefTime(llStart, ref.streams[static_cast<size_t>(p.nStream)].tb));
  }
  const LONGLONG rtTarget = rtFirst + vc::ff::ToRefTime(ref.llDuration, AV_TIME_BASE_Q) * 6 / 10;
  // The latest key packet of the video stream at or before the target: the
  // seek may land there or earlier, never later.
  LONGLONG rtLatestKey = VC_TIME_UNSET;
  for (const CRefPacket& p : ref.packets) {
    if (p.nStream != nVideo || !p.bKey) continue;
    const LONGLONG rt = vc::ff::ToRefTime(p.llPts, ref.streams[static_cast<size_t>(nVideo)].tb);
    if (rt <= rtTarget) rtLatestKey = std::max(rtLatestKey, rt);
  }
  ASSERT_NE(rtLatestKey, VC_TIME_UNSET);
  ASSERT_GT(rtLatestKey, rtFirst) << "the middle of the file must be past its first key packet";

  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(rtTarget, nullptr), S_OK);
  CGot got;
  ASSERT_EQ(Next(nVideo, &got), S_OK);
  EXPECT_NE(got.info.eFlags & eVCPF_KeyFrame, 0);
  EXPECT_LE(got.time.rtStartTime, rtTarget);
  EXPECT_GT(got.time.rtStartTime, rtFirst) << "the seek went back to the start";
  EXPECT_EQ(got.info.rtSegmentStart, rtTarget);
  EXPECT_EQ(got.info.nIndexInSegment, 0);
  EXPECT_EQ(got.info.nKeyDistance, 0);

  // Packets keep coming after the seek, up to the end.
  const std::vector<CGot> rest = ReadAll();
  EXPECT_FALSE(rest.empty());
}

void ExpectSameGot(const std::vector<CGot>& want, const std::vector<CGot>& got) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) {
    EXPECT_EQ(got[i].info.nStreamIndex, want[i].info.nStreamIndex) << "packet " << i;
    EXPECT_EQ(got[i].info.llDts, want[i].info.llDts) << "packet " << i;
    EXPECT_EQ(got[i].info.llPts, want[i].info.llPts) << "packet " << i;
    EXPECT_EQ(got[i].llHash, want[i].llHash) << "packet " << i;
  }
}

// A segment gives the same packets whatever was read before it: the
// splitter facade reuses one inner splitter for every seek of a source.
TEST_P(FFSplitterMediaTest, SegmentsDoNotDependOnWhatWasReadBefore) {
  ASSERT_EQ(Open(GetParam()), S_OK);
  const std::vector<CGot> fromOpen = ReadAll();
  std::vector<std::vector<CGot>> fresh;
  for (LONGLONG rtStart : {LONGLONG{10000000}, LONGLONG{5000000}}) {
    ASSERT_EQ(Open(GetParam()), S_OK);
    ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(rtStart, nullptr), S_OK);
    fresh.push_back(ReadAll());
  }

  // The same starts on a source read to its end, then back to the start
  // from somewhere in the middle.
  ASSERT_EQ(Open(GetParam()), S_OK);
  ReadAll();
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(10000000, nullptr), S_OK);
  ExpectSameGot(fresh[0], ReadAll());
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(5000000, nullptr), S_OK);
  CGot one;
  ASSERT_EQ(Next(-1, &one), S_OK);
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(5000000, nullptr), S_OK);
  ExpectSameGot(fresh[1], ReadAll());
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, nullptr), S_OK);
  ExpectSameGot(fromOpen, ReadAll());
}

INSTANTIATE_TEST_SUITE_P(GoodFiles, FFSplitterMediaTest,
                         ::testing::Values("h264_aac.mp4", "hevc_opus.mkv", "mpeg2_mp2_2prog.ts", "mpeg2_pcm.mxf",
                                           "vp9_vorbis.webm", "video_only.mp4"),
                         vc::fftest::MediaParamName);

// --- Selection ------------------------------------------------------------------------

std::vector<CRefPacket> OfStreams(const std::vector<CRefPacket>& packets, std::vector<int> vecStreams) {
  std::vector<CRefPacket> out;
  for (const CRefPacket& p : packets)
    if (std::find(vecStreams.begin(), vecStreams.end(), p.nStream) != vecStreams.end()) out.push_back(p);
  return out;
}

void ExpectSameSequence(const std::vector<CRefPacket>& ref, const std::vector<CGot>& got) {
  ASSERT_EQ(got.size(), ref.size());
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].info.nStreamIndex, ref[i].nStream) << "packet " << i;
    EXPECT_EQ(got[i].info.llDts, ref[i].llDts) << "packet " << i;
    EXPECT_EQ(got[i].llHash, ref[i].llHash) << "packet " << i;
  }
}

TEST_F(FFSplitterTest, TrackPropertiesChooseTheDeliveredStreams) {
  const CRefSource ref = ReadPlain(MediaPath("h264_aac.mp4"));
  SetProp(u"audio_track", u"-1");
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  EXPECT_EQ(m_nStreams, 2) << "every stream is described, selected or not";
  ExpectSameSequence(OfStreams(ref.packets, {0}), ReadAll());

  // The facade's defaults ("0" for audio and video) deliver both.
  SetProp(u"audio_track", u"0");
  SetProp(u"video_track", u"0");
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  ExpectSameSequence(ref.packets, ReadAll());

  // An index past the streams of that kind delivers none of them.
  SetProp(u"video_track", u"1");
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {1}), ReadAll());
}

TEST_F(FFSplitterTest, OpenPropertiesTextIsAppliedBeforeOpening) {
  const CRefSource ref = ReadPlain(MediaPath("h264_aac.mp4"));
  ASSERT_EQ(Open("h264_aac.mp4", u"video_track=-1 open_file.max_wait=5000"), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {1}), ReadAll());
  CBstr bsValue;
  ASSERT_EQ(m_cpProps->PropsGet(CBstr(u"open_file.max_wait"), &bsValue), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "5000");
}

TEST_F(FFSplitterTest, UnreadableTrackTextFailsTheOpen) {
  vc::CLogCapture log(vc::eVCLL_Error);
  SetProp(u"audio_track", u"first");
  EXPECT_EQ(Open("h264_aac.mp4"), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("audio_track 'first'"));
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, nullptr), static_cast<HRESULT>(0x800710D2));
}

TEST_F(FFSplitterTest, TsProgramDeliversOnlyThatProgramsStreams) {
  const CRefSource ref = ReadPlain(MediaPath("mpeg2_mp2_2prog.ts"));
  ASSERT_EQ(ref.streams.size(), 4u);

  SetProp(u"ts_program", u"2");
  ASSERT_EQ(Open("mpeg2_mp2_2prog.ts"), S_OK);
  EXPECT_EQ(m_nStreams, 4);
  ExpectSameSequence(OfStreams(ref.packets, {2, 3}), ReadAll());

  // Track indices count within the chosen program: its only audio is track 0.
  SetProp(u"ts_program", u"1");
  SetProp(u"video_track", u"-1");
  SetProp(u"audio_track", u"0");
  ASSERT_EQ(Open("mpeg2_mp2_2prog.ts"), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {1}), ReadAll());

  // Without a program choice the second audio of the file is track 1.
  SetProp(u"ts_program", u"-1");
  SetProp(u"audio_track", u"1");
  ASSERT_EQ(Open("mpeg2_mp2_2prog.ts"), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {3}), ReadAll());
}

TEST_F(FFSplitterTest, MissingTsProgramFailsTheOpen) {
  vc::CLogCapture log(vc::eVCLL_Error);
  SetProp(u"ts_program", u"7");
  EXPECT_EQ(Open("mpeg2_mp2_2prog.ts"), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("ts_program 7"));
  // A file without programs ignores the setting.
  EXPECT_EQ(Open("h264_aac.mp4"), S_OK);
}

TEST_F(FFSplitterTest, SegmentStreamListReplacesTheSelection) {
  const CRefSource ref = ReadPlain(MediaPath("mpeg2_mp2_2prog.ts"));
  SetProp(u"ts_program", u"1");
  ASSERT_EQ(Open("mpeg2_mp2_2prog.ts"), S_OK);
  // The list may name streams the properties left out.
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, CBstr(u"1,3")), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {1, 3}), ReadAll());

  // An empty list keeps the current one; a list of nothing that exists is refused.
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, CBstr(u"")), S_OK);
  ExpectSameSequence(OfStreams(ref.packets, {1, 3}), ReadAll());
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(0, CBstr(u"9")), static_cast<HRESULT>(0x80070585));
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(-1, nullptr), E_INVALIDARG);
}

TEST_F(FFSplitterTest, OneStreamAtATimeKeepsTheOthersInSourceOrder) {
  const CRefSource ref = ReadPlain(MediaPath("h264_aac.mp4"));
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  // Find where the third audio packet lies in the source: everything before
  // it is held while it is fetched, then handed out in order.
  std::vector<size_t> vecAudio;
  for (size_t i = 0; i < ref.packets.size(); ++i)
    if (ref.packets[i].nStream == 1) vecAudio.push_back(i);
  ASSERT_GE(vecAudio.size(), 3u);

  std::vector<CRefPacket> expected;
  std::vector<CGot> got;
  for (int n = 0; n < 3; ++n) {
    CGot one;
    ASSERT_EQ(Next(1, &one), S_OK);
    got.push_back(one);
    expected.push_back(ref.packets[vecAudio[static_cast<size_t>(n)]]);
  }
  for (size_t i = 0; i < ref.packets.size(); ++i)
    if (i != vecAudio[0] && i != vecAudio[1] && i != vecAudio[2]) expected.push_back(ref.packets[i]);
  const std::vector<CGot> rest = ReadAll();
  got.insert(got.end(), rest.begin(), rest.end());
  ExpectSameSequence(expected, got);

  // A stream the selection leaves out, or one that is not there.
  EXPECT_EQ(Next(5, nullptr), static_cast<HRESULT>(0x80070585));
  SetProp(u"audio_track", u"-1");
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  CGot none;
  EXPECT_EQ(Next(1, &none), static_cast<HRESULT>(0x80070585));
}

// --- Side data -------------------------------------------------------------------------

TEST_F(FFSplitterTest, SideDataCarriesTagsAndStreamSideData) {
  ComPtr<IVCSideData> cpSide;
  ASSERT_EQ(m_cpSplitter.As(&cpSide), S_OK);
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  CBstr bsValue;
  ASSERT_EQ(cpSide->SideDataStrGet(-1, CBstr(u"major_brand"), &bsValue), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "isom");
  ASSERT_EQ(cpSide->SideDataStrGet(1, CBstr(u"handler_name"), &bsValue), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "SoundHandler");
  EXPECT_EQ(cpSide->SideDataStrGet(0, CBstr(u"no_such_tag"), &bsValue), S_FALSE);
  EXPECT_EQ(bsValue.Get(), nullptr);
  EXPECT_EQ(cpSide->SideDataStrGet(2, CBstr(u"language"), &bsValue), static_cast<HRESULT>(0x80070585));

  // MPEG-2 video in a transport stream brings its buffer properties as bytes.
  ASSERT_EQ(Open("mpeg2_mp2_2prog.ts"), S_OK);
  LONG cb = 0;
  LONGLONG lp = 0;
  ASSERT_EQ(cpSide->SideDataGet(0, CBstr(u"CPB properties"), &cb, &lp), S_OK);
  EXPECT_GT(cb, 0);
  EXPECT_NE(lp, 0);
  ASSERT_EQ(cpSide->SideDataStrGet(-1, CBstr(u"service_name"), &bsValue), S_FALSE)
      << "program tags belong to programs, not to the source";

  // Closing empties it.
  ASSERT_EQ(m_cpSplitter->SplitterClose(), S_OK);
  LONG nCount = -1;
  EXPECT_EQ(cpSide->SideDataGetCount(-1, &nCount), S_OK);
  EXPECT_EQ(nCount, 0);
  EXPECT_EQ(cpSide->SideDataGetCount(0, &nCount), static_cast<HRESULT>(0x80070585));
}

// --- Failures -----------------------------------------------------------------------------

bool LoggedErrorWith(const vc::CLogCapture& log, const std::string& strA, const std::string& strB) {
  for (const vc::LogRecord& record : log.Records())
    if (record.nLevel == vc::eVCLL_Error && record.strMessage.find(strA) != std::string::npos &&
        record.strMessage.find(strB) != std::string::npos)
      return true;
  return false;
}

TEST_F(FFSplitterTest, MissingFileFailsWithItsNameAndFFmpegsReason) {
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(Open("no_such_file.mp4"), static_cast<HRESULT>(0x80070002));
  EXPECT_EQ(m_nStreams, 0);
  EXPECT_TRUE(LoggedErrorWith(log, "no_such_file.mp4", "No such file or directory"));
  CBstr bsXml;
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, &bsXml, nullptr, nullptr), static_cast<HRESULT>(0x800710D2));
  EXPECT_EQ(m_cpSplitter->SplitterStreamInfoGet(0, nullptr, &bsXml), static_cast<HRESULT>(0x800710D2));
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(0, nullptr), static_cast<HRESULT>(0x800710D2));
  CGot got;
  EXPECT_EQ(Next(-1, &got), static_cast<HRESULT>(0x800710D2));
}

TEST_F(FFSplitterTest, RandomBytesFailToOpenAndLeaveTheObjectClosed) {
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(Open("random.bin"), static_cast<HRESULT>(0x8007000D));
  EXPECT_TRUE(LoggedErrorWith(log, "random.bin", "Invalid data found"));
  EXPECT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, nullptr), static_cast<HRESULT>(0x800710D2));
  // And it opens again afterwards.
  EXPECT_EQ(Open("video_only.mp4"), S_OK);
  EXPECT_EQ(m_nStreams, 1);
}

TEST_F(FFSplitterTest, TruncatedFileEndsEarlyWithAWarning) {
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Open("truncated.mkv"), S_OK);  // its header is whole
  LONGLONG rtDuration = 0;
  ASSERT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, nullptr, nullptr, &rtDuration), S_OK);
  const std::vector<CGot> got = ReadAll();  // ends with end of media
  ASSERT_FALSE(got.empty());
  EXPECT_LT(got.back().time.rtEndTime, rtDuration / 2);
  bool bWarned = false;
  for (const vc::LogRecord& record : log.Records())
    bWarned = bWarned || (record.nLevel == vc::eVCLL_Retry && record.strMessage.find("truncated") != std::string::npos &&
                          record.strMessage.find("truncated.mkv") != std::string::npos);
  EXPECT_TRUE(bWarned);
}

TEST_F(FFSplitterTest, BadIndicesAndArguments) {
  ASSERT_EQ(Open("h264_aac.mp4"), S_OK);
  K_STREAM_INFO info{};
  EXPECT_EQ(m_cpSplitter->SplitterStreamInfoGet(2, &info, nullptr), static_cast<HRESULT>(0x80070585));
  EXPECT_EQ(m_cpSplitter->SplitterStreamInfoGet(-1, &info, nullptr), static_cast<HRESULT>(0x80070585));
  EXPECT_EQ(m_cpSplitter->SplitterStreamInfoGet(0, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(m_cpSplitter->SplitterPacketGet(-2, nullptr, nullptr), E_POINTER);
  ComPtr<IVCPacket> cpPacket;
  EXPECT_EQ(m_cpSplitter->SplitterPacketGet(-2, cpPacket.AddressOf(), nullptr), static_cast<HRESULT>(0x80070585));
  // An open refused for its arguments leaves the source open; one that
  // fails on the source closes it.
  EXPECT_EQ(m_cpSplitter->SplitterOpen(nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpSplitter->SplitterOpen(CBstr(u"x.mp4"), CBstr(u"<a"), nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr), S_OK);
  EXPECT_EQ(Open("no_such_file.mp4"), static_cast<HRESULT>(0x80070002));
  EXPECT_EQ(m_cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr), static_cast<HRESULT>(0x800710D2));
}

TEST_F(FFSplitterTest, PathWithMarkupCharactersStaysWellFormed) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "ffsplitter_xml_test";
  std::filesystem::create_directories(dir);
  const std::filesystem::path odd = dir / "a&b<c>\"d'.mp4";
  std::filesystem::copy_file(MediaPath("h264_aac.mp4"), odd, std::filesystem::copy_options::overwrite_existing);
  LONG nStreams = 0;
  ASSERT_EQ(m_cpSplitter->SplitterOpen(CBstr(std::string_view(odd.string())), nullptr, &nStreams), S_OK);
  CBstr bsXml;
  ASSERT_EQ(m_cpSplitter->SplitterInfoGet(nullptr, &bsXml, nullptr, nullptr), S_OK);
  const XMLParse::XMLNodePtr spRoot = XMLParse::CoXMLNode::Create();
  ASSERT_EQ(spRoot->Parse(bsXml.View()), S_OK) << bsXml.Utf8();
  vc::String strPath;
  ASSERT_TRUE(spRoot->GetAttributePath(u"source::path", &strPath));
  EXPECT_EQ(vc::ToUtf8(strPath), odd.string());
  m_cpSplitter->SplitterClose();
  std::filesystem::remove_all(dir);
}

TEST_F(FFSplitterTest, ClassCreatesThroughTheRuntimeAndCloseIsRepeatable) {
  ComPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(CoCreateInstance(vc::ff::CLSID_FFSplitter, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCSplitter>(),
                             reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  LONG nStreams = 0;
  ASSERT_EQ(cpSplitter->SplitterOpen(CBstr(std::string_view(MediaPath("vp9_vorbis.webm"))), nullptr, &nStreams), S_OK);
  EXPECT_EQ(nStreams, 2);
  EXPECT_EQ(cpSplitter->SplitterClose(), S_OK);
  EXPECT_EQ(cpSplitter->SplitterClose(), S_FALSE);
  EXPECT_EQ(cpSplitter->SplitterStop(), S_FALSE);
}

}  // namespace
