// The decoder facade over the general media module's decoders on the test
// media, used the way a host uses it: every video and audio stream of every
// file decodes to what a plain libavcodec loop decodes from the same packets;
// the hardware entries are tried and step aside on a machine without their
// device; decoding after a seek through the splitter facade starts near the
// seek point; damaged input ends in frames or in a logged failure code,
// never in a crash or a hang (the suite runs under the address sanitizer).
// The facade is linked in, so its log lines reach the capture; its inner
// decoders come from the built module through the runtime.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CoVCDecoder.h"
#include "CoVCSplitter.h"
#include "FFClasses.h"
#include "FFDecoderTestSource.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCLog.h"

namespace {

using vc::ComPtr;
using vc::fftest::CDecoderRun;
using vc::fftest::CTestPacketSource;
using vc::fftest::DevicePresent;
using vc::fftest::FrameProps;
using vc::fftest::FrameTime;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;
using vc::fftest::PropText;
using vc::fftest::SetProp;

constexpr HRESULT kNoDevice = static_cast<HRESULT>(0x800710DFu);  // the device is not available
constexpr LONGLONG kSec = VC_TIME_SECOND;
constexpr LONGLONG kMs = VC_TIME_SECOND / 1000;

ComPtr<IVCDecoder> NewFacade(bool bFallback) {
  ComPtr<IVCDecoder> cpFacade;
  EXPECT_EQ(vc::CreateObject<vc::CCoVCDecoder>(nullptr, vc::IidOf<IVCDecoder>(),
                                               reinterpret_cast<void**>(cpFacade.AddressOf())),
            S_OK);
  if (cpFacade && bFallback) {
    EXPECT_TRUE(SetProp(cpFacade.Get(), "decoder.fallback_on_error", "true"));
  }
  return cpFacade;
}

// The inner "FFmpeg A/V" decoder alone, as the module serves it.
ComPtr<IVCDecoder> NewInnerDecoder() {
  ComPtr<IVCDecoder> cpDecoder;
  EXPECT_EQ(CoCreateInstance(vc::CLSID_GeneralDecoder, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCDecoder>(),
                             reinterpret_cast<void**>(cpDecoder.AddressOf())),
            S_OK);
  return cpDecoder;
}

// What the frames of a run add up to.
struct CRunSummary {
  size_t nFrames = 0;
  int64_t llSamples = 0;
  size_t nBreaks = 0;
  std::vector<K_TIME> vecTimes;
};

CRunSummary Summarize(const CDecoderRun& run) {
  CRunSummary sum;
  for (const ComPtr<IVCFrame>& cpFrame : run.vecFrames) {
    LONG lSamples = 0;
    FrameProps(cpFrame.Get(), &lSamples);
    const K_TIME time = FrameTime(cpFrame.Get());
    ++sum.nFrames;
    sum.llSamples += lSamples;
    if (time.eFFlags & eKFF_Break) ++sum.nBreaks;
    sum.vecTimes.push_back(time);
  }
  return sum;
}

std::string Hex(HRESULT hr) {
  char sz[16];
  std::snprintf(sz, sizeof sz, "%08X", static_cast<unsigned>(hr));
  return sz;
}

double Number(const std::string& str) { return str.empty() ? -1.0 : std::atof(str.c_str()); }

// ---- every stream of every good file ----

struct CStreamCase {
  const char* szFile;
  AVMediaType eType;
  int nNth;
  const char* szName;
};

class CoVCDecoderFileTest : public ::testing::TestWithParam<CStreamCase> {};

TEST_P(CoVCDecoderFileTest, EveryStream_SameFramesAndSamplesAsPlainLoop) {
  const CStreamCase& c = GetParam();
  ASSERT_TRUE(MediaExists(c.szFile)) << "test media missing: run tests/media/make_media.sh";
  CTestPacketSource source;
  ASSERT_TRUE(source.Open(MediaPath(c.szFile), c.eType, c.nNth)) << c.szFile;
  const std::vector<ComPtr<IVCPacket>> vecPackets = source.ReadAll();
  ASSERT_FALSE(vecPackets.empty());
  const vc::fftest::CReferenceDecode ref = vc::fftest::DecodeWithPlainLoop(MediaPath(c.szFile), c.eType, c.nNth);
  ASSERT_TRUE(ref.bOpened);
  ASSERT_GT(ref.nFrames, 0);

  ComPtr<IVCDecoder> cpFacade = NewFacade(false);
  ASSERT_TRUE(cpFacade);
  const CDecoderRun run = vc::fftest::RunDecoder(cpFacade.Get(), vecPackets);
  const CRunSummary sum = Summarize(run);
  EXPECT_EQ(run.nPacketFailures, 0);
  EXPECT_EQ(sum.nFrames, static_cast<size_t>(ref.nFrames));
  EXPECT_EQ(sum.llSamples, ref.llSamples);
  EXPECT_EQ(sum.nBreaks, 0u) << "a clean file read from its start has no jump";
  // The time repair moves a start only where it is more than 1 ms off the
  // previous end; a clean file stays within its own tick of the loop's times.
  const LONGLONG llTolerance = ref.llTickRefTime + kMs;
  for (size_t i = 0; i < sum.vecTimes.size() && i < ref.vecStartTimes.size(); ++i) {
    if (ref.vecStartTimes[i] == VC_TIME_UNSET) continue;
    EXPECT_NEAR(sum.vecTimes[i].rtStartTime, ref.vecStartTimes[i], llTolerance) << "frame " << i;
  }

  const std::string strCodec = vc::ToUtf8(source.StreamInfo().bsCodecNameOrTag);
  EXPECT_EQ(PropText(cpFacade.Get(), "decoder.type"), "FFmpeg A/V(" + strCodec + ")");
  EXPECT_EQ(PropText(cpFacade.Get(), "decoder.tag"), strCodec) << "copied from the inner decoder";
  EXPECT_EQ(PropText(cpFacade.Get(), "info::hw_acceleration"), "") << "software decoding";
  const std::string strPrefix = c.eType == AVMEDIA_TYPE_VIDEO ? "stat::v_decode" : "stat::a_decode";
  EXPECT_GT(Number(PropText(cpFacade.Get(), (strPrefix + ".kbps").c_str())), 0.0) << strPrefix;
  EXPECT_NE(PropText(cpFacade.Get(), (strPrefix + ".pkt_size_key").c_str()), "") << strPrefix;
  if (c.eType == AVMEDIA_TYPE_VIDEO) {
    EXPECT_EQ(PropText(cpFacade.Get(), "decoder.size"), "320x240");
  }

  // Closed, the facade takes the same stream again from the start.
  EXPECT_EQ(cpFacade->DecodeClose(), S_OK);
  EXPECT_EQ(PropText(cpFacade.Get(), (strPrefix + ".kbps").c_str()), "") << "the close clears the statistics";
  const CRunSummary again = Summarize(vc::fftest::RunDecoder(cpFacade.Get(), vecPackets));
  EXPECT_EQ(again.nFrames, sum.nFrames);
  EXPECT_EQ(again.llSamples, sum.llSamples);
}

INSTANTIATE_TEST_SUITE_P(
    Media, CoVCDecoderFileTest,
    ::testing::Values(CStreamCase{"h264_aac.mp4", AVMEDIA_TYPE_VIDEO, 0, "h264"},
                      CStreamCase{"h264_aac.mp4", AVMEDIA_TYPE_AUDIO, 0, "aac"},
                      CStreamCase{"hevc_opus.mkv", AVMEDIA_TYPE_VIDEO, 0, "hevc"},
                      CStreamCase{"hevc_opus.mkv", AVMEDIA_TYPE_AUDIO, 0, "opus"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_VIDEO, 0, "mpeg2_ts_first"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_AUDIO, 0, "mp2_first"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_VIDEO, 1, "mpeg2_ts_second"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_AUDIO, 1, "mp2_second"},
                      CStreamCase{"mpeg2_pcm.mxf", AVMEDIA_TYPE_VIDEO, 0, "mpeg2_mxf"},
                      CStreamCase{"mpeg2_pcm.mxf", AVMEDIA_TYPE_AUDIO, 0, "pcm"},
                      CStreamCase{"vp9_vorbis.webm", AVMEDIA_TYPE_VIDEO, 0, "vp9"},
                      CStreamCase{"vp9_vorbis.webm", AVMEDIA_TYPE_AUDIO, 0, "vorbis"},
                      CStreamCase{"video_only.mp4", AVMEDIA_TYPE_VIDEO, 0, "h264_only"}),
    [](const ::testing::TestParamInfo<CStreamCase>& paramInfo) { return std::string(paramInfo.param.szName); });

// ---- the hardware entries ----

// The facade reports a candidate's refusal with the description's text;
// one such line per hardware entry tried.
size_t RefusalsWithCode(const vc::CLogCapture& log, HRESULT hr) {
  size_t n = 0;
  const std::string strCode = "NOT SUPPORTED (hr=" + Hex(hr) + ")";
  for (const std::string& strLine : log.Messages())
    if (strLine.find("DecodeIsSupported(") != std::string::npos && strLine.find(strCode) != std::string::npos) ++n;
  return n;
}

TEST(CoVCDecoderHardwareTest, NoDevice_HardwareEntriesRefuseWithTheReasonLogged_SoftwareDecodes) {
  if (DevicePresent(AV_HWDEVICE_TYPE_CUDA)) GTEST_SKIP() << "an NVIDIA device is present: it would decode";
  const bool bQuickSync = !DevicePresent(AV_HWDEVICE_TYPE_QSV);
  CTestPacketSource source;
  ASSERT_TRUE(MediaExists("h264_aac.mp4")) << "test media missing: run tests/media/make_media.sh";
  ASSERT_TRUE(source.Open(MediaPath("h264_aac.mp4"), AVMEDIA_TYPE_VIDEO));
  const std::vector<ComPtr<IVCPacket>> vecPackets = source.ReadAll();

  ComPtr<IVCDecoder> cpFacade = NewFacade(false);
  ASSERT_TRUE(cpFacade);
  if (bQuickSync) {
    ASSERT_TRUE(SetProp(cpFacade.Get(), "decoder.quicksync", "true"));
  }
  vc::CLogCapture log(vc::eVCLL_Retry);
  const CDecoderRun run = vc::fftest::RunDecoder(cpFacade.Get(), vecPackets);
  EXPECT_EQ(RefusalsWithCode(log, kNoDevice), bQuickSync ? 2u : 1u)
      << "each hardware entry is asked once and says why it refuses";
  EXPECT_EQ(PropText(cpFacade.Get(), "decoder.type"), "FFmpeg A/V(h264)");
  EXPECT_EQ(PropText(cpFacade.Get(), "info::hw_acceleration"), "");
  EXPECT_EQ(run.nPacketFailures, 0);
  EXPECT_EQ(Summarize(run).nFrames, vecPackets.size()) << "every packet of the file is a frame";
}

TEST(CoVCDecoderHardwareTest, AudioStream_NeverAsksTheHardwareEntries) {
  CTestPacketSource source;
  ASSERT_TRUE(MediaExists("h264_aac.mp4")) << "test media missing: run tests/media/make_media.sh";
  ASSERT_TRUE(source.Open(MediaPath("h264_aac.mp4"), AVMEDIA_TYPE_AUDIO));
  const std::vector<ComPtr<IVCPacket>> vecPackets = source.ReadAll();
  ComPtr<IVCDecoder> cpFacade = NewFacade(false);
  ASSERT_TRUE(cpFacade);
  ASSERT_TRUE(SetProp(cpFacade.Get(), "decoder.quicksync", "true"));
  vc::CLogCapture log(vc::eVCLL_Retry);
  const CDecoderRun run = vc::fftest::RunDecoder(cpFacade.Get(), vecPackets);
  EXPECT_FALSE(log.Contains("NOT SUPPORTED")) << "the hardware entries take video only";
  EXPECT_EQ(PropText(cpFacade.Get(), "decoder.type"), "FFmpeg A/V(aac)");
  EXPECT_GT(Summarize(run).llSamples, 0);
}

// ---- seeking through the splitter facade ----

// Every packet of every stream from rtStart, in source order, per stream.
std::map<LONG, std::vector<ComPtr<IVCPacket>>> ReadFromSplitter(const std::string& strPath, LONGLONG rtStart) {
  std::map<LONG, std::vector<ComPtr<IVCPacket>>> mapPackets;
  ComPtr<IVCSplitter> cpSplitter;
  EXPECT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  if (!cpSplitter) return mapPackets;
  LONG nStreams = 0;
  EXPECT_EQ(cpSplitter->SplitterOpen(vc::CBstr(strPath), nullptr, &nStreams), S_OK);
  std::string strStreams;
  for (LONG n = 0; n < nStreams; ++n) strStreams += (n ? "," : "") + std::to_string(n);
  EXPECT_EQ(cpSplitter->SplitterBeginSegment(rtStart, vc::CBstr(strStreams)), S_OK);
  for (;;) {
    ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == vc::VC_E_END_OF_MEDIA) break;
    EXPECT_EQ(hr, S_OK);
    if (FAILED(hr) || !cpPacket) break;
    K_PACKET_INFO info{};
    cpPacket->PacketInfoGet(&info);
    mapPackets[info.nStreamIndex].push_back(std::move(cpPacket));
  }
  cpSplitter->SplitterClose();
  return mapPackets;
}

