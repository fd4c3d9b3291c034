// The software decoder "FFmpeg A/V" on the test media: every frame of every
// good file against a plain libavcodec loop, the drain, seeks, conversion on
// request, the published decoder information, refusals, and damaged input.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

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
using vc::fftest::FrameProps;
using vc::fftest::FrameTime;
using vc::fftest::PropText;
using vc::fftest::SetProp;

constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044Cu);
constexpr HRESULT kNotSupported = static_cast<HRESULT>(0x80070032u);

class FFDecoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
  }

  // Opens a stream of a test file and reads all its packets.
  void OpenSource(const char* szFile, AVMediaType eType, int nNth = 0) {
    ASSERT_TRUE(vc::fftest::MediaExists(szFile)) << "test media missing: run tests/media/make_media.sh";
    ASSERT_TRUE(m_source.Open(vc::fftest::MediaPath(szFile), eType, nNth)) << szFile;
    m_vecPackets = m_source.ReadAll();
    ASSERT_FALSE(m_vecPackets.empty());
  }
  // DecodeIsSupported with the source's description and first packet.
  HRESULT Accept() {
    BOOL bSupported = FALSE;
    const HRESULT hr = m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&m_source.StreamInfo()),
                                                      m_vecPackets.front().Get(), &bSupported);
    EXPECT_EQ(bSupported != FALSE, hr == S_OK);
    return hr;
  }
  ComPtr<IVCFrame> DecodeOne(IVCPacket* pPacket, HRESULT* phr, K_AV_PROPS* pWanted = nullptr) {
    ComPtr<IVCFrame> cpFrame;
    *phr = m_cpDecoder->DecodePacket(pPacket, -1, pWanted, cpFrame.AddressOf(), nullptr);
    return cpFrame;
  }

  ComPtr<IVCDecoder> m_cpDecoder;
  CTestPacketSource m_source;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
};

// ---- every good file ----

struct CStreamCase {
  const char* szFile;
  AVMediaType eType;
  const char* szName;
};

class FFDecoderFileTest : public FFDecoderTest, public ::testing::WithParamInterface<CStreamCase> {};

TEST_P(FFDecoderFileTest, EveryFrameDecodes_SameFramesAndTimesAsPlainLoop) {
  const CStreamCase& c = GetParam();
  OpenSource(c.szFile, c.eType);
  ASSERT_EQ(Accept(), S_OK);
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets);
  const vc::fftest::CReferenceDecode ref = vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath(c.szFile), c.eType);
  ASSERT_TRUE(ref.bOpened);
  ASSERT_GT(ref.nFrames, 0);

  EXPECT_EQ(run.nPacketFailures, 0);
  EXPECT_EQ(run.hrEnd, kEndOfMedia);
  ASSERT_EQ(run.vecFrames.size(), static_cast<size_t>(ref.nFrames));
  int64_t llSamples = 0;
  LONGLONG rtPrevStart = VC_TIME_UNSET;
  for (size_t i = 0; i < run.vecFrames.size(); ++i) {
    const K_TIME time = FrameTime(run.vecFrames[i].Get());
    LONG lSamples = 0;
    const K_AV_PROPS props = FrameProps(run.vecFrames[i].Get(), &lSamples);
    if (ref.vecStartTimes[i] != VC_TIME_UNSET) {
      // The plain loop counts in the container's ticks (1 ms in Matroska),
      // the decoder in reference time: equal to within one tick.
      EXPECT_NEAR(time.rtStartTime, ref.vecStartTimes[i], ref.llTickRefTime) << "frame " << i;
    }
    EXPECT_GT(time.rtEndTime, time.rtStartTime) << "frame " << i;
    if (rtPrevStart != VC_TIME_UNSET) {
      EXPECT_GT(time.rtStartTime, rtPrevStart) << "frame " << i;
    }
    rtPrevStart = time.rtStartTime;
    llSamples += lSamples;
    if (c.eType == AVMEDIA_TYPE_VIDEO) {
      EXPECT_EQ(props.vidProps.nWidth, 320);
      EXPECT_EQ(props.vidProps.nHeight, 240);
    } else {
      EXPECT_EQ(props.audProps.nSamplesPerSec, m_source.StreamInfo().nSampleRate);
      EXPECT_EQ(props.audProps.nChannels, m_source.StreamInfo().nChannels);
      EXPECT_EQ(props.audProps.nBitsPerSample, 16);
    }
  }
  EXPECT_EQ(llSamples, ref.llSamples);
}

