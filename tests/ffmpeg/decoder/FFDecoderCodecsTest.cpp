// Codec lookup for the decoders: the names and tags that stream descriptions
// carry, the software decoder chosen for them, the stream description in a
// codec context, and the H.264 profile read from codec data.
#include <gtest/gtest.h>

#include <vector>

#include "FFDecoderCodecs.h"

namespace {

using vc::ff::CodecIdFromNameOrTag;

struct CNameCase {
  const char* szNameOrTag;
  eVCMediaType eType;
  AVCodecID id;
};

class FFDecoderCodecNameTest : public ::testing::TestWithParam<CNameCase> {};

TEST_P(FFDecoderCodecNameTest, NameOrTag_GivesTheCodec) {
  const CNameCase& c = GetParam();
  EXPECT_EQ(CodecIdFromNameOrTag(c.szNameOrTag, c.eType), c.id)
      << "'" << c.szNameOrTag << "' gave " << avcodec_get_name(CodecIdFromNameOrTag(c.szNameOrTag, c.eType));
}

INSTANTIATE_TEST_SUITE_P(
    Names, FFDecoderCodecNameTest,
    ::testing::Values(
        // FFmpeg codec and decoder names, any letter case.
        CNameCase{"h264", eVCMT_Video, AV_CODEC_ID_H264}, CNameCase{"H264", eVCMT_Video, AV_CODEC_ID_H264},
        CNameCase{"hevc", eVCMT_Video, AV_CODEC_ID_HEVC}, CNameCase{"mpeg2video", eVCMT_Video, AV_CODEC_ID_MPEG2VIDEO},
        CNameCase{"aac_fixed", eVCMT_Audio, AV_CODEC_ID_AAC}, CNameCase{"pcm_s16le", eVCMT_Audio, AV_CODEC_ID_PCM_S16LE},
        CNameCase{"Opus", eVCMT_Audio, AV_CODEC_ID_OPUS},
        // Aliases and container tags.
        CNameCase{"h265", eVCMT_Video, AV_CODEC_ID_HEVC}, CNameCase{"mpeg2", eVCMT_Video, AV_CODEC_ID_MPEG2VIDEO},
        CNameCase{"avc1", eVCMT_Video, AV_CODEC_ID_H264}, CNameCase{"hvc1", eVCMT_Video, AV_CODEC_ID_HEVC},
        CNameCase{"hev1", eVCMT_Video, AV_CODEC_ID_HEVC}, CNameCase{"vp09", eVCMT_Video, AV_CODEC_ID_VP9},
        CNameCase{"XVID", eVCMT_Video, AV_CODEC_ID_MPEG4}, CNameCase{"mp4a", eVCMT_Audio, AV_CODEC_ID_AAC},
        CNameCase{"0x55", eVCMT_Audio, AV_CODEC_ID_MP3}, CNameCase{"1", eVCMT_Audio, AV_CODEC_ID_PCM_S16LE},
        // Nothing.
        CNameCase{"", eVCMT_Video, AV_CODEC_ID_NONE}, CNameCase{"nosuchcodec", eVCMT_Video, AV_CODEC_ID_NONE},
        CNameCase{"1", eVCMT_Video, AV_CODEC_ID_NONE}, CNameCase{"0x", eVCMT_Audio, AV_CODEC_ID_NONE}));

TEST(FFDecoderCodecsTest, HardwareDecoderName_GivesTheSoftwareDecoderOfItsCodec) {
  const AVCodecID id = CodecIdFromNameOrTag("h264_cuvid", eVCMT_Video);
  ASSERT_EQ(id, AV_CODEC_ID_H264);
  const AVCodec* pCodec = vc::ff::FindSoftwareDecoder("h264_cuvid", id);
  ASSERT_NE(pCodec, nullptr);
  EXPECT_STREQ(pCodec->name, "h264");
  EXPECT_EQ(pCodec->capabilities & AV_CODEC_CAP_HARDWARE, 0);
}

TEST(FFDecoderCodecsTest, NamedSoftwareDecoder_IsTheOneUsed) {
  const AVCodec* pCodec = vc::ff::FindSoftwareDecoder("aac_fixed", AV_CODEC_ID_AAC);
  ASSERT_NE(pCodec, nullptr);
  EXPECT_STREQ(pCodec->name, "aac_fixed");
  EXPECT_EQ(vc::ff::FindSoftwareDecoder("nosuchcodec", AV_CODEC_ID_NONE), nullptr);
}

struct CContextFree {
  void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
};

TEST(FFDecoderCodecsTest, StreamDescription_FillsTheCodecContext) {
  const uint8_t arrCodecData[] = {1, 2, 3, 4, 5};
  K_STREAM_INFO info{};
  info.eMediaType = eVCMT_Video;
  info.nWidth = 720;
  info.nHeight = 576;
  info.nAspectX = 16;
  info.nAspectY = 9;
  info.dblRate = 25;
  info.cbCodecData = sizeof(arrCodecData);
  info.lpCodecData = reinterpret_cast<LONGLONG>(arrCodecData);
  std::unique_ptr<AVCodecContext, CContextFree> spContext(avcodec_alloc_context3(nullptr));
  ASSERT_EQ(vc::ff::FillCodecContext(info, spContext.get()), 0);
  EXPECT_EQ(spContext->width, 720);
  EXPECT_EQ(spContext->height, 576);
  // 16:9 shown on 720x576: samples are 64:45.
  EXPECT_EQ(spContext->sample_aspect_ratio.num, 64);
  EXPECT_EQ(spContext->sample_aspect_ratio.den, 45);
  EXPECT_EQ(av_cmp_q(spContext->framerate, AVRational{25, 1}), 0);
  EXPECT_EQ(av_cmp_q(spContext->pkt_timebase, AVRational{1, 10000000}), 0);
  ASSERT_EQ(spContext->extradata_size, 5);
  EXPECT_EQ(std::vector<uint8_t>(spContext->extradata, spContext->extradata + 5),
            std::vector<uint8_t>(arrCodecData, arrCodecData + 5));
  // The padding FFmpeg's readers may touch is there and zero.
  for (int i = 0; i < AV_INPUT_BUFFER_PADDING_SIZE; ++i) ASSERT_EQ(spContext->extradata[5 + i], 0);
}

TEST(FFDecoderCodecsTest, H264ProfileAndLevel_FromAvcCAndAnnexB) {
  int nProfile = 0, nLevel = 0;
  // avcC of a High profile level 4.0 stream: SPS 67 64 00 28 ...
  const uint8_t arrAvcC[] = {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0, 4, 0x67, 0x64, 0x00, 0x28};
  ASSERT_TRUE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_H264, arrAvcC, sizeof(arrAvcC), &nProfile, &nLevel));
  EXPECT_EQ(nProfile, FF_PROFILE_H264_HIGH);
  EXPECT_EQ(nLevel, 40);
  // Annex B with constraint_set1 on a Baseline SPS: Constrained Baseline.
  const uint8_t arrAnnexB[] = {0, 0, 0, 1, 0x09, 0x10, 0, 0, 1, 0x67, 66, 0x40, 30, 0xAA};
  ASSERT_TRUE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_H264, arrAnnexB, sizeof(arrAnnexB), &nProfile, &nLevel));
  EXPECT_EQ(nProfile, FF_PROFILE_H264_CONSTRAINED_BASELINE);
  EXPECT_EQ(nLevel, 30);
  // No SPS, or one cut short.
  const uint8_t arrNoSps[] = {0, 0, 1, 0x68, 0xCE, 0x38, 0x80};
  EXPECT_FALSE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_H264, arrNoSps, sizeof(arrNoSps), &nProfile, &nLevel));
  const uint8_t arrShortAvcC[] = {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0, 40, 0x67};
  EXPECT_FALSE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_H264, arrShortAvcC, sizeof(arrShortAvcC), &nProfile, &nLevel));
  EXPECT_FALSE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_H264, nullptr, 0, &nProfile, &nLevel));
}

TEST(FFDecoderCodecsTest, AacProfile_FromAudioSpecificConfig) {
  int nProfile = FF_PROFILE_UNKNOWN, nLevel = FF_LEVEL_UNKNOWN;
  // LC, 48 kHz, stereo: object type 2.
  const uint8_t arrLc[] = {0x11, 0x90};
  ASSERT_TRUE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_AAC, arrLc, sizeof(arrLc), &nProfile, &nLevel));
  EXPECT_EQ(nProfile, FF_PROFILE_AAC_LOW);
  EXPECT_EQ(nLevel, FF_LEVEL_UNKNOWN) << "AAC has no level";
  // Escaped object type 39 (ELD): 31, then 6 bits of 7.
  const uint8_t arrEld[] = {0xF8, 0xE0};
  ASSERT_TRUE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_AAC, arrEld, sizeof(arrEld), &nProfile, &nLevel));
  EXPECT_EQ(nProfile, FF_PROFILE_AAC_ELD);
  // Codecs without a probe say so.
  EXPECT_FALSE(vc::ff::ProbeProfileLevel(AV_CODEC_ID_VP9, arrLc, sizeof(arrLc), &nProfile, &nLevel));
}

}  // namespace