class CoVCDecoderSeekTest : public ::testing::TestWithParam<const char*> {};

TEST_P(CoVCDecoderSeekTest, DecodeAfterSegmentAtOneSecond_StartsNearItAndMatchesTheInnerDecoder) {
  ASSERT_TRUE(MediaExists(GetParam())) << "test media missing: run tests/media/make_media.sh";
  const auto mapPackets = ReadFromSplitter(MediaPath(GetParam()), kSec);
  ASSERT_FALSE(mapPackets.empty());
  for (const auto& [nStream, vecPackets] : mapPackets) {
    SCOPED_TRACE("stream " + std::to_string(nStream));
    K_STREAM_INFO info{};
    ASSERT_EQ(vecPackets.front()->PacketStreamInfoGet(&info), S_OK);
    SysFreeString(info.bsCodecNameOrTag);
    K_PACKET_INFO first{};
    vecPackets.front()->PacketInfoGet(&first);
    EXPECT_TRUE(first.eFlags & eVCPF_SegmentStart) << "the splitter marks the segment's first packet";

    ComPtr<IVCDecoder> cpFacade = NewFacade(true);
    ASSERT_TRUE(cpFacade);
    const CDecoderRun run = vc::fftest::RunDecoder(cpFacade.Get(), vecPackets);
    const CRunSummary sum = Summarize(run);
    EXPECT_EQ(run.nPacketFailures, 0);
    ASSERT_GT(sum.nFrames, 0u);
    // The segment starts at the key packet at or before 1 s (audio: its
    // own packets from a little before): within 100 ms of it.
    EXPECT_NEAR(sum.vecTimes.front().rtStartTime, kSec, 100 * kMs);
    EXPECT_NEAR(sum.vecTimes.back().rtEndTime, 2 * kSec, 100 * kMs) << "the files are 2 s long";
    EXPECT_EQ(sum.nBreaks, 0u);
    if (info.eMediaType == eVCMT_Video) {
      EXPECT_EQ(sum.nFrames, vecPackets.size()) << "one frame per packet, none lost at the seek";
    } else {
      // About one second of sound at the stream's rate.
      EXPECT_NEAR(static_cast<double>(sum.llSamples), info.nSampleRate * 1.0, info.nSampleRate * 0.1);
    }

    // The facade adds nothing and loses nothing against its inner decoder
    // on the same packets.
    ComPtr<IVCDecoder> cpInner = NewInnerDecoder();
    ASSERT_TRUE(cpInner);
    ASSERT_EQ(cpInner->DecodeIsSupported(&info, vecPackets.front().Get(), nullptr), S_OK);
    const CRunSummary direct = Summarize(vc::fftest::RunDecoder(cpInner.Get(), vecPackets));
    EXPECT_EQ(sum.nFrames, direct.nFrames);
    EXPECT_EQ(sum.llSamples, direct.llSamples);
  }
}