INSTANTIATE_TEST_SUITE_P(
    Media, FFDecoderFileTest,
    ::testing::Values(CStreamCase{"h264_aac.mp4", AVMEDIA_TYPE_VIDEO, "h264"},
                      CStreamCase{"h264_aac.mp4", AVMEDIA_TYPE_AUDIO, "aac"},
                      CStreamCase{"hevc_opus.mkv", AVMEDIA_TYPE_VIDEO, "hevc"},
                      CStreamCase{"hevc_opus.mkv", AVMEDIA_TYPE_AUDIO, "opus"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_VIDEO, "mpeg2_ts"},
                      CStreamCase{"mpeg2_mp2_2prog.ts", AVMEDIA_TYPE_AUDIO, "mp2"},
                      CStreamCase{"mpeg2_pcm.mxf", AVMEDIA_TYPE_VIDEO, "mpeg2_mxf"},
                      CStreamCase{"mpeg2_pcm.mxf", AVMEDIA_TYPE_AUDIO, "pcm"},
                      CStreamCase{"vp9_vorbis.webm", AVMEDIA_TYPE_VIDEO, "vp9"},
                      CStreamCase{"vp9_vorbis.webm", AVMEDIA_TYPE_AUDIO, "vorbis"},
                      CStreamCase{"video_only.mp4", AVMEDIA_TYPE_VIDEO, "h264_only"}),
    [](const ::testing::TestParamInfo<CStreamCase>& paramInfo) { return std::string(paramInfo.param.szName); });

// ---- drain and seek ----

TEST_F(FFDecoderTest, Drain_GivesDelayedFramesOnePerCallThenEndOfMedia) {
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_TRUE(SetProp(m_cpDecoder.Get(), "threads", "1"));
  ASSERT_EQ(Accept(), S_OK);
  size_t nDuringFeed = 0, nFilling = 0;
  LONGLONG rtLastEnd = 0;
  for (const auto& cpPacket : m_vecPackets) {
    HRESULT hr = E_FAIL;
    ComPtr<IVCFrame> cpFrame = DecodeOne(cpPacket.Get(), &hr);
    ASSERT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
    EXPECT_EQ(hr == S_OK, static_cast<bool>(cpFrame));
    if (hr == S_FALSE) ++nFilling;
    if (cpFrame) ++nDuringFeed, rtLastEnd = FrameTime(cpFrame.Get()).rtEndTime;
  }
  // Two B-frames of reordering: the decoder fills before the first frame.
  EXPECT_GE(nFilling, 1u);
  const size_t nTotal = static_cast<size_t>(
      vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath("video_only.mp4"), AVMEDIA_TYPE_VIDEO).nFrames);
  ASSERT_GT(nTotal, nDuringFeed);

  size_t nDrained = 0;
  HRESULT hr = S_OK;
  while (nDrained <= nTotal) {
    ComPtr<IVCFrame> cpFrame = DecodeOne(nullptr, &hr);
    if (hr != S_OK) break;
    ASSERT_TRUE(cpFrame);
    const K_TIME time = FrameTime(cpFrame.Get());
    EXPECT_EQ(time.rtStartTime, rtLastEnd) << "drained frame " << nDrained << " does not follow the previous one";
    rtLastEnd = time.rtEndTime;
    ++nDrained;
  }
  EXPECT_EQ(hr, kEndOfMedia);
  EXPECT_EQ(nDuringFeed + nDrained, nTotal);
  // The end stays the end.
  ComPtr<IVCFrame> cpAfter = DecodeOne(nullptr, &hr);
  EXPECT_EQ(hr, kEndOfMedia);
  EXPECT_FALSE(cpAfter);

  // Packets after the end start the stream again.
  const CDecoderRun again = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets);
  EXPECT_EQ(again.vecFrames.size(), nTotal);
  EXPECT_EQ(again.hrEnd, kEndOfMedia);
}