// Files whose splitter seek lands at 1 s (the Matroska test files carry no
// index to seek by; the TS starts later than 1 s).
INSTANTIATE_TEST_SUITE_P(Media, CoVCDecoderSeekTest,
                         ::testing::Values("h264_aac.mp4", "mpeg2_pcm.mxf", "video_only.mp4"),
                         vc::fftest::MediaParamName);

// ---- damaged input ----

// Feeds every packet and drains, recording each answer. Every failure must
// have been logged with its code; the run must end.
struct CDamagedRun {
  size_t nFrames = 0;
  std::set<HRESULT> setFailures;
  bool bEveryFailureLogged = true;
  bool bDrainEnded = false;
};

CDamagedRun RunDamaged(IVCDecoder* pFacade, const std::vector<ComPtr<IVCPacket>>& vecPackets) {
  CDamagedRun result;
  vc::CLogCapture log(vc::eVCLL_Retry);
  auto take = [&](IVCPacket* pPacket) {
    ComPtr<IVCFrame> cpFrame;
    const HRESULT hr = pFacade->DecodePacket(pPacket, -1, nullptr, cpFrame.AddressOf(), nullptr);
    if (hr == S_OK && cpFrame) ++result.nFrames;
    if (FAILED(hr) && hr != vc::VC_E_END_OF_MEDIA) {
      result.setFailures.insert(hr);
      if (!log.Contains(Hex(hr))) result.bEveryFailureLogged = false;
    }
    return hr == S_OK && cpFrame;
  };
  for (const ComPtr<IVCPacket>& cpPacket : vecPackets) take(cpPacket.Get());
  for (int i = 0; i < 1000 && !result.bDrainEnded; ++i) result.bDrainEnded = !take(nullptr);
  return result;
}

std::string FailureList(const CDamagedRun& run) {
  std::string str;
  for (HRESULT hr : run.setFailures) str += " " + Hex(hr);
  return str;
}

class CoVCDecoderDamagedTest : public ::testing::TestWithParam<bool> {
 protected:
  // The H.264 packets of the test file with its description.
  void OpenH264() {
    ASSERT_TRUE(MediaExists("h264_aac.mp4")) << "test media missing: run tests/media/make_media.sh";
    ASSERT_TRUE(m_source.Open(MediaPath("h264_aac.mp4"), AVMEDIA_TYPE_VIDEO));
    m_vecPackets = m_source.ReadAll();
    ASSERT_FALSE(m_vecPackets.empty());
  }
  // The same payloads and times under another description.
  std::vector<ComPtr<IVCPacket>> Redescribed(const K_STREAM_INFO& stream) const {
    std::vector<ComPtr<IVCPacket>> vecOut;
    for (const ComPtr<IVCPacket>& cpPacket : m_vecPackets) {
      K_PACKET_INFO info{};
      K_TIME time{};
      cpPacket->PacketInfoGet(&info);
      cpPacket->PacketTimeGet(&time);
      const void* pData = reinterpret_cast<const void*>(info.lpPacketData);
      const LONG cbData = info.cbPacketData;
      info.lpSideData = 0, info.cbSideData = 0, info.nSideDataElems = 0;
      ComPtr<IVCPacket> cpCopy;
      EXPECT_EQ(vc::CreateVCPacket(&info, &stream, &time, pData, cbData, cpCopy.AddressOf()), S_OK);
      if (cpCopy) vecOut.push_back(std::move(cpCopy));
    }
    return vecOut;
  }
  // Then the good packets: the facade must still decode after the damage.
  void ExpectRecovers(IVCDecoder* pFacade) {
    K_PACKET_INFO info{};
    ASSERT_EQ(m_vecPackets.front()->PacketInfoGet(&info), S_OK);
    info.eFlags = static_cast<eVCPacketFlags>(info.eFlags | eVCPF_SegmentStart);
    ASSERT_EQ(m_vecPackets.front()->PacketInfoSet(&info), S_OK);
    const CDamagedRun good = RunDamaged(pFacade, m_vecPackets);
    EXPECT_TRUE(good.bDrainEnded);
    EXPECT_GT(good.nFrames, m_vecPackets.size() / 2) << "failures:" << FailureList(good);
  }