TEST_F(FFDecoderTest, SegmentStartPacket_DropsFramesOfTheOldPosition) {
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  // Decode into the first second, then "seek" back to the key frame at 1 s.
  constexpr size_t kKey = 25;
  K_PACKET_INFO keyInfo{};
  ASSERT_EQ(m_vecPackets[kKey]->PacketInfoGet(&keyInfo), S_OK);
  ASSERT_TRUE(keyInfo.eFlags & eVCPF_KeyFrame);
  K_TIME keyTime{};
  ASSERT_EQ(m_vecPackets[kKey]->PacketTimeGet(&keyTime), S_OK);
  for (size_t i = 0; i < 40; ++i) {
    HRESULT hr = E_FAIL;
    DecodeOne(m_vecPackets[i].Get(), &hr);
  }
  keyInfo.eFlags = static_cast<eVCPacketFlags>(keyInfo.eFlags | eVCPF_SegmentStart);
  ASSERT_EQ(m_vecPackets[kKey]->PacketInfoSet(&keyInfo), S_OK);

  const std::vector<ComPtr<IVCPacket>> vecRest(m_vecPackets.begin() + kKey, m_vecPackets.end());
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), vecRest);
  ASSERT_EQ(run.vecFrames.size(), m_vecPackets.size() - kKey);
  EXPECT_EQ(FrameTime(run.vecFrames.front().Get()).rtStartTime, keyTime.rtStartTime);
  EXPECT_EQ(FrameTime(run.vecFrames.front().Get()).rtStartTime, 10000000);
}

TEST_F(FFDecoderTest, EmptyPacket_IsNotTakenForTheEnd) {
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  ComPtr<IVCPacket> cpEmpty;
  ASSERT_EQ(vc::CreateVCPacket(nullptr, &m_source.StreamInfo(), nullptr, nullptr, 0, cpEmpty.AddressOf()), S_OK);
  std::vector<ComPtr<IVCPacket>> vecWithEmpty(m_vecPackets.begin(), m_vecPackets.begin() + 10);
  vecWithEmpty.push_back(cpEmpty);
  vecWithEmpty.insert(vecWithEmpty.end(), m_vecPackets.begin() + 10, m_vecPackets.end());
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), vecWithEmpty);
  EXPECT_EQ(run.nPacketFailures, 0);
  EXPECT_EQ(run.vecFrames.size(), m_vecPackets.size());
}

// ---- published information ----

TEST_F(FFDecoderTest, Accepted_PublishesDecoderInformation) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "h264");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder"), "h264");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.device"), "cpu");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.id"), std::to_string(static_cast<int>(AV_CODEC_ID_H264)));
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.profile"), "High");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.level"), "13");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.tag"), "h264");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.size"), "320x240");
}

TEST_F(FFDecoderTest, AudioStream_PublishesProfileAndNoPictureSize) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_AUDIO);
  ASSERT_EQ(Accept(), S_OK);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "aac");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.profile"), "LC");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.size"), "");
}

TEST_F(FFDecoderTest, SecondStream_ReplacesThePublishedInformation) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  CTestPacketSource hevc;
  ASSERT_TRUE(hevc.Open(vc::fftest::MediaPath("hevc_opus.mkv"), AVMEDIA_TYPE_VIDEO));
  ASSERT_EQ(m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&hevc.StreamInfo()), nullptr, nullptr), S_OK);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "hevc");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.profile"), "Main");
}

// ---- refusals ----

TEST_F(FFDecoderTest, UnknownCodec_RefusedWithReasonInLog) {
  vc::CLogCapture log(vc::eVCLL_Retry);
  vc::CBstr bsName{std::string_view("nosuchcodec")};
  K_STREAM_INFO info{};
  info.eMediaType = eVCMT_Video;
  info.nWidth = 320;
  info.nHeight = 240;
  info.dblRate = 25;
  info.bsCodecNameOrTag = bsName;
  BOOL bSupported = TRUE;
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(&info, nullptr, &bSupported), kNotSupported);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(log.Contains("'nosuchcodec' is unknown to FFmpeg"));
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "");
}

TEST_F(FFDecoderTest, NoDescriptionAnywhere_InvalidArgument) {
  ComPtr<IVCPacket> cpBare;
  ASSERT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, nullptr, 0, cpBare.AddressOf()), S_OK);
  BOOL bSupported = TRUE;
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(nullptr, nullptr, &bSupported), E_INVALIDARG);
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(nullptr, cpBare.Get(), &bSupported), E_INVALIDARG);
  EXPECT_FALSE(bSupported);
  HRESULT hr = S_OK;
  DecodeOne(cpBare.Get(), &hr);
  EXPECT_TRUE(FAILED(hr));
}