  CTestPacketSource m_source;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
};

TEST_P(CoVCDecoderDamagedTest, TruncatedFile_DecodesWhatIsThereOrFailsWithALoggedCode) {
  ASSERT_TRUE(MediaExists("truncated.mkv")) << "test media missing: run tests/media/make_media.sh";
  for (AVMediaType eType : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
    SCOPED_TRACE(eType == AVMEDIA_TYPE_VIDEO ? "video" : "audio");
    CTestPacketSource source;
    ASSERT_TRUE(source.Open(MediaPath("truncated.mkv"), eType));
    const std::vector<ComPtr<IVCPacket>> vecPackets = source.ReadAll();
    ASSERT_FALSE(vecPackets.empty()) << "the first 40 % holds the first packets";
    ComPtr<IVCDecoder> cpFacade = NewFacade(GetParam());
    ASSERT_TRUE(cpFacade);
    const CDamagedRun run = RunDamaged(cpFacade.Get(), vecPackets);
    EXPECT_TRUE(run.bDrainEnded);
    EXPECT_TRUE(run.bEveryFailureLogged) << "failures:" << FailureList(run);
    EXPECT_GT(run.nFrames, 0u) << "the packets before the cut decode";
  }
}

TEST_P(CoVCDecoderDamagedTest, RandomBytesAsH264Packets_FailWithALoggedCodeOrDecode_ThenRealPacketsDecode) {
  ASSERT_NO_FATAL_FAILURE(OpenH264());
  ASSERT_TRUE(MediaExists("random.bin")) << "test media missing: run tests/media/make_media.sh";
  std::ifstream file(MediaPath("random.bin"), std::ios::binary);
  const std::vector<char> vecBytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  ASSERT_EQ(vecBytes.size(), 65536u);
  // 64 packets of 1 KiB at 25 per second, the first marked as a key packet.
  std::vector<ComPtr<IVCPacket>> vecGarbage;
  for (size_t i = 0; i < 64; ++i) {
    K_PACKET_INFO info{};
    info.eFlags = i == 0 ? eVCPF_KeyFrame : eVCPF_None;
    info.llPts = info.llDts = static_cast<LONGLONG>(i) * 512;
    K_TIME time{};
    time.rtStartTime = static_cast<LONGLONG>(i) * 40 * kMs;
    time.rtEndTime = time.rtStartTime + 40 * kMs;
    ComPtr<IVCPacket> cpPacket;
    ASSERT_EQ(vc::CreateVCPacket(&info, &m_source.StreamInfo(), &time, vecBytes.data() + i * 1024, 1024,
                                 cpPacket.AddressOf()),
              S_OK);
    vecGarbage.push_back(std::move(cpPacket));
  }
  ComPtr<IVCDecoder> cpFacade = NewFacade(GetParam());
  ASSERT_TRUE(cpFacade);
  const CDamagedRun run = RunDamaged(cpFacade.Get(), vecGarbage);
  EXPECT_TRUE(run.bDrainEnded);
  EXPECT_TRUE(run.bEveryFailureLogged) << "failures:" << FailureList(run);
  ExpectRecovers(cpFacade.Get());
}