TEST_F(FFDecoderTest, PacketDescription_WinsOverTheArgument) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  vc::CBstr bsName{std::string_view("nosuchcodec")};
  K_STREAM_INFO wrong = m_source.StreamInfo();
  wrong.bsCodecNameOrTag = bsName;
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(&wrong, m_vecPackets.front().Get(), nullptr), S_OK);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "h264");

  // A packet without a description of its own leaves the argument in charge.
  ComPtr<IVCPacket> cpBare;
  ASSERT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, nullptr, 0, cpBare.AddressOf()), S_OK);
  EXPECT_EQ(m_cpDecoder->DecodeIsSupported(&wrong, cpBare.Get(), nullptr), kNotSupported);
}

TEST_F(FFDecoderTest, CodecTag_AcceptedLikeTheName) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  vc::CBstr bsTag{std::string_view("avc1")};
  K_STREAM_INFO tagged = m_source.StreamInfo();
  tagged.bsCodecNameOrTag = bsTag;
  ASSERT_EQ(m_cpDecoder->DecodeIsSupported(&tagged, nullptr, nullptr), S_OK);
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "h264");
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "decoder.tag"), "avc1");
}

// ---- output form ----

// Mean of the luma samples: the picture's brightness survives conversion.
double MeanLuma(IVCFrame* pFrame) {
  VC_VID_PTR ptr{};
  const K_AV_PROPS props = FrameProps(pFrame);
  if (FAILED(pFrame->VCVideoGetBytesEx(&ptr)) || !ptr.lpVideoPlanes[0]) return -1;
  const auto* pBase = reinterpret_cast<const uint8_t*>(ptr.lpVideoPlanes[0]);
  const bool bPacked = props.vidProps.fccType == eVCCC_YUY2;
  const int nStep = bPacked ? 2 : 1;
  double dblSum = 0;
  for (int y = 0; y < props.vidProps.nHeight; ++y)
    for (int x = 0; x < props.vidProps.nWidth; ++x) dblSum += pBase[y * ptr.cbVideoRowBytes[0] + x * nStep];
  return dblSum / (static_cast<double>(props.vidProps.nWidth) * props.vidProps.nHeight);
}

TEST_F(FFDecoderTest, WantedFormatAndSize_FramesComeConverted) {
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  const CDecoderRun plain = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets);

  K_AV_PROPS wanted{};
  wanted.vidProps.fccType = eVCCC_YUY2;
  wanted.vidProps.nWidth = 160;
  wanted.vidProps.nHeight = 120;
  const CDecoderRun converted = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets, &wanted);
  ASSERT_EQ(converted.vecFrames.size(), plain.vecFrames.size());
  for (size_t i = 0; i < converted.vecFrames.size(); i += 7) {
    const K_AV_PROPS props = FrameProps(converted.vecFrames[i].Get());
    EXPECT_EQ(props.vidProps.fccType, eVCCC_YUY2);
    EXPECT_EQ(props.vidProps.nWidth, 160);
    EXPECT_EQ(props.vidProps.nHeight, 120);
    EXPECT_EQ(FrameTime(converted.vecFrames[i].Get()).rtStartTime, FrameTime(plain.vecFrames[i].Get()).rtStartTime);
    const double dblPlain = MeanLuma(plain.vecFrames[i].Get());
    ASSERT_GT(dblPlain, 16.0);
    EXPECT_NEAR(MeanLuma(converted.vecFrames[i].Get()), dblPlain, 2.0) << "frame " << i;
  }
}

TEST_F(FFDecoderTest, UnknownWantedFormat_RefusedBeforeThePacketIsUsed) {
  OpenSource("video_only.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  K_AV_PROPS wanted{};
  wanted.vidProps.fccType = static_cast<eVCCC>(0x3F3F3F3F);  // "????"
  HRESULT hr = S_OK;
  EXPECT_FALSE(DecodeOne(m_vecPackets.front().Get(), &hr, &wanted));
  EXPECT_EQ(hr, E_INVALIDARG);
  // The refused packet did not reach the decoder: the key frame is still first.
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets);
  EXPECT_EQ(run.vecFrames.size(), m_vecPackets.size());
  EXPECT_EQ(run.nPacketFailures, 0);
}

// ---- life cycle ----

TEST_F(FFDecoderTest, Close_ThenPacketsOfAnotherStream_OpensFromThePacket) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  for (size_t i = 0; i < 5; ++i) {
    HRESULT hr = E_FAIL;
    DecodeOne(m_vecPackets[i].Get(), &hr);
  }
  EXPECT_EQ(m_cpDecoder->DecodeClose(), S_OK);
  HRESULT hr = S_OK;
  DecodeOne(nullptr, &hr);
  EXPECT_EQ(hr, kEndOfMedia) << "a closed decoder has nothing to drain";

  CTestPacketSource hevc;
  ASSERT_TRUE(hevc.Open(vc::fftest::MediaPath("hevc_opus.mkv"), AVMEDIA_TYPE_VIDEO));
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), hevc.ReadAll());
  const auto ref = vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath("hevc_opus.mkv"), AVMEDIA_TYPE_VIDEO);
  EXPECT_EQ(run.vecFrames.size(), static_cast<size_t>(ref.nFrames));
  EXPECT_EQ(PropText(m_cpDecoder.Get(), "codec_name"), "hevc");
}

TEST_F(FFDecoderTest, DecoderClassCreatesThroughTheRuntime) {
  ComPtr<IVCDecoder> cpDecoder;
  ASSERT_EQ(CoCreateInstance(vc::ff::CLSID_FFDecoder, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCDecoder>(),
                             reinterpret_cast<void**>(cpDecoder.AddressOf())),
            S_OK);
  ComPtr<IVCProps> cpProps;
  EXPECT_EQ(cpDecoder.As(&cpProps), S_OK);
}

// ---- damaged input ----

TEST_F(FFDecoderTest, TruncatedFile_DecodesWhatIsThereAndEnds) {
  for (AVMediaType eType : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
    CTestPacketSource source;
    ASSERT_TRUE(source.Open(vc::fftest::MediaPath("truncated.mkv"), eType));
    const std::vector<ComPtr<IVCPacket>> vecPackets = source.ReadAll();
    ASSERT_FALSE(vecPackets.empty());
    ComPtr<IVCDecoder> cpDecoder;
    ASSERT_EQ(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(cpDecoder.AddressOf())),
              S_OK);
    ASSERT_EQ(cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&source.StreamInfo()), nullptr, nullptr), S_OK);
    const CDecoderRun run = vc::fftest::RunDecoder(cpDecoder.Get(), vecPackets);
    EXPECT_GT(run.vecFrames.size(), 0u);
    EXPECT_EQ(run.hrEnd, kEndOfMedia);
  }
}

TEST_F(FFDecoderTest, DamagedPayloads_FailOrDecodeButNeverCrash) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_EQ(Accept(), S_OK);
  std::mt19937 rng(20261122);
  std::vector<ComPtr<IVCPacket>> vecDamaged;
  for (size_t i = 0; i < m_vecPackets.size(); ++i) {
    K_PACKET_INFO info{};
    K_TIME time{};
    ASSERT_EQ(m_vecPackets[i]->PacketInfoGet(&info), S_OK);
    ASSERT_EQ(m_vecPackets[i]->PacketTimeGet(&time), S_OK);
    std::vector<uint8_t> vecBytes(reinterpret_cast<const uint8_t*>(info.lpPacketData),
                                  reinterpret_cast<const uint8_t*>(info.lpPacketData) + info.cbPacketData);
    // Cut every third packet short, flip bytes in the others after the key frame.
    if (i % 3 == 0) vecBytes.resize(vecBytes.size() / 2);
    else if (i > 0)
      for (size_t k = 0; k < vecBytes.size(); k += 7) vecBytes[k] = static_cast<uint8_t>(rng());
    ComPtr<IVCPacket> cpPacket;
    ASSERT_EQ(vc::CreateVCPacket(&info, &m_source.StreamInfo(), &time, vecBytes.data(),
                                 static_cast<LONG>(vecBytes.size()), cpPacket.AddressOf()),
              S_OK);
    vecDamaged.push_back(std::move(cpPacket));
  }
  const CDecoderRun run = vc::fftest::RunDecoder(m_cpDecoder.Get(), vecDamaged, nullptr, 200);
  EXPECT_EQ(run.hrEnd, kEndOfMedia) << "the drain must end";
  EXPECT_LE(run.vecFrames.size(), m_vecPackets.size());
  // Damage can plant parameter sets that outlive a flush; closed and opened
  // again, the decoder takes the undamaged stream in full.
  EXPECT_EQ(m_cpDecoder->DecodeClose(), S_OK);
  const CDecoderRun clean = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets);
  EXPECT_EQ(clean.vecFrames.size(), m_vecPackets.size());
}

}  // namespace