// H.264 packets described with codec data that is not theirs.
struct CWrongDataCase {
  const char* szCodec;     // the name the description gives
  const char* szDataFrom;  // "hevc": the HEVC file's codec data; "garbage": made-up bytes
  const char* szName;
};

TEST_P(CoVCDecoderDamagedTest, WrongCodecData_FailsWithALoggedCodeOrDecodes_NeverCrashes) {
  ASSERT_NO_FATAL_FAILURE(OpenH264());
  CTestPacketSource hevc;
  ASSERT_TRUE(MediaExists("hevc_opus.mkv")) << "test media missing: run tests/media/make_media.sh";
  ASSERT_TRUE(hevc.Open(MediaPath("hevc_opus.mkv"), AVMEDIA_TYPE_VIDEO));
  ASSERT_GT(hevc.StreamInfo().cbCodecData, 0);
  std::vector<uint8_t> vecGarbage(48);
  for (size_t i = 0; i < vecGarbage.size(); ++i) vecGarbage[i] = static_cast<uint8_t>(i * 37 + 11);
  vecGarbage[0] = 1;  // looks like the start of an avcC/hvcC record, so the parsers read on

  const CWrongDataCase cases[] = {{"h264", "hevc", "h264 packets, HEVC codec data"},
                                  {"h264", "garbage", "h264 packets, garbage codec data"},
                                  {"hevc", "hevc", "h264 packets described as HEVC"}};
  for (const CWrongDataCase& c : cases) {
    SCOPED_TRACE(c.szName);
    K_STREAM_INFO stream = m_source.StreamInfo();
    const vc::CBstr bsCodec{std::string_view(c.szCodec)};
    stream.bsCodecNameOrTag = bsCodec.Get();
    if (std::string(c.szDataFrom) == "hevc") {
      stream.cbCodecData = hevc.StreamInfo().cbCodecData;
      stream.lpCodecData = hevc.StreamInfo().lpCodecData;
    } else {
      stream.cbCodecData = static_cast<LONG>(vecGarbage.size());
      stream.lpCodecData = reinterpret_cast<LONGLONG>(vecGarbage.data());
    }
    const std::vector<ComPtr<IVCPacket>> vecWrong = Redescribed(stream);
    ASSERT_EQ(vecWrong.size(), m_vecPackets.size());
    ComPtr<IVCDecoder> cpFacade = NewFacade(GetParam());
    ASSERT_TRUE(cpFacade);
    const CDamagedRun run = RunDamaged(cpFacade.Get(), vecWrong);
    EXPECT_TRUE(run.bDrainEnded);
    EXPECT_TRUE(run.bEveryFailureLogged) << "failures:" << FailureList(run);
    EXPECT_TRUE(run.nFrames > 0 || !run.setFailures.empty()) << "silence: neither frames nor a failure";
    // The right description again (a codec data change selects anew).
    ExpectRecovers(cpFacade.Get());
  }
}

INSTANTIATE_TEST_SUITE_P(Fallback, CoVCDecoderDamagedTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& param) {
                           return std::string(param.param ? "FallbackOn" : "FallbackOff");
                         });

}  // namespace
